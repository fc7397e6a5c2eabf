// Whoever wants the tool to end has to be obeyed, whatever it waits for.
#include "Stop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>

#include "CliFixture.h"
#include "ScriptedDispatcher.h"
#include "TempDir.h"
#include "WaitUntil.h"

namespace {

using TManner = ScriptedDispatcher::TManner;

const std::string LED = "Device.X_KAVEN_COM_General.LED.State";

TEST(Stop, NotesTheFirstSignalOnly) {
    for (const int signal : {SIGINT, SIGTERM}) {
        TStop stop;
        stop.Catch();
        EXPECT_EQ(stop.Signal(), 0);
        raise(signal);
        stop.Wait();
        EXPECT_EQ(stop.Signal(), signal);
        EXPECT_EXIT(raise(signal), testing::KilledBySignal(signal), "");
    }
    EXPECT_EXIT(raise(SIGTERM), testing::KilledBySignal(SIGTERM), "");
}

TEST(Stop, CatchesNothingBeforeItIsToldTo) {
    const TStop stop;
    EXPECT_EXIT(raise(SIGINT), testing::KilledBySignal(SIGINT), "");
}

TEST(Stop, WaitsOnceForEachWake) {
    TStop stop;
    stop.Wake();
    stop.Wake();
    stop.Wait();
    stop.Wait();
    EXPECT_EQ(stop.Signal(), 0);
}

class StopOfTheTool : public testing::Test {
protected:
    // A snapshot of two parameters of which only the second is still to be answered.
    std::string SnapshotInTheMiddle() {
        m_Dispatcher.Answer("GET_PARAM", R"({"PARAMS":[{"NAME":"D.A","VALUE":"old"}]})");
        m_Dispatcher.Answer("SET_PARAM", "{}", 0, TManner::KEEP_SILENT);
        return SnapshotOf(R"({"NAME":"D.A","VALUE":"1"},{"NAME":"D.B","VALUE":"2"})");
    }

    std::string SnapshotOf(const std::string& params) {
        std::string file = m_Dir.File("snapshot.json");
        std::ofstream(file) << R"({"ROOT":"D.","PARAMS":[)" << params << "]}";
        return file;
    }

    // The signal comes while that request is waited for, which then succeeds.
    int StatusWhenStoppedAt(const std::string& request, ChildProcess& tool, int signal) {
        EXPECT_TRUE(m_Dispatcher.WaitForRequest(request));
        tool.Signal(signal);
        m_Dispatcher.Answer(request, "{}", 0);
        m_Dispatcher.Release();
        return tool.Wait();
    }

    PrivateBus m_Bus;
    ScriptedDispatcher m_Dispatcher;
    TempDir m_Dir;
};

TEST_F(StopOfTheTool, EndsARequestThatNobodyAnswers) {
    m_Dispatcher.Answer("GET_PARAM", "{}", 0, TManner::KEEP_SILENT);
    for (const int signal : {SIGINT, SIGTERM}) {
        const std::size_t before = m_Dispatcher.Requests().size();
        ChildProcess get({OSTELCLI, "get", "Device."});
        ASSERT_TRUE(WaitUntil([&] { return m_Dispatcher.Requests().size() > before; }));
        get.Signal(signal);
        EXPECT_EQ(get.Wait(), -signal);
    }
}

TEST_F(StopOfTheTool, EndsAWaitForStandardInput) {
    ASSERT_EQ(RunProgram({"mkfifo", m_Dir.File("fifo")}).status, 0);
    // The pipe has a writer that never writes: the reader itself.
    ChildProcess set(
        {"sh", "-c",
         "exec " + std::string(OSTELCLI) + " long set " + LED + " <> " + m_Dir.File("fifo")});
    ASSERT_TRUE(
        WaitUntil([&] { return m_Dispatcher.Call("OSTEL_CLI", "IS_APP_ACTIVE", "") == 0; }));
    set.Signal(SIGTERM);
    EXPECT_EQ(set.Wait(), -SIGTERM);
}

TEST_F(StopOfTheTool, TakesBackWhatLoadHasStaged) {
    ChildProcess load({OSTELCLI, "load", SnapshotInTheMiddle()});
    EXPECT_EQ(StatusWhenStoppedAt("SET_PARAM", load, SIGINT), 128 + SIGINT);
    EXPECT_EQ(load.Errors(), "ostelcli: stopped; nothing is written\n");
    EXPECT_EQ(m_Dispatcher.LastText("SET_PARAM"), R"({"NAME":"D.A","VALUE":"old","COMMIT":false})");
    EXPECT_EQ(m_Dispatcher.LastText("COMMIT"), "no request of COMMIT");
}

TEST_F(StopOfTheTool, TakesBackTheLastValueThatLoadHasStagedToo) {
    const std::string file = SnapshotOf(R"({"NAME":"D.A","VALUE":"1"})");
    m_Dispatcher.Answer("GET_PARAM", R"({"PARAMS":[{"NAME":"D.A","VALUE":"old"}]})");
    m_Dispatcher.Answer("SET_PARAM", "{}", 0, TManner::KEEP_SILENT);
    ChildProcess load({OSTELCLI, "load", file});
    EXPECT_EQ(StatusWhenStoppedAt("SET_PARAM", load, SIGINT), 128 + SIGINT);
    EXPECT_EQ(m_Dispatcher.LastText("SET_PARAM"), R"({"NAME":"D.A","VALUE":"old","COMMIT":false})");
    EXPECT_EQ(m_Dispatcher.LastText("COMMIT"), "no request of COMMIT");
}

// Values that were refused one by one, as exchanged unique keys are, go out and come back together.
TEST_F(StopOfTheTool, TakesBackWhatLoadHasStagedTogether) {
    m_Dispatcher.Answer("GET_PARAM",
                        R"({"PARAMS":[{"NAME":"D.A","VALUE":"a"},{"NAME":"D.B","VALUE":"b"}]})");
    m_Dispatcher.Answer("SET_PARAM", "{}", 5);
    m_Dispatcher.Answer("SET_PARAM_ARRAY", "{}", 0, TManner::KEEP_SILENT);
    const std::string file = SnapshotOf(R"({"NAME":"D.A","VALUE":"b"},{"NAME":"D.B","VALUE":"a"})");
    ChildProcess load({OSTELCLI, "load", file});
    EXPECT_EQ(StatusWhenStoppedAt("SET_PARAM_ARRAY", load, SIGINT), 128 + SIGINT);
    EXPECT_EQ(load.Errors(), "ostelcli: stopped; nothing is written\n");
    EXPECT_EQ(m_Dispatcher.LastText("SET_PARAM_ARRAY"),
              R"({"PARAMS":[{"NAME":"D.B","VALUE":"b"},{"NAME":"D.A","VALUE":"a"}],)"
              R"("COMMIT":false})");
    EXPECT_EQ(m_Dispatcher.LastText("SET_PARAM"), R"({"NAME":"D.B","VALUE":"a","COMMIT":false})");
    EXPECT_EQ(m_Dispatcher.LastText("COMMIT"), "no request of COMMIT");
}

TEST_F(StopOfTheTool, TellsWhichDeletionsOfLoadRemainStaged) {
    m_Dispatcher.Answer("GET_PARAM", R"({"PARAMS":[{"NAME":"D.T.1.A","VALUE":"a"},)"
                                     R"({"NAME":"D.T.2.A","VALUE":"b"}]})");
    m_Dispatcher.Answer("DELETE_OBJECT_INSTANCE", "{}", 0, TManner::KEEP_SILENT);
    const std::string file = SnapshotOf("");
    ChildProcess load({OSTELCLI, "load", "--exact", file});
    EXPECT_EQ(StatusWhenStoppedAt("DELETE_OBJECT_INSTANCE", load, SIGTERM), 128 + SIGTERM);
    EXPECT_EQ(load.Errors(),
              "ostelcli: stopped; nothing is written\n"
              "ostelcli: the deletion of 1 instances cannot be taken back; "
              "it is staged for the next commit\n");
    EXPECT_THAT(m_Dispatcher.LastText("DELETE_OBJECT_INSTANCE"), testing::HasSubstr("D.T.1."));
    EXPECT_EQ(m_Dispatcher.LastText("COMMIT"), "no request of COMMIT");
}

TEST_F(StopOfTheTool, EndsLoadAtTheSecondSignal) {
    ChildProcess load({OSTELCLI, "load", SnapshotInTheMiddle()});
    ASSERT_TRUE(m_Dispatcher.WaitForRequest("SET_PARAM"));
    load.Signal(SIGINT);
    // Until it has been taken: two at once are one.
    ASSERT_TRUE(WaitUntil([&] {
        std::ifstream status("/proc/" + std::to_string(load.Pid()) + "/status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("SigCgt:", 0) == 0) {
                return (std::stoull(line.substr(7), nullptr, 16) >> (SIGINT - 1) & 1U) == 0;
            }
        }
        return true;
    }));
    load.Signal(SIGINT);
    EXPECT_EQ(load.Wait(), -SIGINT);
}

}  // namespace
