// A build for a device, as far as it differs from one for a PC.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>

#include "ChildProcess.h"
#include "TempDir.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

// What it takes to make the library, when these options are set.
TFinished BuildCommands(const TempDir& dir, const std::vector<std::string>& options) {
    std::vector<std::string> configure = {OSTEL_CMAKE, "-G", "Ninja",          "-S",
                                          OSTEL_ROOT,  "-B", dir.File("build")};
    for (const std::string& option : options) {
        configure.insert(configure.end(), {"-D", option});
    }
    TFinished configured = RunProgram(configure, "", std::chrono::seconds(100));
    return configured.status != 0
               ? configured
               : RunProgram({"ninja", "-C", dir.File("build"), "-t", "commands", "ostel_app"});
}

TEST(Porting, TheLibraryIsLinkedWithThePlatformsLoggingLibrary) {
    const TempDir dir;
    std::filesystem::create_directory(dir.File("device"));
    // Without the plain name that only development packages have.
    const std::string library = dir.File("device/libzt_logging.so.1");
    std::filesystem::copy_file(OSTEL_BUILD "/lib/libzt_logging.so.1", library);
    const TFinished commands =
        BuildCommands(dir, {"OSTEL_SYSTEM_ZT_LOGGING=ON", "OSTEL_BUILD_TOOLS=OFF",
                            "OSTEL_BUILD_TESTS=OFF", "CMAKE_LIBRARY_PATH=" + dir.File("device")});
    EXPECT_EQ(commands.status, 0) << commands.output << commands.errors;
    EXPECT_THAT(commands.output, AllOf(HasSubstr(library), Not(HasSubstr("zt_logging.cpp"))));
}

}  // namespace
