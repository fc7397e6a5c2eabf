// What another program finds in the built library.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <sstream>

#include "ChildProcess.h"

namespace {

TEST(Exports, AreTheLibrarysOwnNames) {
    const TFinished nm = RunProgram({"nm", "-DC", "--defined-only", OSTEL_APP_LIBRARY});
    ASSERT_EQ(nm.status, 0);
    const std::regex own(
        "[0-9a-f]+ [A-Za-z] (vtable for |typeinfo for |typeinfo name for |non-virtual thunk to |"
        "void\\* |[A-Za-z:_ ]+\\*? |std::__cxx11::basic_string<.*> > )?"
        "(TOstel|IOstel|OstelContainer::|OstelFileUtils::|OstelGenericUtils::|OstelProcUtils::|"
        "ostelAppLib|"
        "patternMatch|"
        "getWildcardIndices|"
        "getOstelIpcInstance|newOstelIpcInstance).*");
    std::istringstream lines(nm.output);
    std::string line;
    int count = 0;
    while (std::getline(lines, line)) {
        EXPECT_TRUE(std::regex_match(line, own)) << line;
        ++count;
    }
    EXPECT_GT(count, 200);
}

TEST(Exports, HaveTheSonameThatApplicationsAreLinkedWith) {
    const TFinished readelf = RunProgram({"readelf", "-d", OSTEL_APP_LIBRARY});
    EXPECT_THAT(readelf.output, testing::HasSubstr("Library soname: [libostel_app.so.0]"));
    EXPECT_THAT(readelf.output, testing::HasSubstr("Shared library: [libzt_logging.so.1]"));
}

}  // namespace
