// The line that shows how far a long command has come.

#ifndef PELORIK_CLI_OUTPUT_PROGRESS_H
#define PELORIK_CLI_OUTPUT_PROGRESS_H

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace cli {

// Files and bytes.
struct Amount {
    std::uint64_t files = 0;
    std::uint64_t bytes = 0;

    // Stops at the largest number: several files may claim to be as large as files can be.
    void addBytes(std::uint64_t count) { bytes += std::min(count, UINT64_MAX - bytes); }
};

// What the line says about `done` of `total` after `elapsed`. A total of 0 is one that is not
// known.
std::string progressText(const Amount& done, const Amount& total,
                         std::chrono::duration<double> elapsed);

// Drawn over and over on the last line of a terminal, at most ten times a second.
class Progress {
public:
    // Draws on `descriptor`, and only when that is a terminal.
    explicit Progress(int descriptor);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // True when the line is drawn: totals need to be found out only then.
    bool shown() const { return shown_; }
    void hide();

    void expect(const Amount& total) { total_ = total; }
    void addFile();
    void addBytes(std::uint64_t count);
    void reached(const Amount& done);

    // Takes the line off the terminal, before something else is written there and at the end.
    void erase();

private:
    using Clock = std::chrono::steady_clock;
    void update();

    int descriptor_;
    bool shown_;
    Amount total_;
    Amount done_;
    Clock::time_point start_ = Clock::now();
    Clock::time_point drawn_ = start_;
    std::size_t width_ = 0; // columns on the terminal now
};

} // namespace cli

#endif
