// Documents in static initialisers of a program that links the archive.

#include "tests/config/early_failures.h"

#include <gtest/gtest.h>

namespace {

TEST(XMLEarly, LoadAndSaveReportTheirFailuresInAStaticInitialiser) {
    EXPECT_EQ(early::reports, "WARNING: Can`t open cfg file [/nonexistent/file] for reading\n"
                              "ERROR: Can`t open cfg file [/nonexistent/file] for writing\n"
                              "PARSE ERROR: [/dev/null] : Unexpected end of stream\n");
}

} // namespace
