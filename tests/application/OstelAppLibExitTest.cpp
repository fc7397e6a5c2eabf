// The end of a process that has not unsubscribed: the flat interface goes before the application
// object, whose worker still runs.
#include <gtest/gtest.h>

#include "ChildProcess.h"
#include "PrivateBus.h"
#include "ScriptedDispatcher.h"

namespace {

TEST(OstelAppLibExit, LeavingMainWhileEventsArriveEndsTheCallbacks) {
    const PrivateBus bus;
    ChildProcess application({EXITING_FLAT_APPLICATION});
    EXPECT_EQ(application.Wait(), 0) << application.Errors();
}

// Here the thread that ends the process holds what a notification holds.
TEST(OstelAppLibExit, ACallbackOrAnObserverMayEndTheProcess) {
    const PrivateBus bus;
    ScriptedDispatcher sender;
    for (const std::vector<std::string>& command :
         {std::vector<std::string>{EXITING_CALLBACK}, {EXITING_CALLBACK, "observer"}}) {
        ChildProcess application(command);
        ASSERT_TRUE(application.WaitForOutput("ready"));
        sender.SendEvent("EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT", "{}");
        EXPECT_EQ(application.Wait(), 0) << application.Errors();
    }
}

}  // namespace
