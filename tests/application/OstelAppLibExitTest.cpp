// The end of a process that has not unsubscribed: the flat interface goes before the application
// object, whose worker still runs.
#include <gtest/gtest.h>

#include "ChildProcess.h"
#include "PrivateBus.h"

namespace {

TEST(OstelAppLibExit, LeavingMainWhileEventsArriveEndsTheCallbacks) {
    const PrivateBus bus;
    ChildProcess application({EXITING_FLAT_APPLICATION});
    EXPECT_EQ(application.Wait(), 0) << application.Errors();
}

}  // namespace
