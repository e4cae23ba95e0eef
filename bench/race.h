// Registers the benchmarks of one race: who does the same work, under the name WHAT/SIZE/WHO.

#ifndef PELORIK_BENCH_RACE_H
#define PELORIK_BENCH_RACE_H

#include <benchmark/benchmark.h>
#include <cstddef>
#include <cstdint>
#include <string>

namespace bench {

// `work` is called once an iteration. `size` is in bytes.
template<class Work>
benchmark::internal::Benchmark* enter(const std::string& what, std::size_t size,
                                      const std::string& who, Work work) {
    const std::string name = what + "/" + std::to_string(size) + "/" + who;
    return benchmark::RegisterBenchmark(
        name.c_str(), [work, size](benchmark::State& state) mutable {
            for (auto _ : state)
                work();
            state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(size));
        });
}

} // namespace bench

#endif
