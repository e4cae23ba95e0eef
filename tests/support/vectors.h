// Published examples of digests, kept as data files under tests/data/digest.

#ifndef PELORIK_TESTS_SUPPORT_VECTORS_H
#define PELORIK_TESTS_SUPPORT_VECTORS_H

#include <functional>
#include <string>

namespace support {

// Expects that `digestText`, given the message of each example in the file, returns the example's
// digest in lower case. Fails on a file without examples.
void expectVectors(const std::string& fileName,
                   const std::function<std::string(const std::string& message)>& digestText);

} // namespace support

#endif
