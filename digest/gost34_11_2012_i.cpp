#include "digest/gost34_11_2012_i.h"

#include "digest/hex_text.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr unsigned long kBlockSize = 64;

} // namespace

Hash_Calc_GOST_34_11_2012::Hash_Calc_GOST_34_11_2012() : core_(256), buffer_{}, fill_(0) {}

void Hash_Calc_GOST_34_11_2012::Update(const void* data, unsigned long size) {
    if (data == nullptr)
        return;
    const auto* bytes = static_cast<const unsigned char*>(data);
    if (fill_ > 0) {
        const unsigned long part = std::min(kBlockSize - fill_, size);
        std::memcpy(buffer_ + fill_, bytes, part);
        bytes += part;
        size -= part;
        fill_ += part;
        if (fill_ < kBlockSize)
            return;
        core_.addPortion(buffer_, kBlockSize);
    }
    const unsigned long blocks = size / kBlockSize;
    if (blocks > 0)
        core_.addBlocks(bytes, blocks);
    fill_ = size % kBlockSize;
    std::memcpy(buffer_, bytes + blocks * kBlockSize, fill_);
}

void Hash_Calc_GOST_34_11_2012::FinalizeHash(Hash_GOST_34_11_2012& out) {
    if (fill_ > 0) {
        core_.addPortion(buffer_, fill_);
        fill_ = 0;
    }
    std::memcpy(out.bytes_, core_.getHash(), sizeof out.bytes_);
}

Hash_GOST_34_11_2012::Hash_GOST_34_11_2012(const void* data, unsigned long size) {
    Hash_Calc_GOST_34_11_2012 calc;
    calc.Update(data, size);
    calc.FinalizeHash(*this);
}

Hash_GOST_34_11_2012::Hash_GOST_34_11_2012(Hash_Calc_GOST_34_11_2012& calc, bool consume) {
    Hash_Calc_GOST_34_11_2012 copy = calc;
    (consume ? calc : copy).FinalizeHash(*this);
}

char* Hash_GOST_34_11_2012::ToCSTR(char* out, bool upperCase) const {
    return pelorikutil::hex_text::write(bytes_, sizeof bytes_, out, upperCase);
}

bool Hash_GOST_34_11_2012::Check(const char* text, bool upperCase) const {
    return pelorikutil::hex_text::matches(bytes_, sizeof bytes_, text, upperCase);
}
