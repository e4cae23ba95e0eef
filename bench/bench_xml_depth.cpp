// The time of documents against their depth and their size: what a tree can do takes time that
// grows as they do, and no faster. The last two lines of each benchmark say how the time grew and
// how far the measurements lie from that.

#include "config/vpnxml.h"

#include <benchmark/benchmark.h>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

namespace {

std::size_t count(const benchmark::State& state) {
    return static_cast<std::size_t>(state.range(0));
}

// As many elements, each in the one before.
std::string nested(std::size_t levels) {
    std::string text;
    for (std::size_t level = 0; level < levels; ++level)
        text += "<element>";
    for (std::size_t level = 0; level < levels; ++level)
        text += "</element>";
    return text;
}

// As many elements, all in one.
std::string row(std::size_t elements) {
    std::string text = "<all>";
    for (std::size_t element = 0; element < elements; ++element)
        text += "<element></element>";
    return text + "</all>";
}

void read(XMLDocument& document, const std::string& text) {
    std::istringstream in(text);
    document.Read(in);
}

// Reads a document, writes it with its digest, and destroys it.
void readSealDestroy(benchmark::State& state, const std::string& text) {
    for (auto _ : state) {
        XMLDocument document;
        read(document, text);
        document.UseHash(true);
        std::ostringstream out;
        document.Write(out);
        benchmark::DoNotOptimize(out);
    }
    state.SetComplexityN(state.range(0));
}

void depth(benchmark::State& state) {
    readSealDestroy(state, nested(count(state)));
}

void size(benchmark::State& state) {
    readSealDestroy(state, row(count(state)));
}

// Sets the indent levels of a deep document.
void indents(benchmark::State& state) {
    XMLDocument document;
    read(document, nested(count(state)));
    for (auto _ : state)
        document.FormatLineIndents(1);
    state.SetComplexityN(state.range(0));
}

constexpr std::int64_t kFewest = 1 << 12;
constexpr std::int64_t kMost = 1 << 20;

BENCHMARK(depth)->RangeMultiplier(4)->Range(kFewest, kMost)->Complexity(benchmark::oN);
BENCHMARK(size)->RangeMultiplier(4)->Range(kFewest, kMost)->Complexity(benchmark::oN);
BENCHMARK(indents)->RangeMultiplier(4)->Range(kFewest, kMost)->Complexity(benchmark::oN);

} // namespace
