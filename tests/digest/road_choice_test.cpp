// Which road the digests take. This program's own pelorikutil::roads::, and its own roads for newer
// processors, which only tell that they were taken, stand in the places of the library's: so it
// knows of every choice, and runs on every processor.

#include "digest/_md5.h"
#include "digest/_md5_roads.h"
#include "digest/gost3411.h"
#include "digest/gost3411_roads.h"
#include "digest/gost34_11_2012.h"
#include "digest/gost34_11_2012_roads.h"
#include "digest/roads.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace {

bool gostIsOpen = false;
bool md5IsOpen = false;
std::vector<std::string> taken;

} // namespace

bool pelorikutil::roads::avx512Gost() {
    return gostIsOpen;
}

bool pelorikutil::roads::avx512Md5() {
    return md5IsOpen;
}

void pelorikutil::md5::compress_avx512(uint32_t*, const unsigned char*, size_t) {
    taken.emplace_back("md5");
}

void pelorikutil::gost3411::step_avx512(unsigned char*, const unsigned char*, size_t) {
    taken.emplace_back("gost94");
}

void pelorikutil::gost34_11_2012::addBlocks_avx512(UInt512&, UInt512&, UInt512&,
                                                   const unsigned char*, size_t) {
    taken.emplace_back("gost2012 blocks");
}

void pelorikutil::gost34_11_2012::finish_avx512(UInt512&, UInt512&, UInt512&, const unsigned char*,
                                                unsigned long) {
    taken.emplace_back("gost2012 end");
}

namespace {

using Roads = std::vector<std::string>;

// The newer roads that each digest takes of 64 bytes.
Roads newerRoads(bool gostOpen, bool md5Open) {
    gostIsOpen = gostOpen;
    md5IsOpen = md5Open;
    const std::string block(64, 'x');
    HashMD5_Calc md5;
    md5.Reset();
    md5.Update(block.data(), block.size());
    HashGOST3411_Calc gost94;
    gost94.Reset();
    gost94.Update(block.data(), block.size());
    GOST34_11_2012 gost2012(256);
    gost2012.addPortion(block.data(), block.size());
    gost2012.getHash();
    return std::exchange(taken, {});
}

TEST(RoadChoice, TakesTheNewerOnesWhereTheyAreOpenAndNoOthers) {
    EXPECT_EQ(newerRoads(false, false), Roads{});
    EXPECT_EQ(newerRoads(true, false), (Roads{"gost94", "gost2012 blocks", "gost2012 end"}));
    EXPECT_EQ(newerRoads(false, true), Roads{"md5"});
}

} // namespace
