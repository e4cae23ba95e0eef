// What a process has left behind by its end.

#ifndef PELORIK_TESTS_SUPPORT_REMAINS_H
#define PELORIK_TESTS_SUPPORT_REMAINS_H

namespace support {

// How many descriptors the process has open.
int openDescriptors();

class Remains {
public:
    // True, with a word on standard error, when the process has a child, or other than as many
    // descriptors as when this object was made.
    bool found() const;

private:
    int descriptors_ = openDescriptors();
};

} // namespace support

#endif
