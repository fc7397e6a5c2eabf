// What arrives on the server connection: calls, events, and in monitor mode applications.
#include <future>

#include "ChildProcess.h"
#include "DBusFixture.h"
#include "Resources.h"

namespace {

using testing::Contains;
using testing::HasSubstr;

class DBusIncoming : public DBus {
protected:
    DBusIncoming() { m_Ipc.Init("OSTEL_KTA"); }
    ~DBusIncoming() override { m_Ipc.Stop(); }

    void Handle(const std::string& method, TCallHandler::TAnswer answer) {
        m_Handlers.push_back(std::make_unique<TCallHandler>(std::move(answer)));
        m_Ipc.AddMethodHandler(method, m_Handlers.back().get());
    }

    static DBusMessage* NewSignal(const std::string& name) {
        return dbus_message_new_signal("/a", "com.Kaven.Ostel.Ostel", name.c_str());
    }

    static DBusMessage* NewSignal(const std::string& name, const std::string& text) {
        DBusMessage* const signal = NewSignal(name);
        const char* const characters = text.c_str();
        dbus_message_append_args(signal, DBUS_TYPE_STRING, &characters, DBUS_TYPE_INVALID);
        return signal;
    }

    TOpenDBus m_Ipc;
    TEventLog m_Events;
    std::vector<std::unique_ptr<TCallHandler>> m_Handlers;
};

TEST_F(DBusIncoming, CallsReachTheHandlerAndAreAnswered) {
    Handle("M", [](const std::string& data, std::string& reply) {
        reply = "got " + data;
        return 42;
    });
    m_Ipc.Run();
    RawPeer peer;
    EXPECT_EQ(CallAs(peer, "OSTEL_KTA", "M", "x"), (std::pair<std::string, int>("got x", 42)));
    EXPECT_EQ(CallAs(peer, "OSTEL_KTA", "UNKNOWN", "x"), (std::pair<std::string, int>("", -1)));
}

TEST_F(DBusIncoming, AnswersLookRightToAnotherProgram) {
    Handle("M", [](const std::string& data, std::string& reply) {
        reply = "got " + data;
        return 42;
    });
    m_Ipc.Run();
    const std::string sent =
        RunProgram({"dbus-send", "--system", "--print-reply", "--dest=com.Kaven.Ostel.OSTEL_KTA",
                    "/com/Kaven/Ostel/OSTEL_KTA", "com.Kaven.Ostel.Ostel.M", "string:x"})
            .output;
    EXPECT_THAT(sent, HasSubstr("   string \"got x\"\n   int32 42\n"));
    const std::string called =
        RunProgram({"busctl", "--address=" + m_Bus.Address(), "call", "com.Kaven.Ostel.OSTEL_KTA",
                    "/com/Kaven/Ostel/OSTEL_KTA", "com.Kaven.Ostel.Ostel", "M", "s", "y"})
            .output;
    EXPECT_EQ(called, "si \"got y\" 42\n");
}

TEST_F(DBusIncoming, CallsOfAnyShapeAreAnswered) {
    Handle("M", [](const std::string& data, std::string& reply) {
        reply = "[" + data + "]";
        return 1;
    });
    m_Ipc.Run();
    RawPeer peer;
    EXPECT_EQ(Result(peer.Call(RawPeer::NewCall("OSTEL_KTA", "M"), 5000)).first, "[]");
    DBusMessage* intFirst = RawPeer::NewCall("OSTEL_KTA", "M");
    const dbus_int32_t number = 5;
    const char* const text = "text";
    dbus_message_append_args(intFirst, DBUS_TYPE_INT32, &number, DBUS_TYPE_STRING, &text,
                             DBUS_TYPE_INVALID);
    EXPECT_EQ(Result(peer.Call(intFirst, 5000)).first, "[text]");
    DBusMessage* five = RawPeer::NewCall("OSTEL_KTA", "M");
    const char* const late = "late";
    dbus_message_append_args(five, DBUS_TYPE_INT32, &number, DBUS_TYPE_INT32, &number,
                             DBUS_TYPE_STRING, &text, DBUS_TYPE_STRING, &late, DBUS_TYPE_STRING,
                             &late, DBUS_TYPE_INVALID);
    EXPECT_EQ(Result(peer.Call(five, 5000)).first, "[text]");
    EXPECT_EQ(
        RunProgram({"gdbus", "call", "--address", m_Bus.Address(), "--dest",
                    "com.Kaven.Ostel.OSTEL_KTA", "--object-path", "/com/Kaven/Ostel/OSTEL_KTA",
                    "--method", "com.Kaven.Ostel.Ostel.M", "(1, 'in a struct')"})
            .output,
        "('[]', 1)\n");
}

TEST_F(DBusIncoming, AHandlerThatThrowsIsAnsweredForAndTheWorkerGoesOn) {
    Handle("RUNTIME", [](const std::string&, std::string& reply) -> int {
        reply = "half";
        throw std::runtime_error("handler failed");
    });
    Handle("ANYTHING", [](const std::string&, std::string&) -> int { throw 5; });
    m_Ipc.Run();
    RawPeer peer;
    EXPECT_EQ(CallAs(peer, "OSTEL_KTA", "RUNTIME", ""), (std::pair<std::string, int>("", -1)));
    EXPECT_EQ(CallAs(peer, "OSTEL_KTA", "ANYTHING", ""), (std::pair<std::string, int>("", -1)));
    EXPECT_EQ(RecordingLog::Count(2, "handler failed"), 1);
    EXPECT_EQ(RecordingLog::Texts(2).size(), 2U);
}

TEST_F(DBusIncoming, AReplyThatTheBusCannotCarryIsNotSent) {
    Handle("BAD", [](const std::string&, std::string& reply) {
        reply = "\xFF";
        return 0;
    });
    Handle("GOOD", [](const std::string&, std::string&) { return 0; });
    m_Ipc.Run();
    ChildProcess monitor({"dbus-monitor", "--system", "type='error'"});
    ASSERT_TRUE(monitor.WaitForOutput("NameLost"));
    RawPeer peer;
    EXPECT_EQ(peer.Call(RawPeer::NewCall("OSTEL_KTA", "BAD"), 200), nullptr);
    EXPECT_EQ(CallAs(peer, "OSTEL_KTA", "GOOD", "").second, 0);
    EXPECT_TRUE(RecordingLog::Texts(2).empty());
    // It counts as handled: the bus library answers what is not.
    EXPECT_EQ(peer.Call(RawPeer::NewCall("NOBODY", "BAD"), 5000), nullptr);
    EXPECT_TRUE(monitor.WaitForOutput("ServiceUnknown"));
    EXPECT_THAT(monitor.Output(), testing::Not(HasSubstr("UnknownMethod")));
}

TEST_F(DBusIncoming, AHandlerMayCallOut) {
    RawPeer server("SERVER");
    server.Answer("INNER", "inner", 0);
    m_Ipc.SetMethodServerId("*", "SERVER");
    Handle("OUTER", [&](const std::string&, std::string& reply) {
        return m_Ipc.CallMethod("INNER", "", reply);
    });
    m_Ipc.Run();
    RawPeer peer;
    EXPECT_EQ(CallAs(peer, "OSTEL_KTA", "OUTER", "").first, "inner");
}

TEST_F(DBusIncoming, EventsReachListenersWhoeverSendsThem) {
    m_Ipc.AddEventLstener(&m_Events, "E");
    m_Ipc.Run();
    m_Ipc.SendEvent("E", "its own");
    EXPECT_TRUE(m_Events.WaitFor("E=its own"));
    EXPECT_EQ(RunProgram({"dbus-send", "--system", "--type=signal", "/a/b",
                          "com.Kaven.Ostel.Ostel.E", "string:another program's"})
                  .status,
              0);
    EXPECT_TRUE(m_Events.WaitFor("E=another program's"));
}

TEST_F(DBusIncoming, EventsOfAnyShapeAreBorne) {
    m_Ipc.AddEventLstener(&m_Events, "*");
    m_Ipc.Run();
    RawPeer peer;
    peer.Send(NewSignal("NOTHING"));
    DBusMessage* const number = NewSignal("NUMBER");
    const dbus_int32_t five = 5;
    dbus_message_append_args(number, DBUS_TYPE_INT32, &five, DBUS_TYPE_INVALID);
    peer.Send(number);
    EXPECT_TRUE(m_Events.WaitFor("NOTHING="));
    EXPECT_TRUE(m_Events.WaitFor("NUMBER="));
    EXPECT_GE(RecordingLog::Count(3, "Message has no parameters."), 1);
}

TEST_F(DBusIncoming, SignalsOfTheBusItselfAreEventsToo) {
    m_Ipc.AddEventLstener(&m_Events, "*");
    m_Ipc.Run();
    EXPECT_TRUE(m_Events.WaitFor("NameAcquired=com.Kaven.Ostel.OSTEL_KTA"));
}

TEST_F(DBusIncoming, AListenerThatThrowsDoesNotEndTheWorker) {
    m_Events.then = [](const std::string& name) {
        if (name == "RUNTIME") {
            throw std::runtime_error("listener failed");
        }
        if (name == "ANYTHING") {
            throw 5;
        }
    };
    m_Ipc.AddEventLstener(&m_Events, "*");
    m_Ipc.Run();
    RawPeer peer;
    peer.Send(NewSignal("RUNTIME", ""));
    peer.Send(NewSignal("ANYTHING", ""));
    peer.Send(NewSignal("FINE", ""));
    EXPECT_TRUE(m_Events.WaitFor("FINE="));
    EXPECT_EQ(RecordingLog::Count(2, "listener failed"), 1);
    EXPECT_EQ(RecordingLog::Texts(2).size(), 2U);
}

TEST_F(DBusIncoming, ABurstOfTenThousandEventsArrivesWholeAndInOrder) {
    // The listener is slower than the sender: it begins when all events are on their way.
    std::atomic<int> handled{0};
    std::promise<void> areSent;
    m_Events.then = [&, sent = areSent.get_future().share()](const std::string&) {
        sent.wait();
        ++handled;
    };
    m_Ipc.AddEventLstener(&m_Events, "E");
    m_Ipc.Run();
    RawPeer peer;
    for (int i = 0; i < 10000; ++i) {
        peer.Send(NewSignal("E", std::to_string(i)));
    }
    areSent.set_value();
    ASSERT_TRUE(WaitUntil([&] { return handled == 10000; }, std::chrono::seconds(60)));
    ASSERT_TRUE(m_Events.WaitFor("E=9999"));
    const auto events = m_Events.Events();
    for (int i = 0; i < 10000; ++i) {
        ASSERT_EQ(events[static_cast<std::size_t>(i)], "E=" + std::to_string(i));
    }
}

TEST_F(DBusIncoming, AnErrorMessageIsLoggedAndIsNoEvent) {
    m_Ipc.AddEventLstener(&m_Events, "*");
    RawPeer peer;
    DBusMessage* const call = RawPeer::NewCall("OSTEL_KTA", "X");
    dbus_message_set_serial(call, 1);
    DBusMessage* const error = dbus_message_new_error(call, "a.b.C", "an error's text");
    m_Ipc.MessageHandler(error);
    EXPECT_EQ(RecordingLog::Count(2, "an error's text"), 1);
    EXPECT_THAT(m_Events.Events(), testing::IsEmpty());
    dbus_message_unref(error);
    dbus_message_unref(call);
}

TEST_F(DBusIncoming, AReplyThatNobodyWaitsForIsIgnored) {
    m_Ipc.AddEventLstener(&m_Events, "*");
    bool wasHandled = false;
    Handle("X", [&](const std::string&, std::string&) {
        wasHandled = true;
        return 0;
    });
    DBusMessage* const call = RawPeer::NewCall("OSTEL_KTA", "X");
    dbus_message_set_serial(call, 1);
    DBusMessage* const reply = RawPeer::NewReply(call, "text", 0);
    dbus_message_set_member(reply, "X");
    RecordingLog::Clear();
    m_Ipc.MessageHandler(reply);
    dbus_message_unref(reply);
    dbus_message_unref(call);
    EXPECT_FALSE(wasHandled);
    EXPECT_THAT(m_Events.Events(), testing::IsEmpty());
    EXPECT_THAT(RecordingLog::Lines(), testing::IsEmpty());
}

TEST(TOstelDBus, GetMessageValueBearsNullPointers) {
    std::string value = "as it was";
    int result = 7;
    TOpenDBus::GetMessageValue(nullptr, value, &result);
    EXPECT_EQ(value, "");
    EXPECT_EQ(result, -1);
    value = "as it was";
    DBusMessage* const message = dbus_message_new_signal("/a", "a.b", "C");
    const char* const text = "not looked at";
    dbus_message_append_args(message, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
    TOpenDBus::GetMessageValue(message, value, nullptr);
    EXPECT_EQ(value, "");
    dbus_message_unref(message);
}

TEST_F(DBusIncoming, WithoutABusTheWorkerIsIdleAndStopsInTime) {
    m_Ipc.AddEventLstener(&m_Events, "Disconnected");
    m_Ipc.SetDispatchTimeout(std::chrono::seconds(60));
    m_Ipc.Run();
    m_Bus.Kill();
    ASSERT_TRUE(m_Events.WaitFor("Disconnected="));
    EXPECT_TRUE(Resources::IsIdleForASecond());
    const auto start = std::chrono::steady_clock::now();
    m_Ipc.Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

class DBusMonitor : public DBusIncoming {
protected:
    DBusMonitor() : m_Monitor(std::make_unique<TOpenDBus>()) {
        m_Monitor->AddEventLstener(&m_Events, "*");
        m_Monitor->Configure({1, 60, true});
    }
    void Start() {
        m_Monitor->Init("WATCHER");
        m_Monitor->Run();
    }
    std::unique_ptr<TOpenDBus> m_Monitor;
};

TEST_F(DBusMonitor, SeesApplicationsComeAndGo) {
    Start();
    {
        const RawPeer application("OSTEL_MVA");
        EXPECT_TRUE(m_Events.WaitFor("APP_CONNECTED=OSTEL_MVA"));
    }
    EXPECT_TRUE(m_Events.WaitFor("APP_DISCONNECTED=OSTEL_MVA"));
    for (const std::string& event : m_Events.Events()) {
        EXPECT_THAT(event, testing::Not(HasSubstr(":1.")));
    }
}

TEST_F(DBusMonitor, RaisesNothingForOtherNamesAndSignals) {
    for (const char* name : {":1.42", "com.Kaven.Oste", "com.Kaven.OstelX.A", "", "x"}) {
        for (const char* member : {"NameAcquired", "NameLost"}) {
            DBusMessage* const signal = NewSignal(member, name);
            m_Monitor->MonitorHandler(signal);
            dbus_message_unref(signal);
        }
    }
    DBusMessage* const other = NewSignal("NameOwnerChanged", "com.Kaven.Ostel.OSTEL_MVA");
    m_Monitor->MonitorHandler(other);
    dbus_message_unref(other);
    EXPECT_TRUE(m_Events.Events().empty());
    DBusMessage* const acquired = NewSignal("NameAcquired", "com.Kaven.Ostel.");
    m_Monitor->MonitorHandler(acquired);
    dbus_message_unref(acquired);
    EXPECT_THAT(m_Events.Events(), testing::ElementsAre("APP_CONNECTED="));
}

TEST_F(DBusMonitor, LooksAtNothingButSignals) {
    DBusMessage* const call = RawPeer::NewCall("WATCHER", "NameAcquired");
    const char* const name = "com.Kaven.Ostel.OSTEL_MVA";
    dbus_message_append_args(call, DBUS_TYPE_STRING, &name, DBUS_TYPE_INVALID);
    RecordingLog::Clear();
    m_Monitor->MonitorHandler(call);
    dbus_message_unref(call);
    EXPECT_THAT(m_Events.Events(), testing::IsEmpty());
    EXPECT_THAT(RecordingLog::Lines(), testing::IsEmpty());
}

TEST_F(DBusMonitor, AsksTheBusWithItsTwoRules) {
    ChildProcess monitor({"dbus-monitor", "--system", "member='BecomeMonitor'"});
    ASSERT_TRUE(monitor.WaitForOutput("NameLost"));
    Start();
    EXPECT_TRUE(
        monitor.WaitForOutput("   array [\n"
                              "      string \"type='signal',member='NameAcquired'\"\n"
                              "      string \"type='signal',member='NameLost'\"\n"
                              "   ]\n"
                              "   uint32 0"))
        << monitor.Output();
}

TEST_F(DBusMonitor, RunsAgainAndMayBeRenamed) {
    Start();
    m_Monitor->Stop();
    m_Monitor->Run();
    m_Monitor->Init("RENAMED");
    const RawPeer application("OSTEL_MVA");
    EXPECT_TRUE(m_Events.WaitFor("APP_CONNECTED=OSTEL_MVA"));
    EXPECT_TRUE(RecordingLog::Texts(2).empty());
}

// A monitor may not send, so its own name goes with its connection; the other one is given up as
// ever, on the connection that may.
TEST_F(DBusMonitor, GivesUpItsClientNameWhenRenamed) {
    ChildProcess monitor({"dbus-monitor", "--system", "member='ReleaseName'"});
    ASSERT_TRUE(monitor.WaitForOutput("NameLost"));
    Start();
    m_Monitor->Init("RENAMED");
    EXPECT_TRUE(monitor.WaitForOutput("string \"com.Kaven.Ostel.WATCHER_CLIENT\""))
        << monitor.Output();
    EXPECT_THAT(monitor.Output(), testing::Not(HasSubstr("string \"com.Kaven.Ostel.WATCHER\"")));
}

TEST_F(DBusMonitor, ReportsThatItCannotGiveUpItsClientName) {
    Start();
    m_Bus.Kill();
    RecordingLog::Clear();
    EXPECT_THROW(m_Monitor->Init("RENAMED"), std::runtime_error);
    EXPECT_THAT(RecordingLog::Texts(2), Contains(testing::StartsWith("dbus_bus_release_name - ")));
}

TEST_F(DBusMonitor, SendsTheCallOfAStopAsWell) {
    ChildProcess monitor({"dbus-monitor", "--system", "member='Disconnected'"});
    ASSERT_TRUE(monitor.WaitForOutput("NameLost"));
    Start();
    m_Monitor->Stop();
    EXPECT_TRUE(monitor.WaitForOutput("destination=com.Kaven.Ostel.WATCHER serial="))
        << monitor.Output();
}

TEST_F(DBusMonitor, StopsWithinItsShorterTimeout) {
    Start();
    const auto start = std::chrono::steady_clock::now();
    m_Monitor->Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));
}

TEST_F(DBusMonitor, IsNoneAfterItHasDisconnected) {
    Start();
    m_Monitor->Stop();
    m_Monitor->Disconnect();
    m_Monitor->Configure({1, 60, false});
    m_Monitor->Init("OSTEL_MVA");
    m_Monitor->Run();
    RawPeer peer;
    EXPECT_EQ(CallAs(peer, "OSTEL_MVA", "M", "").second, -1);
}

TEST_F(DBusMonitor, WithoutAConnectionSaysSo) {
    m_Monitor->Run();
    EXPECT_EQ(RecordingLog::Count(2, "Not connected!"), 1);
    EXPECT_EQ(m_Monitor->Workers(), 1U);
}

TEST_F(DBusMonitor, WithoutABusThrows) {
    m_Monitor->Init("WATCHER");
    m_Bus.Kill();
    EXPECT_THROW(m_Monitor->Run(), std::runtime_error);
    EXPECT_EQ(m_Monitor->Workers(), 0U);
    EXPECT_FALSE(m_Monitor->IsRunning());
    EXPECT_THAT(RecordingLog::Texts(2),
                Contains(testing::StartsWith("dbus_connection_send_with_reply_and_block - ")));
}

}  // namespace
