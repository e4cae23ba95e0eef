// The main function of every benchmark program.
//
// A benchmark is named WHAT/WHO. All of them run in turns, several times, and the program ends on
// the ratios of the median speeds: how many times as fast "pelorik" is as each other WHO of the
// same WHAT.

#include <benchmark/benchmark.h>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

class RatioReporter : public benchmark::ConsoleReporter {
public:
    RatioReporter() : ConsoleReporter(OO_None) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.aggregate_name != "median")
                continue;
            ConsoleReporter::ReportRuns({run});
            remember(run.run_name.function_name, run.GetAdjustedCPUTime());
        }
    }

    void Finalize() override {
        std::puts("\nTimes as fast as its peer:");
        for (const auto& [what, times] : medians_) {
            const auto own = times.find("pelorik");
            for (const auto& [who, time] : times) {
                if (own != times.end() && who != own->first)
                    std::printf("%-32s %6.2f  (%s)\n", what.c_str(), time / own->second,
                                who.c_str());
            }
        }
    }

private:
    void remember(const std::string& name, double time) {
        const std::size_t divider = name.rfind('/');
        medians_[name.substr(0, divider)][name.substr(divider + 1)] = time;
    }

    std::map<std::string, std::map<std::string, double>> medians_;
};

} // namespace

int main(int argc, char** argv) {
    // Before the user's own options, which then win.
    std::vector<char*> arguments = {argv[0]};
    std::string defaults[] = {"--benchmark_repetitions=7", "--benchmark_min_time=0.05",
                              "--benchmark_enable_random_interleaving=true",
                              "--benchmark_report_aggregates_only=true"};
    for (std::string& option : defaults)
        arguments.push_back(option.data());
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data()))
        return 2;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
