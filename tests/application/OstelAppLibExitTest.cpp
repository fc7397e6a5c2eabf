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
    ScriptedDispatcher dispatcher;
    dispatcher.Answer("COMMIT", "", 0, ScriptedDispatcher::TManner::KEEP_SILENT);
    for (const std::vector<std::string>& command :
         {std::vector<std::string>{EXITING_CALLBACK}, {EXITING_CALLBACK, "observer"}}) {
        ChildProcess application(command);
        EXPECT_EQ(application.Wait(), 0) << application.Errors();
    }
}

}  // namespace
