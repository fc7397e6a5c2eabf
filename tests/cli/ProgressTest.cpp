#include "Progress.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <future>

#include "CertificateMaker.h"
#include "ChildProcess.h"
#include "PrivateBus.h"
#include "ScriptedDispatcher.h"
#include "TempDir.h"
#include "TlsPeer.h"
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
    TempDir m_Dir;
};

TEST_F(ProgressOfTheTool, IsShownOnATerminalAndWipedAway) {
    ChildProcess terminal(
        {"script", "-qec", std::string(OSTELCLI) + " save Device. > /dev/null", "/dev/null"});
    EXPECT_TRUE(terminal.WaitForOutput("reading Device. ["));
    ASSERT_TRUE(m_Dispatcher.WaitForRequest("GET_PARAM"));
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

TEST_F(ProgressOfTheTool, StaysToBeSeenWhenItIsAskedFor) {
    m_Dispatcher.Answer("GET_PARAM", R"({"PARAMS":[]})");
    ChildProcess save({OSTELCLI, "--progress", "save", "Device."});
    EXPECT_EQ(save.Wait(), 0);
    EXPECT_EQ(save.Errors(), TProgress::Bar("reading Device.", 1, 1, 0) + "\n");
}

TEST_F(ProgressOfTheTool, IsNotFullWhenItIsAskedForAndFails) {
    m_Dispatcher.Answer("GET_PARAM", "{}", 4);
    ChildProcess save({OSTELCLI, "save", "--progress", "Device."});
    EXPECT_EQ(save.Wait(), 4);
    EXPECT_THAT(save.Errors(), testing::StartsWith(TProgress::Bar("reading Device.", 0, 0, 0)));
}

TEST_F(ProgressOfTheTool, ShowsWhatCouldControlATerminal) {
    m_Dispatcher.Answer("GET_PARAM", "{}", 4);
    std::ofstream(m_Dir.File("s.json")) << R"({"ROOT":"\u001b[2J","PARAMS":[]})";
    const TFinished load = RunProgram({OSTELCLI, "load", "--progress", m_Dir.File("s.json")});
    EXPECT_THAT(load.errors, testing::HasSubstr(TProgress::Bar(R"(reading \x1b[2J)", 0, 0, 0)));
    EXPECT_THAT(load.errors, testing::HasSubstr(R"(staging \x1b[2J [)"));
    EXPECT_THAT(load.errors, testing::Not(testing::HasSubstr("\x1b")));
}

// The bar's own line has ended by then.
TEST_F(ProgressOfTheTool, IsOverBeforeAFailureIsTold) {
    m_Dispatcher.Answer("GET_PARAM", R"({"PARAMS":[]})");
    m_Dispatcher.Answer("SET_PARAM", "{}", 6);
    std::ofstream(m_Dir.File("s.json")) << R"({"ROOT":"D.","PARAMS":[{"NAME":"D.A","VALUE":"1"}]})";
    ChildProcess terminal({"script", "-qec",
                           std::string(OSTELCLI) + " --progress load " + m_Dir.File("s.json"),
                           "/dev/null"});
    EXPECT_EQ(terminal.Wait(), 6);
    EXPECT_THAT(terminal.Output(), testing::EndsWith(TProgress::Bar("staging D.", 0, 1, 0) +
                                                     "\r\nostelcli: D.A: RC_NOT_FOUND (6)\r\n"));
}

TEST_F(ProgressOfTheTool, IsDrawnAtOnceOnATerminalThatAsksForIt) {
    m_Dispatcher.Answer("GET_PARAM", R"({"PARAMS":[]})");
    ChildProcess terminal({"script", "-qec",
                           std::string(OSTELCLI) + " --progress save Device. > /dev/null",
                           "/dev/null"});
    EXPECT_EQ(terminal.Wait(), 0);
    EXPECT_THAT(terminal.Output(), testing::HasSubstr(TProgress::Bar("reading Device.", 0, 0, 0)));
    EXPECT_THAT(terminal.Output(),
                testing::EndsWith(TProgress::Bar("reading Device.", 1, 1, 0) + "\r\n"));
}

// A unit that answers when it is told to.
class ProgressOfAFile : public testing::Test {
protected:
    // With 1 megabyte behind the answer, as a terminal shows it.
    ChildProcess Fetch(const std::string& options) {
        return ChildProcess({"script", "-qec",
                             std::string(OSTELCLI) + " remote --certs " +
                                 m_Certificates.Unit("tool") + " " + options + m_Unit.Host() +
                                 " file log.txt " + m_Dir.File("copy"),
                             "/dev/null"});
    }

    void Answer(TlsPeer::TConnection& connection) {
        connection.Receive();
        m_Released.get_future().wait();
        connection.Send(TlsPeer::Framed(R"({"STATUS":"OK"})", std::string(1000000, 'f')));
    }

    TempDir m_Dir;
    CertificateMaker m_Certificates;
    std::promise<void> m_Released;
    TlsPeer m_Unit{{m_Certificates.Unit("slow")},
                   [this](TlsPeer::TConnection& connection) { Answer(connection); }};
};

const std::string WIPED = "\r\x1b[K";

TEST_F(ProgressOfAFile, IsShownOnATerminalAndWipedAway) {
    ChildProcess terminal = Fetch("");
    EXPECT_TRUE(terminal.WaitForOutput("fetching log.txt [")) << terminal.Output();
    m_Released.set_value();
    EXPECT_EQ(terminal.Wait(), 0);
    EXPECT_THAT(terminal.Output(), testing::EndsWith(WIPED));
    EXPECT_EQ(std::filesystem::file_size(m_Dir.File("copy")), 1000000U);
}

TEST_F(ProgressOfAFile, IsWipedAwayBeforeTheToolGivesUp) {
    ChildProcess terminal = Fetch("--timeout 3 ");
    EXPECT_EQ(terminal.Wait(), 75);
    EXPECT_THAT(terminal.Output(), testing::HasSubstr("fetching log.txt ["));
    EXPECT_THAT(terminal.Output(), testing::EndsWith(WIPED + "ostelcli: " + m_Unit.Host() +
                                                     ": no answer within 3 s\r\n"));
    m_Released.set_value();
}

}  // namespace
