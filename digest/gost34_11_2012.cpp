#include "digest/gost34_11_2012.h"

#include "digest/gost34_11_2012_roads.h"
#include "digest/gost34_11_2012_tables.h"
#include "digest/roads.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace {

constexpr unsigned long kBlockSize = 64;

using pelorikutil::gost34_11_2012::vector_0;
using pelorikutil::gost34_11_2012::vector_0_1;
using pelorikutil::gost34_11_2012::vector_1;

} // namespace

GOST34_11_2012::GOST34_11_2012(int size)
    : h_(size == 512 ? vector_0 : vector_1), n_(vector_0), sigma_(vector_0), lastBlock_{},
      size_(size), finished_(false) {}

void GOST34_11_2012::addPortion(const void* data, unsigned long size) {
    if (size == kBlockSize)
        addBlocks(static_cast<const unsigned char*>(data), 1);
    else
        finish(data, std::min(size, kBlockSize - 1));
}

void GOST34_11_2012::addBlocks(const unsigned char* data, std::size_t count) {
    const auto road = pelorikutil::roads::avx512Gost()
                          ? pelorikutil::gost34_11_2012::addBlocks_avx512
                          : pelorikutil::gost34_11_2012::addBlocks_portable;
    road(h_, n_, sigma_, data, count);
}

void GOST34_11_2012::finish(const void* data, unsigned long size) {
    if (size > 0)
        std::memcpy(lastBlock_, data, size);
    std::memcpy(lastBlock_ + size, &vector_0_1, sizeof lastBlock_ - size);

    const auto road = pelorikutil::roads::avx512Gost()
                          ? pelorikutil::gost34_11_2012::finish_avx512
                          : pelorikutil::gost34_11_2012::finish_portable;
    road(h_, n_, sigma_, lastBlock_, 8 * size);
    finished_ = true;
}

const unsigned char* GOST34_11_2012::getHash() {
    if (!finished_)
        addPortion(nullptr, 0);
    const auto* bytes = reinterpret_cast<const unsigned char*>(h_.word);
    return size_ == 512 ? bytes : bytes + 32;
}

void gost_34_11_2012(const void* data, unsigned long size, void* out, int bits) {
    if (size > kBlockSize)
        return;
    GOST34_11_2012 core(bits);
    if (size > 0)
        core.addPortion(data, size);

    const unsigned char* const digest = core.getHash();
    const int available = bits == 512 ? 64 : 32;
    const int wanted = std::max(0, std::min(bits / 8, available));
    std::memcpy(out, digest, static_cast<std::size_t>(wanted));
}
