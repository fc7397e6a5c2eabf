// The README is held to its word: its program compiles and runs against the gateway, and the tour
// it shows is the tour that is.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <regex>

#include "GatewayProcess.h"
#include "Markdown.h"
#include "PrivateBus.h"

namespace {

// The code block that follows a heading.
std::string Block(const std::string& heading, const std::string& language) {
    return Markdown("README.md").Blocks(language, heading).at(0);
}

std::string WithoutTrailingBlanks(const std::string& text) {
    return std::regex_replace(text, std::regex(" +\n"), "\n");
}

TEST(Readme, ProgramCompilesAndRuns) {
    const PrivateBus bus;
    const GatewayProcess gateway(OSTEL_GATEWAY);
    const TempDir dir;
    std::ofstream(dir.File("blink.cpp")) << Block("A first program", "cpp");
    const std::string root = OSTEL_ROOT;
    const TFinished compiler =
        RunProgram({"sh", "-c",
                    std::string(OSTEL_COMPILE) + " -std=c++17 -Wall -Wextra -Werror " +
                        dir.File("blink.cpp") + " -I " + root + "/common/framework -I " + root +
                        "/ipc-lib -I " + root + "/application-lib -L " + OSTEL_LIB +
                        " -Wl,-rpath," + OSTEL_LIB + " -lostel_app -o " + dir.File("blink")});
    ASSERT_EQ(compiler.status, 0) << compiler.errors;
    const TFinished blink = RunProgram({dir.File("blink")});
    EXPECT_EQ(blink.status, 0);
    const TFinished led = RunProgram(
        {std::string(OSTEL_BIN) + "/ostelcli", "get", "Device.X_KAVEN_COM_General.LED.State"});
    EXPECT_EQ(blink.output + led.output, Block("A first program", ""));
}

TEST(Readme, ShowsTheTourAsItIs) {
    ChildProcess tour(
        {"env", std::string("OSTEL_BIN=") + OSTEL_BIN, std::string(OSTEL_ROOT) + "/scripts/demo"});
    // Others may be on the tour, before this one.
    ASSERT_EQ(tour.Wait(std::chrono::seconds(110)), 0) << tour.Errors();
    EXPECT_EQ("\n" + Block("The tour", ""), WithoutTrailingBlanks(tour.Output()));
}

}  // namespace
