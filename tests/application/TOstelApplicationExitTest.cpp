// The end of a process whose worker still runs: the application object goes before the IPC
// instance, and nothing may reach it in between.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "ChildProcess.h"
#include "PrivateBus.h"
#include "ScriptedDispatcher.h"
#include "WaitUntil.h"

namespace {

TEST(TOstelApplicationExit, LeavingMainWhileCallsAndEventsArriveEndsTheProcessCleanly) {
    const PrivateBus bus;
    ScriptedDispatcher caller;
    ScriptedDispatcher sender("OSTEL_KTA");
    ChildProcess application({EXITING_APPLICATION});
    const auto ask = [&] { return caller.Call("OSTEL_MVA", "IS_APP_ACTIVE", ""); };
    ASSERT_TRUE(WaitUntil([&] { return ask() == 0; }));

    std::atomic<bool> ended{false};
    std::atomic<int> refused{0};
    std::atomic<int> asked{0};
    std::thread calls([&] {
        for (; !ended; ++asked) {
            refused += ask() == -1 ? 1 : 0;
        }
    });
    // Few for each call: they wait in one queue, the calls behind them.
    std::thread events([&] {
        for (int sent = 0; !ended; ++sent) {
            EXPECT_TRUE(WaitUntil([&] { return ended || sent < 5 * (asked + 1); }));
            sender.SendEvent("EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT", "{}");
            sender.SendEvent("APP_CONNECTED", "OSTEL_KTA");
        }
    });
    EXPECT_EQ(application.Wait(), 0) << application.Errors();
    ended = true;
    calls.join();
    events.join();
    // Once the application object had gone, nobody answered for it.
    EXPECT_GT(refused, 0);
}

}  // namespace
