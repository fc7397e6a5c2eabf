#include "Progress.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ChildProcess.h"
#include "PrivateBus.h"
#include "ScriptedDispatcher.h"
#include "WaitUntil.h"

namespace {

using TManner = ScriptedDispatcher::TManner;

TEST(Progress, ShowsHowMuchIsDone) {
    EXPECT_EQ(TProgress::Bar("reading", 0, 10, 0), "reading [" + std::string(30, ' ') + "] 0 %");
    EXPECT_EQ(TProgress::Bar("reading", 5, 10, 0),
              "reading [" + std::string(15, '=') + std::string(15, ' ') + "] 50 %");
    EXPECT_EQ(TProgress::Bar("reading", 12, 10, 0), "reading [" + std::string(30, '=') + "] 100 %");
}

TEST(Progress, WithoutATotalShowsThatSomethingGoesOn) {
    EXPECT_NE(TProgress::Bar("reading", 0, 0, 1), TProgress::Bar("reading", 0, 0, 2));
    for (std::size_t drawn = 0; drawn < 100; ++drawn) {
        EXPECT_EQ(TProgress::Bar("", 0, 0, drawn).size(), 33U);
    }
}

class ProgressOfTheTool : public testing::Test {
protected:
    ProgressOfTheTool() {
        m_Dispatcher.Answer("GET_PARAM", R"({"PARAMS":[]})", 0, TManner::KEEP_SILENT);
    }

    PrivateBus m_Bus;
    ScriptedDispatcher m_Dispatcher;
};

TEST_F(ProgressOfTheTool, IsShownOnATerminalAndWipedAway) {
    ChildProcess terminal(
        {"script", "-qec", std::string(OSTELCLI) + " save Device. > /dev/null", "/dev/null"});
    EXPECT_TRUE(terminal.WaitForOutput("reading Device. ["));
    m_Dispatcher.Release();
    EXPECT_EQ(terminal.Wait(), 0);
    EXPECT_TRUE(terminal.Output().size() > 4 &&
                terminal.Output().substr(terminal.Output().size() - 4) == "\r\x1b[K")
        << terminal.Output();
}

TEST_F(ProgressOfTheTool, IsNotWrittenIntoFiles) {
    ChildProcess save({OSTELCLI, "save", "Device."});
    ASSERT_TRUE(m_Dispatcher.WaitForRequest("GET_PARAM"));
    // Longer than a terminal would have to wait for the bar.
    EXPECT_FALSE(WaitUntil([&] { return !save.Errors().empty(); }, std::chrono::milliseconds(800)));
    m_Dispatcher.Release();
    EXPECT_EQ(save.Wait(), 0);
    EXPECT_EQ(save.Errors(), "");
}

}  // namespace
