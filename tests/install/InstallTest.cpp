// What an integrator finds after `cmake --install`, and what an application developer does with it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>

#include "GatewayProcess.h"
#include "InstalledPrefix.h"
#include "PrivateBus.h"

namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const std::string LIB = OSTEL_LIBDIR;
const std::vector<std::string> COMPILERS = {"env", "CC=" OSTEL_CC, "CXX=" OSTEL_CXX,
                                            "LINK=" OSTEL_LINK};

std::set<std::string> FilesBelow(const std::filesystem::path& directory) {
    std::set<std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
        if (!entry.is_directory()) {
            files.insert(entry.path().lexically_relative(directory));
        }
    }
    return files;
}

std::set<std::string> PublicHeaders() {
    std::set<std::string> headers;
    for (const char* folder : {"application-lib", "common", "ipc-lib", "platform"}) {
        const auto root = std::filesystem::path(OSTEL_ROOT) / folder;
        for (const std::string& file : FilesBelow(root)) {
            std::string opening;
            std::getline(std::ifstream(root / file), opening);
            if (file.substr(file.size() - 2) == ".h" &&
                opening.find("ot installed") == std::string::npos) {
                headers.insert("include/ostel/" + std::filesystem::path(file).filename().string());
            }
        }
    }
    return headers;
}

class Install : public testing::Test {
protected:
    // Runs a shell command with the prefix as $P and the compilers of this build as $CC and $CXX.
    TFinished Shell(const std::string& command) const {
        std::vector<std::string> arguments = COMPILERS;
        arguments.insert(arguments.end(), {"P=" + m_Prefix.Path().string(), "sh", "-ec", command});
        return RunProgram(arguments, "", std::chrono::seconds(100));
    }

    InstalledPrefix m_Prefix;
};

TEST_F(Install, PutsEveryFileInItsPlace) {
    std::set<std::string> expected = PublicHeaders();
    EXPECT_GT(expected.size(), 20U);
    const std::string cmake = LIB + "/cmake/OstelApp/";
    expected.insert({
        "bin/ostel-gateway",
        "bin/ostelcli",
        LIB + "/libostel_app.so",
        LIB + "/libostel_app.so.0",
        LIB + "/libzt_logging.so",
        LIB + "/libzt_logging.so.1",
        LIB + "/pkgconfig/ostel-app.pc",
        cmake + "OstelAppConfig.cmake",
        cmake + "OstelAppConfigVersion.cmake",
        cmake + "OstelAppTargets.cmake",
        cmake + "OstelAppTargets-" OSTEL_BUILD_TYPE ".cmake",
        "lib/systemd/system/ostel-gateway.service",
        "lib/sysusers.d/ostel.conf",
        "share/bash-completion/completions/ostel-gateway",
        "share/bash-completion/completions/ostelcli",
        "share/dbus-1/system.d/com.Kaven.Ostel.conf",
        "share/man/man1/ostel-gateway.1",
        "share/man/man1/ostelcli.1",
        "share/ostel/models/home-gateway.json",
        "share/zsh/site-functions/_ostel",
    });
    EXPECT_EQ(FilesBelow(m_Prefix.Path()), expected);
    EXPECT_EQ(std::filesystem::read_symlink(m_Prefix.File(LIB + "/libostel_app.so")),
              "libostel_app.so.0");
}

TEST_F(Install, ServesCApplications) {
    const PrivateBus bus;
    const GatewayProcess gateway(m_Prefix.File("bin/ostel-gateway"));
    const TFinished client =
        Shell("$CC -std=c99 -Wall -Wextra -Wpedantic -Werror $LINK -I $P/include/ostel " OSTEL_ROOT
              "/examples/flat_client.c -L $P/" OSTEL_LIBDIR
              " -lostel_app -Wl,-rpath,$P/" OSTEL_LIBDIR " -o $P/client; $P/client");
    EXPECT_EQ(client.status, 0) << client.errors;
    EXPECT_EQ(client.output,
              "Device.NAT.PortMapping. has 1 2 3\nDevice.NAT.PortMapping. has 1 2\n");
}

TEST_F(Install, ServesApplicationsThroughPkgConfig) {
    const PrivateBus bus;
    const GatewayProcess gateway(m_Prefix.File("bin/ostel-gateway"));
    const TFinished client = Shell("export PKG_CONFIG_PATH=$P/" OSTEL_LIBDIR
                                   "/pkgconfig; pkg-config --modversion ostel-app;"
                                   "flags=$(pkg-config --cflags --libs ostel-app);"
                                   "$CXX -std=c++17 -Wall -Wextra -Werror $LINK " OSTEL_ROOT
                                   "/examples/read_and_set.cpp $flags -o $P/client;"
                                   "LD_LIBRARY_PATH=$P/" OSTEL_LIBDIR " $P/client");
    EXPECT_EQ(client.status, 0) << client.errors;
    EXPECT_THAT(client.output, AllOf(StartsWith(OSTEL_VERSION "\nDevice.Time.Enable = true\n"),
                                     EndsWith("now Device.Time.NTPServer3 = time.example.net\n")));
}

TEST_F(Install, ServesApplicationsThroughCMake) {
    const PrivateBus bus;
    const GatewayProcess gateway(m_Prefix.File("bin/ostel-gateway"));
    const TFinished build =
        Shell(OSTEL_CMAKE
              " -G Ninja -S " OSTEL_ROOT
              "/tests/install/consumer -B $P/consumer -D CMAKE_PREFIX_PATH=$P " OSTEL_CMAKE_OPTIONS
              " -D EXAMPLES=" OSTEL_ROOT "/examples && " OSTEL_CMAKE " --build $P/consumer");
    ASSERT_EQ(build.status, 0) << build.output << build.errors;
    EXPECT_EQ(Shell("$P/consumer/flat_client").status, 0);
    EXPECT_EQ(Shell("$P/consumer/bus_types").status, 0);
    const ChildProcess watch({m_Prefix.File("consumer/watch_hosts")});
    EXPECT_TRUE(watch.WaitForOutput("Device.Hosts.Host.10.HostName = tablet\n")) << watch.Errors();
}

TEST_F(Install, NamesNoPathOfTheBuild) {
    const TFinished grep = Shell("cd $P; grep -rlI " OSTEL_ROOT " . || true");
    EXPECT_EQ(grep.output, "");
}

TEST_F(Install, HasManPagesThatAreSoundAndTellWhatTheHelpTells) {
    // Without a date a page is the same whenever it is made.
    const TFinished lint = Shell(
        "mandoc -T lint -W warning $P/share/man/man1/* | "
        "grep -v 'WARNING: missing date' || true");
    EXPECT_EQ(lint.output, "");
    const std::string page =
        Shell("mandoc -T ascii $P/share/man/man1/ostelcli.1 | sed 's/.\\x08//g'").output;
    const std::string help = Shell("$P/bin/ostelcli --help").output;
    std::istringstream lines(help.substr(help.find("Subcommands:\n") + 13));
    int verbs = 0;
    for (std::string line; std::getline(lines, line) && !line.empty(); ++verbs) {
        std::istringstream words(line);
        std::string verb;
        words >> verb;
        EXPECT_THAT(page, HasSubstr("ostelcli " + verb + " [OPTIONS]"));
    }
    EXPECT_GT(verbs, 10);
    EXPECT_THAT(page, AllOf(HasSubstr("ostelcli remote get [OPTIONS] NAME..."),
                            HasSubstr("64 for a wrong command line"), HasSubstr("--timeout"),
                            HasSubstr("libostel_app " OSTEL_VERSION)));
    const std::string gateway =
        Shell("mandoc -T ascii $P/share/man/man1/ostel-gateway.1 | sed 's/.\\x08//g'").output;
    EXPECT_THAT(gateway,
                AllOf(HasSubstr("--remote-address IPV4"), HasSubstr("[PREFIX/share/ostel/models/"),
                      HasSubstr("such as /usr."), HasSubstr("[~/.local/state/")));
}

class Completion : public Install {
protected:
    // What bash offers for the last word.
    std::string Bash(const std::string& words) const {
        return Shell(
                   "PATH=$P/bin:$PATH bash -c '. $P/share/bash-completion/completions/ostelcli;"
                   "COMP_WORDS=(" +
                   words +
                   "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _ostel; echo ${COMPREPLY[*]}'")
            .output;
    }
    std::string Zsh(const std::string& line) const {
        return Shell("PATH=$P/bin:$PATH zsh -f " OSTEL_ROOT
                     "/tests/install/complete.zsh $P/share/zsh/site-functions \"" +
                     line + "\"")
            .output;
    }

    const PrivateBus m_Bus;
};

TEST_F(Completion, OfBashKnowsVerbsOptionsAndNames) {
    EXPECT_EQ(Bash("ostelcli remote 192.0.2.1 w"), "watch\n");
    EXPECT_EQ(Bash("ostelcli set --n"), "--no-commit\n");
    EXPECT_EQ(Bash("ostelcli get \"\""), "Device.\n");
    EXPECT_EQ(Bash("ostelcli load \"\""), "\n");
    EXPECT_EQ(Bash("ostel-gateway --st"), "--state\n");
    const GatewayProcess gateway(m_Prefix.File("bin/ostel-gateway"));
    EXPECT_EQ(Bash("ostelcli get Device.Ti"), "Device.Time.\n");
    EXPECT_EQ(Bash("ostelcli get Device.Time.E"), "Device.Time.Enable\n");
}

TEST_F(Completion, OfZshKnowsVerbsOptionsAndNames) {
    EXPECT_EQ(Zsh("ostelcli remote 192.0.2.1 w"), "watch\n");
    EXPECT_THAT(Zsh("ostelcli set --n"), HasSubstr("--no-commit\n"));
    EXPECT_THAT(Zsh("ostelcli --"), Not(HasSubstr("--no-commit\n")));
    EXPECT_THAT(Zsh("ostel-gateway --st"), HasSubstr("--state\n"));
    const GatewayProcess gateway(m_Prefix.File("bin/ostel-gateway"));
    EXPECT_EQ(Zsh("ostelcli get Device.Ti"), "Device.Time.\n");
}

TEST_F(Completion, RunsNothingThatWasTyped) {
    const GatewayProcess gateway(m_Prefix.File("bin/ostel-gateway"));
    const std::string name = "Device.X_KAVEN_COM_General.LED.State";
    EXPECT_EQ(Bash("ostelcli set -- " + name + "=BLINK \"\""), "Device.\n");
    EXPECT_THAT(Zsh("ostelcli set -- " + name + "=BLINK "), HasSubstr("Device.\n"));
    EXPECT_EQ(Shell("$P/bin/ostelcli get " + name).output, name + "  ON\n");
}

}  // namespace
