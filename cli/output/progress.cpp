#include "cli/output/progress.h"

#include "cli/files/descriptor.h"
#include "cli/output/terminal.h"

#include <array>
#include <cmath>
#include <cstdio>

namespace cli {

namespace {

constexpr std::chrono::milliseconds kBetweenUpdates(100);
constexpr double kLongestTime = 1e9; // seconds: 30 years

// "1.5 GiB"
std::string sizeText(double bytes) {
    constexpr std::array<const char*, 6> kUnits = {"B", "KiB", "MiB", "GiB", "TiB", "PiB"};
    std::size_t unit = 0;
    while (bytes >= 1024 && unit + 1 < kUnits.size()) {
        bytes /= 1024;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", bytes, kUnits[unit]);
    return text;
}

// "1:02:03" or "2:03"
std::string timeText(double seconds) {
    const auto whole = static_cast<unsigned long>(std::ceil(seconds));
    char text[48];
    if (whole >= 3600)
        std::snprintf(text, sizeof text, "%lu:%02lu:%02lu", whole / 3600, whole / 60 % 60,
                      whole % 60);
    else
        std::snprintf(text, sizeof text, "%lu:%02lu", whole / 60, whole % 60);
    return text;
}

std::string ofTotal(const std::string& total, bool known) {
    return known ? " of " + total : std::string();
}

} // namespace

std::string progressText(const Amount& done, const Amount& total,
                         std::chrono::duration<double> elapsed) {
    const auto bytes = static_cast<double>(done.bytes);
    const auto allBytes = static_cast<double>(total.bytes);
    const double rate = elapsed.count() > 0 ? bytes / elapsed.count() : 0;
    std::string text = std::to_string(done.files) +
                       ofTotal(std::to_string(total.files), total.files > 0) + " files, " +
                       sizeText(bytes) + ofTotal(sizeText(allBytes), total.bytes > 0) + ", " +
                       sizeText(rate) + "/s";
    if (rate > 0 && allBytes > bytes && (allBytes - bytes) / rate < kLongestTime)
        text += ", " + timeText((allBytes - bytes) / rate) + " left";
    return text;
}

Progress::Progress(int descriptor) : descriptor_(descriptor), shown_(isTerminal(descriptor)) {}

Progress::~Progress() {
    erase();
}

void Progress::hide() {
    erase();
    shown_ = false;
}

void Progress::addFile() {
    ++done_.files;
    update();
}

void Progress::addBytes(std::uint64_t count) {
    done_.bytes += count;
    update();
}

void Progress::reached(const Amount& done) {
    done_ = done;
    update();
}

void Progress::update() {
    if (!shown_)
        return;
    const Clock::time_point now = Clock::now();
    if (now - drawn_ < kBetweenUpdates)
        return;
    drawn_ = now;
    // The last column stays free, where some terminals go on to the next line.
    std::string line = progressText(done_, total_, now - start_);
    line.resize(std::min(line.size(), terminalWidth(descriptor_) - 1));
    const std::size_t width = line.size();
    if (width_ > width)
        line.append(width_ - width, ' ');
    width_ = width;
    writeAll(descriptor_, "\r" + line);
}

void Progress::erase() {
    if (width_ == 0)
        return;
    writeAll(descriptor_, "\r" + std::string(width_, ' ') + "\r");
    width_ = 0;
}

} // namespace cli
