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

// A build with the logging library of a device, which lies where no linker looks by itself.
class Porting : public testing::Test {
protected:
    Porting() {
        std::filesystem::create_directory(m_Dir.File("device"));
        // Without the plain name that only development packages have.
        std::filesystem::copy_file(OSTEL_BUILD "/lib/libzt_logging.so.1", LoggingLibrary());
        const TFinished configured = Shell("$CMAKE -S " OSTEL_ROOT
                                           " -B $D/build -D CMAKE_LIBRARY_PATH=$D/device"
                                           " -D CMAKE_INSTALL_LIBDIR=lib"
                                           " -D OSTEL_SYSTEM_ZT_LOGGING=ON"
                                           " -D OSTEL_BUILD_TOOLS=OFF -D OSTEL_BUILD_TESTS=OFF");
        EXPECT_EQ(configured.status, 0) << configured.output << configured.errors;
    }

    std::string LoggingLibrary() const { return m_Dir.File("device/libzt_logging.so.1"); }

    // Runs a shell command with the directory as $D, the installed prefix as $P, and $CMAKE to
    // configure with the compilers of this build, which are $CC and $CXX.
    TFinished Shell(const std::string& command) const {
        const std::string tools =
            "export CC=" OSTEL_CC " CXX=" OSTEL_CXX " CMAKE='" OSTEL_CMAKE " -G Ninja';";
        return RunProgram({"env", "D=" + m_Dir.Path().string(), "P=" + m_Dir.File("prefix"), "sh",
                           "-ec", tools + command},
                          "", std::chrono::seconds(100));
    }

    // The library is linked as this build says, from what has been compiled for the tests already.
    void Install() const {
        const TFinished installed =
            Shell("cd $D/build; cp -rs " OSTEL_BUILD
                  "/CMakeFiles/ostel_app.dir CMakeFiles;"
                  "ninja -t commands -s lib/libostel_app.so.0 | sh -e;"
                  "ninja -t commands -s lib/libostel_app.so | sh -e;" OSTEL_CMAKE
                  " --install . --prefix $P");
        ASSERT_EQ(installed.status, 0) << installed.output << installed.errors;
    }

    const TempDir m_Dir;
};

TEST_F(Porting, TheLibraryIsLinkedWithThePlatformsLoggingLibrary) {
    const TFinished commands = Shell("ninja -C $D/build -t commands ostel_app");
    EXPECT_EQ(commands.status, 0) << commands.output << commands.errors;
    EXPECT_THAT(commands.output,
                AllOf(HasSubstr(LoggingLibrary()), Not(HasSubstr("zt_logging.cpp"))));
}

TEST_F(Porting, ThePlatformsLoggingLibraryServesApplicationsThroughCMake) {
    Install();
    EXPECT_FALSE(std::filesystem::exists(m_Dir.File("prefix/lib/libzt_logging.so.1")));
    const std::string configure = "$CMAKE -S " OSTEL_ROOT
                                  "/tests/install/consumer -B $D/consumer -D CMAKE_PREFIX_PATH=$P"
                                  " -D EXAMPLES=" OSTEL_ROOT "/examples";
    const TFinished missing = Shell(configure);
    EXPECT_NE(missing.status, 0);
    EXPECT_THAT(missing.errors, HasSubstr("CMAKE_LIBRARY_PATH"));

    const TFinished built =
        Shell(configure + " -D CMAKE_LIBRARY_PATH=$D/device;" OSTEL_CMAKE " --build $D/consumer");
    ASSERT_EQ(built.status, 0) << built.output << built.errors;
    const TFinished client = Shell("ZT_LOGGING_DESTINATION=2 $D/consumer/bus_types");
    EXPECT_EQ(client.status, 0) << client.errors;
    EXPECT_THAT(client.output, HasSubstr("an application"));
}

TEST_F(Porting, ThePlatformsLoggingLibraryServesApplicationsThroughPkgConfig) {
    Install();
    const TFinished built = Shell(
        "export PKG_CONFIG_PATH=$P/lib/pkgconfig; flags=$(pkg-config --cflags --libs ostel-app);"
        "$CC " OSTEL_ROOT
        "/examples/flat_client.c $flags -Wl,-rpath-link,$D/device -o $D/client;"
        "$CXX -std=c++17 " OSTEL_ROOT
        "/tests/install/consumer/bus_types.cpp $flags -Wl,-rpath-link,$D/device"
        " $D/device/libzt_logging.so.1 -o $D/logs;"
        "export LD_LIBRARY_PATH=$P/lib:$D/device; ldd $D/client; $D/logs");
    EXPECT_EQ(built.status, 0) << built.output << built.errors;
    EXPECT_THAT(built.output, AllOf(HasSubstr(LoggingLibrary()), Not(HasSubstr("not found"))));
}

}  // namespace
