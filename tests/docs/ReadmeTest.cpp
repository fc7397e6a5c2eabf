// The README is held to its word: its program compiles and runs against the gateway, and the tour
// it shows is the tour that is.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>

#include "GatewayProcess.h"
#include "Markdown.h"
#include "PrivateBus.h"

namespace {

using testing::HasSubstr;

// The code block that follows a heading.
std::string Block(const std::string& heading, const std::string& language) {
    return Markdown("README.md").Blocks(language, heading).at(0);
}

std::string WithoutTrailingBlanks(const std::string& text) {
    return std::regex_replace(text, std::regex(" +\n"), "\n");
}

// In a folder that has what the program needs of a clone, with the compiler of this build.
TEST(Readme, ProgramCompilesAndRuns) {
    const PrivateBus bus;
    const GatewayProcess gateway(OSTEL_GATEWAY);
    const TempDir clone;
    for (const char* floor : {"common", "ipc-lib", "application-lib"}) {
        std::filesystem::create_directory_symlink(std::filesystem::path(OSTEL_ROOT) / floor,
                                                  clone.File(floor));
    }
    std::filesystem::create_directories(clone.File("build/native"));
    std::filesystem::create_directory_symlink(OSTEL_LIB, clone.File("build/native/lib"));
    std::ofstream(clone.File("g++"))
        << "#!/bin/sh\nexec " << OSTEL_COMPILE << " -Wall -Wextra -Werror \"$@\"\n";
    std::filesystem::permissions(clone.File("g++"), std::filesystem::perms(0755));
    std::ofstream(clone.File("blink.cpp")) << Block("A first program", "cpp");
    const TFinished shell = RunProgram({"sh", "-ec",
                                        "cd " + clone.Path().string() + "; PATH=$PWD:" + OSTEL_BIN +
                                            ":$PATH\n" + Block("A first program", "sh")});
    EXPECT_EQ(shell.status, 0) << shell.errors;
    EXPECT_EQ(shell.output, Block("A first program", ""));
}

TEST(Readme, NamesCommandsThatAreThere) {
    const TFinished help = RunProgram({OSTEL_ROOT "/dev", "help"});
    EXPECT_EQ(help.status, 0) << help.errors;
    int commands = 0;
    for (const char* file : {"README.md", "CONTRIBUTING.md", "docs/guide.md", "docs/operating.md",
                             "docs/performance.md", "docs/porting.md", "docs/reliability.md"}) {
        const std::string text = Markdown(file).Text();
        const std::regex command(R"re(\./dev [a-z]+)re");
        for (std::sregex_iterator next(text.begin(), text.end(), command), end; next != end;
             ++next, ++commands) {
            EXPECT_THAT(help.output, HasSubstr(next->str() + " ")) << file;
        }
    }
    EXPECT_GT(commands, 10);
}

TEST(Readme, ShowsTheTourAsItIs) {
    ChildProcess tour(
        {"env", std::string("OSTEL_BIN=") + OSTEL_BIN, std::string(OSTEL_ROOT) + "/scripts/demo"});
    // Others may be on the tour, before this one.
    ASSERT_EQ(tour.Wait(std::chrono::seconds(110)), 0) << tour.Errors();
    EXPECT_EQ("\n" + Block("The tour", ""), WithoutTrailingBlanks(tour.Output()));
}

}  // namespace
