#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "RecordingLog.h"
#include "RuntimeErrorOf.h"
#include "TOstelDBus.h"

namespace {

using TBusError = TOstelDBus::TBusError;
using TBusMessage = TOstelDBus::TBusMessage;

DBusMessage* NewSignal() {
    return dbus_message_new_signal("/a", "a.b", "C");
}

TEST(TBusMessage, RefusesANullPointer) {
    EXPECT_EQ(RuntimeErrorOf([] { const TBusMessage message(nullptr); }),
              "DBusMessage pointer is NULL!");
    TBusMessage message(NewSignal());
    EXPECT_EQ(RuntimeErrorOf([&] { message = nullptr; }), "DBusMessage pointer is NULL!");
    EXPECT_NE(message(), nullptr);
}

TEST(TBusMessage, OwnsItsMessage) {
    DBusMessage* const first = NewSignal();
    DBusMessage* const second = NewSignal();
    dbus_message_ref(first);
    {
        TBusMessage message(first);
        EXPECT_EQ(message(), first);
        EXPECT_EQ(message.GetType(), DBUS_MESSAGE_TYPE_SIGNAL);
        message = second;
        EXPECT_EQ(message(), second);
    }
    // The one reference that is left is the test's.
    dbus_message_unref(first);
}

TEST(TBusError, DoesNothingUnlessSet) {
    const TBusError error;
    EXPECT_NO_THROW(error.Check("context"));
    EXPECT_TRUE(RecordingLog::Lines().empty());
}

TEST(TBusError, LogsAndThrowsContextAndMessage) {
    TBusError error;
    dbus_set_error(error(), DBUS_ERROR_FAILED, "%s", "the reason");
    EXPECT_EQ(RuntimeErrorOf([&] { error.Check("dbus_bus_add_match"); }),
              "dbus_bus_add_match - the reason");
    const auto lines = RecordingLog::Lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].level, 2);
    EXPECT_EQ(lines[0].format, "%s");
    EXPECT_EQ(lines[0].text, "dbus_bus_add_match - the reason");
}

}  // namespace
