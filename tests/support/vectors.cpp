#include "tests/support/vectors.h"

#include "tests/support/bytes.h"

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>

namespace {

bool startsWith(const std::string& text, const char* beginning) {
    return text.rfind(beginning, 0) == 0;
}

// The bytes of a number in the notation of the standard, which writes the last byte first.
std::string bytesOfNumber(const std::string& number) {
    std::string bytes = support::fromHex(number.substr(2));
    std::reverse(bytes.begin(), bytes.end());
    return bytes;
}

// 0xNUMBER, "TEXT" or COUNT * "TEXT".
std::string parseMessage(const std::string& text) {
    if (startsWith(text, "0x"))
        return bytesOfNumber(text);
    const std::size_t quote = text.find('"');
    const std::string quoted = text.substr(quote + 1, text.size() - quote - 2);
    std::string message;
    for (int count = quote == 0 ? 1 : std::stoi(text); count > 0; --count)
        message += quoted;
    return message;
}

std::string parseDigest(const std::string& text) {
    return startsWith(text, "0x") ? support::toHex(bytesOfNumber(text)) : text;
}

} // namespace

void support::expectVectors(
    const std::string& fileName,
    const std::function<std::string(const std::string& message)>& digestText) {
    std::ifstream file(PELORIK_TEST_DATA "/digest/" + fileName);
    int examples = 0;
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || line.front() == '#')
            continue;
        const std::size_t divider = line.rfind(" = ");
        ASSERT_NE(divider, std::string::npos) << line;
        EXPECT_EQ(digestText(parseMessage(line.substr(0, divider))),
                  parseDigest(line.substr(divider + 3)))
            << fileName << ": " << line;
        ++examples;
    }
    EXPECT_GT(examples, 0) << fileName << " holds no example";
}
