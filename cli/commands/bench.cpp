// pelorik bench: the speed of the digests on this machine.

#include "cli/args/options.h"
#include "cli/commands.h"
#include "cli/hashing/algorithm.h"
#include "cli/output/json.h"
#include "cli/process/error.h"
#include "cli/process/exit_status.h"
#include "cli/process/signals.h"

#include <chrono>
#include <cstdio>

namespace cli {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kBlock = 65536; // as files are read
constexpr std::size_t kNameColumn = 10;

struct BenchOptions {
    std::vector<std::string> algorithms;
    unsigned seconds = 1;
    bool json = false;
};

BenchOptions parseBench(const Args& args) {
    OptionParser line("bench [-a ALG]... [--seconds N] [--json]",
                      "Measures how many bytes a second each digest takes on this machine: one "
                      "thread, and memory that is read already. Files are checked no faster than "
                      "they can be read, and pelorik check works on several at a time.");
    BenchOptions options;
    line.values("-a,--algorithm", "ALG", options.algorithms,
                std::string(kAlgorithmNames) + "; by default each of them");
    line.number("--seconds", "N", options.seconds, "measure each for N seconds, 1 by default");
    line.flag("--json", options.json,
              "one object a digest: algorithm, bytes, seconds, bytes_per_second");
    line.status(kDone, "the speeds were printed");
    line.status(kTrouble, "wrong usage, or standard output could not be written");
    line.status(kInterrupted, "interrupted");
    line.examples("  pelorik bench\n"
                  "  pelorik bench -a gost2012 --seconds 5\n"
                  "  pelorik bench --json | jq .bytes_per_second\n");
    const Args operands = line.parse(args);
    if (!operands.empty())
        throw UsageError("unexpected operand '" + operands.front() + "'");
    if (options.algorithms.empty())
        options.algorithms = {"md5", "gost94", "gost2012"};
    return options;
}

struct Speed {
    std::uint64_t bytes = 0;
    std::chrono::duration<double> time{0};

    double bytesPerSecond() const { return static_cast<double>(bytes) / time.count(); }
};

Speed measured(const Algorithm& algorithm, std::chrono::seconds least) {
    const std::unique_ptr<IHashFactory> factory(createHashFactory(algorithm.id));
    const std::unique_ptr<IHash_Calc> calculator(factory->createHashCalc());
    const std::vector<unsigned char> data(kBlock, 0xa5);
    calculator->Update(data.data(), data.size()); // the first round warms up
    Speed speed;
    const Clock::time_point start = Clock::now();
    do {
        stopIfInterrupted();
        calculator->Update(data.data(), data.size());
        speed.bytes += data.size();
        speed.time = Clock::now() - start;
    } while (speed.time < least);
    return speed;
}

std::string jsonOf(const std::string& algorithm, const Speed& speed) {
    JsonObject object;
    object["algorithm"] = algorithm;
    object["bytes"] = speed.bytes;
    object["seconds"] = speed.time.count();
    object["bytes_per_second"] = speed.bytesPerSecond();
    return jsonLine(object);
}

std::string textOf(std::string algorithm, const Speed& speed) {
    constexpr double kMebibyte = 1 << 20;
    char number[32];
    std::snprintf(number, sizeof number, "%8.1f", speed.bytesPerSecond() / kMebibyte);
    algorithm.resize(kNameColumn, ' ');
    return algorithm + number + " MiB/s";
}

} // namespace

int runBench(const Args& args, Console& console) {
    const BenchOptions options = parseBench(args);
    for (const std::string& name : options.algorithms)
        algorithmNamed(name); // an unknown one is refused before time is spent
    for (const std::string& name : options.algorithms) {
        const Speed speed = measured(algorithmNamed(name), std::chrono::seconds(options.seconds));
        console.print(options.json ? jsonOf(name, speed) : textOf(name, speed));
        console.flush();
    }
    return kDone;
}

} // namespace cli
