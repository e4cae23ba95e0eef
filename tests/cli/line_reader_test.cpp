// The lines of a file that changes while it is read.

#include "cli/files/line_reader.h"
#include "cli/process/error.h"
#include "tests/support/scratch.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>

namespace {

using cli::LineReader;

constexpr std::size_t kLines = 20000; // more than the reader takes at a time

class LineReaderOfAFile : public testing::Test {
protected:
    LineReaderOfAFile() {
        std::ofstream file(path_);
        for (std::size_t i = 0; i < kLines; ++i)
            file << "a line\n";
    }

    static std::size_t countLines(LineReader& reader) {
        std::size_t count = 0;
        while (reader.next())
            ++count;
        return count;
    }

    static std::string errorOfRest(LineReader& reader) {
        try {
            countLines(reader);
        } catch (const cli::Error& error) {
            return error.what();
        }
        return "";
    }

    LineReader open() const { return {cli::openList(path_), path_, '\n', 100}; }

    const support::ScratchDirectory scratch_;
    const std::string path_ = scratch_.path("list");
};

TEST_F(LineReaderOfAFile, ReadsAllLinesOfAFileThatDoesNotChange) {
    LineReader reader = open();
    EXPECT_EQ(countLines(reader), kLines);
}

TEST_F(LineReaderOfAFile, RefusesAFileThatIsTruncatedBetweenTwoReads) {
    LineReader reader = open();
    ASSERT_TRUE(reader.next());
    std::filesystem::resize_file(path_, 65536); // what has been read already
    EXPECT_EQ(errorOfRest(reader), path_ + ": changed while it was read");
}

TEST_F(LineReaderOfAFile, RefusesAFileThatGrowsWhileItIsRead) {
    LineReader reader = open();
    ASSERT_TRUE(reader.next());
    std::ofstream(path_, std::ios::app) << "one more\n";
    EXPECT_EQ(errorOfRest(reader), path_ + ": changed while it was read");
}

} // namespace
