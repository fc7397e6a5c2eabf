// Outgoing calls and events on the client connection.
#include <malloc.h>

#include "ChildProcess.h"
#include "DBusFixture.h"

namespace {

using testing::HasSubstr;

class DBusCalls : public DBus {
protected:
    DBusCalls() : m_Peer("SERVER") {
        m_Ipc.Init("CALLER");
        m_Ipc.SetMethodServerId("*", "SERVER");
    }

    int Call(const std::string& method, const std::string& data, std::uint32_t timeout) {
        TOstelIpc::TMethodSettings settings;
        settings.timeout = timeout;
        return m_Ipc.CallMethod(method, data, m_Reply, settings);
    }

    RawPeer m_Peer;
    TOpenDBus m_Ipc;
    std::string m_Reply = "as it was";
};

TEST_F(DBusCalls, CarryTheRequestAndReturnReplyAndResult) {
    m_Peer.Answer("M", "the reply", 5);
    EXPECT_EQ(m_Ipc.CallMethod("M", "the request", m_Reply), 5);
    EXPECT_EQ(m_Reply, "the reply");
    const RawPeer::TMessage call = m_Peer.Received().back();
    EXPECT_EQ(call.path, "/com/Kaven/Ostel/SERVER");
    EXPECT_EQ(call.interface, "com.Kaven.Ostel.Ostel");
    EXPECT_EQ(call.member, "M");
    EXPECT_EQ(call.signature, "s");
    EXPECT_EQ(call.text, "the request");
}

TEST_F(DBusCalls, GoToTheServerOfTheSettings) {
    RawPeer other("OTHER");
    other.Answer("M", "other", 0);
    TOstelIpc::TMethodSettings settings;
    settings.serverId = "OTHER";
    EXPECT_EQ(m_Ipc.CallMethod("M", "", m_Reply, settings), 0);
    EXPECT_EQ(m_Reply, "other");
}

// The caller may use them again, for a method that has another server.
TEST_F(DBusCalls, LeaveTheSettingsAsTheyWere) {
    m_Peer.Answer("M", "r", 0);
    TOstelIpc::TMethodSettings settings;
    EXPECT_EQ(m_Ipc.CallMethod("M", "", m_Reply, settings), 0);
    EXPECT_EQ(settings.serverId, "");
    EXPECT_EQ(settings.timeout, TOstelIpc::TMethodSettings::DEFAULT_TIMEOUT);
}

TEST_F(DBusCalls, WithoutAServerAreRefusedBeforeTheBus) {
    TOpenDBus ipc;
    m_Bus.Kill();
    EXPECT_EQ(ipc.CallMethod("M", "", m_Reply), -1);
    RecordingLog::Clear();
    TOstelIpc::TMethodSettings settings;
    EXPECT_EQ(ipc.CallMethod("M", "", m_Reply, settings), -1);
    EXPECT_THAT(RecordingLog::Texts(6), testing::ElementsAre(HasSubstr("[CallMethod]: M")));
    EXPECT_EQ(ipc.CallMethod("M", "", m_Reply), -1);
    EXPECT_EQ(RecordingLog::Count(2, "No server ID provided for 'M' method!"), 2);
    EXPECT_EQ(m_Reply, "as it was");
}

TEST_F(DBusCalls, ToANameThatNobodyOwnsGiveMinusOneAndTheBusText) {
    m_Ipc.SetMethodServerId("*", "NOBODY");
    EXPECT_EQ(m_Ipc.CallMethod("M", "", m_Reply), -1);
    EXPECT_EQ(m_Reply, "as it was");
    EXPECT_THAT(RecordingLog::Texts(2), testing::ElementsAre(HasSubstr("com.Kaven.Ostel.NOBODY")));
    EXPECT_EQ(RecordingLog::LastFormat(2), "%s");
}

TEST_F(DBusCalls, ThatAreAnsweredTooLateGiveMinusOne) {
    const auto duration = [this](std::uint32_t timeout) {
        RecordingLog::Clear();
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(Call("NEVER", "", timeout), -1);
        return std::chrono::steady_clock::now() - start;
    };
    // Where the machine is busy, the first one may take its time.
    EXPECT_TRUE(WaitUntil([&] { return duration(0) < std::chrono::milliseconds(500); }));
    EXPECT_GE(duration(1), std::chrono::milliseconds(990));
    EXPECT_EQ(m_Reply, "as it was");
    const std::string text =
        "Did not receive a reply. Possible causes include: the remote application did not send a "
        "reply, the message bus security policy blocked the reply, the reply timeout expired, or "
        "the network connection was broken.";
    EXPECT_THAT(RecordingLog::Texts(2), testing::ElementsAre(text));
}

TEST_F(DBusCalls, WaitAsLongAsConfiguredByDefault) {
    m_Ipc.Configure({1, 1, false});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(m_Ipc.CallMethod("NEVER", "", m_Reply), -1);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, std::chrono::milliseconds(990));
    EXPECT_LT(took, std::chrono::seconds(10));
}

TEST_F(DBusCalls, BearATimeoutThatDoesNotFitMilliseconds) {
    m_Peer.Answer("M", "r", 0);
    EXPECT_EQ(Call("M", "", 4294967294U), 0);
    EXPECT_EQ(Call("M", "", 2147484U), 0);
    EXPECT_EQ(Call("M", "", 4294968U), 0);
}

TEST_F(DBusCalls, WithoutAResultInTheReplyGiveMinusOne) {
    m_Peer.Answer("M", [](DBusMessage* call) {
        DBusMessage* const reply = dbus_message_new_method_return(call);
        const char* const text = "text";
        dbus_message_append_args(reply, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
        return reply;
    });
    EXPECT_EQ(m_Ipc.CallMethod("M", "", m_Reply), -1);
    EXPECT_EQ(m_Reply, "text");
}

TEST_F(DBusCalls, BearRepliesOfAnyShape) {
    m_Peer.Answer("EMPTY", [](DBusMessage* call) { return dbus_message_new_method_return(call); });
    EXPECT_EQ(m_Ipc.CallMethod("EMPTY", "", m_Reply), -1);
    EXPECT_EQ(m_Reply, "");
    EXPECT_EQ(RecordingLog::Count(3, "Message has no parameters."), 1);

    m_Peer.Answer("INTFIRST", [](DBusMessage* call) {
        DBusMessage* const reply = dbus_message_new_method_return(call);
        const dbus_int32_t code = 3;
        const char* const text = "text";
        dbus_message_append_args(reply, DBUS_TYPE_INT32, &code, DBUS_TYPE_STRING, &text,
                                 DBUS_TYPE_INVALID);
        return reply;
    });
    EXPECT_EQ(m_Ipc.CallMethod("INTFIRST", "", m_Reply), 3);
    EXPECT_EQ(m_Reply, "text");

    // Only three arguments are looked at, and a later text replaces an earlier one.
    m_Peer.Answer("FIVE", [](DBusMessage* call) {
        DBusMessage* const reply = dbus_message_new_method_return(call);
        const char* const texts[] = {"one", "two", "three", "four"};
        const dbus_int32_t code = 3;
        dbus_message_append_args(reply, DBUS_TYPE_STRING, &texts[0], DBUS_TYPE_STRING, &texts[1],
                                 DBUS_TYPE_STRING, &texts[2], DBUS_TYPE_STRING, &texts[3],
                                 DBUS_TYPE_INT32, &code, DBUS_TYPE_INVALID);
        return reply;
    });
    EXPECT_EQ(m_Ipc.CallMethod("FIVE", "", m_Reply), -1);
    EXPECT_EQ(m_Reply, "three");

    m_Peer.Answer("STRUCT", [](DBusMessage* call) {
        DBusMessage* const reply = dbus_message_new_method_return(call);
        DBusMessageIter arguments;
        DBusMessageIter inner;
        const dbus_int32_t code = 9;
        dbus_message_iter_init_append(reply, &arguments);
        dbus_message_iter_open_container(&arguments, DBUS_TYPE_STRUCT, nullptr, &inner);
        dbus_message_iter_append_basic(&inner, DBUS_TYPE_INT32, &code);
        dbus_message_iter_close_container(&arguments, &inner);
        return reply;
    });
    EXPECT_EQ(m_Ipc.CallMethod("STRUCT", "", m_Reply), -1);
    EXPECT_EQ(m_Reply, "");
}

TEST_F(DBusCalls, AnErrorReplyIsLoggedAndGivesMinusOne) {
    m_Peer.Answer("M", [](DBusMessage* call) {
        return dbus_message_new_error(call, "a.b.C", "the error's text");
    });
    EXPECT_EQ(m_Ipc.CallMethod("M", "", m_Reply), -1);
    EXPECT_EQ(m_Reply, "as it was");
    EXPECT_EQ(RecordingLog::Count(2, "the error's text"), 1);
}

TEST_F(DBusCalls, AnErrorReplyWithoutATextIsOneEmptyLine) {
    m_Peer.Answer("M",
                  [](DBusMessage* call) { return dbus_message_new_error(call, "a.b.C", nullptr); });
    EXPECT_EQ(m_Ipc.CallMethod("M", "", m_Reply), -1);
    EXPECT_EQ(m_Reply, "as it was");
    EXPECT_EQ(RecordingLog::Count(2, ""), 1);
    EXPECT_TRUE(RecordingLog::Texts(3).empty());
}

TEST_F(DBusCalls, AndEventsLookRightToAnotherProgram) {
    ChildProcess monitor({"dbus-monitor", "--system", "path_namespace='/com/Kaven/Ostel'"});
    ASSERT_TRUE(monitor.WaitForOutput("NameLost"));
    m_Peer.Answer("M", "the reply", 5);
    m_Ipc.CallMethod("M", "the request", m_Reply);
    m_Ipc.SendEvent("EVENT", "the data");
    ASSERT_TRUE(monitor.WaitForOutput("the data")) << monitor.Output();
    EXPECT_THAT(
        monitor.Output(),
        testing::AllOf(
            testing::ContainsRegex("method call .* destination=com\\.Kaven\\.Ostel\\.SERVER "
                                   "serial=[0-9]+ path=/com/Kaven/Ostel/SERVER; "
                                   "interface=com\\.Kaven\\.Ostel\\.Ostel; member=M\n"
                                   "   string \"the request\""),
            testing::ContainsRegex("signal .* destination=\\(null destination\\) "
                                   "serial=[0-9]+ path=/com/Kaven/Ostel/CALLER; "
                                   "interface=com\\.Kaven\\.Ostel\\.Ostel; "
                                   "member=EVENT\n   string \"the data\"")));
}

TEST_F(DBusCalls, WithTextsThatTheBusDoesNotAllowThrow) {
    for (const std::string& text : {std::string("\xFF"), std::string("a\0b", 3)}) {
        EXPECT_EQ(RuntimeErrorOf([&] { m_Ipc.CallMethod("M", text, m_Reply); }),
                  "dbus_message_iter_append_basic failed");
        EXPECT_EQ(RuntimeErrorOf([&] { m_Ipc.SendEvent("E", text); }),
                  "dbus_message_iter_append_basic failed");
    }
    EXPECT_EQ(RecordingLog::Count(2, "dbus_message_iter_append_basic failed"), 4);
}

// The bus would end the connection of whoever sends more.
TEST_F(DBusCalls, CarryTextsUpToWhatABusTakesAndThrowAboveIt) {
    m_Peer.Answer("M", "r", 0);
    std::string text(32 * 1024 * 1024 - 8192, 'x');
    EXPECT_EQ(m_Ipc.CallMethod("M", text, m_Reply), 0);
    EXPECT_EQ(m_Peer.Received().back().text.size(), text.size());
    text += 'x';
    EXPECT_EQ(RuntimeErrorOf([&] { m_Ipc.CallMethod("M", text, m_Reply); }),
              "dbus_message_iter_append_basic failed");
    EXPECT_EQ(RuntimeErrorOf([&] { m_Ipc.SendEvent("E", text); }),
              "dbus_message_iter_append_basic failed");
    EXPECT_EQ(m_Ipc.CallMethod("M", "", m_Reply), 0);
}

TEST_F(DBusCalls, CarryTenMegabytesBothWays) {
    const std::string large(10 * 1024 * 1024, 'x');
    m_Peer.Answer("M", large, 0);
    EXPECT_EQ(m_Ipc.CallMethod("M", large, m_Reply), 0);
    EXPECT_EQ(m_Reply, large);
    EXPECT_EQ(m_Peer.Received().back().text, large);
}

TEST_F(DBusCalls, WithNamesThatTheBusDoesNotAllowThrow) {
    const std::string names[] = {"",
                                 "with blank",
                                 "1digit",
                                 "a.b",
                                 "a-b",
                                 "\xFF",
                                 std::string("a\0b", 3),
                                 std::string(256, 'x')};
    for (const std::string& name : names) {
        EXPECT_EQ(RuntimeErrorOf([&] { m_Ipc.CallMethod(name, "", m_Reply); }),
                  "DBusMessage pointer is NULL!")
            << name;
        EXPECT_EQ(RuntimeErrorOf([&] { m_Ipc.SendEvent(name, ""); }),
                  "DBusMessage pointer is NULL!")
            << name;
    }
    for (const std::string& server :
         {std::string("with blank"), std::string("1"), std::string("a/b"), std::string("\xFF"),
          std::string("SERVER\0", 7), std::string(240, 'x')}) {
        TOstelIpc::TMethodSettings settings;
        settings.serverId = server;
        EXPECT_EQ(RuntimeErrorOf([&] { m_Ipc.CallMethod("M", "", m_Reply, settings); }),
                  "DBusMessage pointer is NULL!")
            << server;
    }
}

TEST_F(DBusCalls, MemberMayHave255Characters) {
    const std::string member(255, 'x');
    m_Peer.Answer(member, "r", 0);
    EXPECT_EQ(m_Ipc.CallMethod(member, "", m_Reply), 0);
}

TEST_F(DBusCalls, OfSeveralThreadsGetTheirOwnReplies) {
    m_Peer.Answer("ECHO", [](DBusMessage* call) {
        const char* text = nullptr;
        dbus_message_get_args(call, nullptr, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
        return RawPeer::NewReply(call, text, 0);
    });
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&, i] {
            for (int call = 0; call < 200; ++call) {
                const std::string text = std::to_string(i) + ":" + std::to_string(call);
                std::string reply;
                if (m_Ipc.CallMethod("ECHO", text, reply) != 0 || reply != text) {
                    ++wrong;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}

TEST_F(DBusCalls, FailAtOnceWhenTheBusGoesAway) {
    std::vector<std::thread> threads;
    std::atomic<int> failed{0};
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            std::string reply;
            if (m_Ipc.CallMethod("NEVER", "", reply) == -1) {
                ++failed;
            }
        });
    }
    EXPECT_TRUE(WaitUntil([&] {
        const auto received = m_Peer.Received();
        return std::count_if(
                   received.begin(), received.end(),
                   [](const RawPeer::TMessage& message) { return message.member == "NEVER"; }) == 8;
    }));
    const auto start = std::chrono::steady_clock::now();
    m_Bus.Kill();
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    EXPECT_EQ(failed, 8);
    EXPECT_EQ(RuntimeErrorOf([&] { m_Ipc.CallMethod("M", "", m_Reply); }),
              "dbus_connection_send_with_reply failed");
}

TEST_F(DBusCalls, FailAtOnceWhenTheServerDies) {
    auto dying = std::make_unique<RawPeer>("DYING");
    std::thread killer([&] {
        dying->WaitForMember("M");
        dying.reset();
    });
    TOstelIpc::TMethodSettings settings;
    settings.serverId = "DYING";
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(m_Ipc.CallMethod("M", "", m_Reply, settings), -1);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    killer.join();
}

// Answers that come too late are kept until somebody takes them, so a later call must.
TEST_F(DBusCalls, TenThousandLateAnswersLeaveMemoryWhereItWas) {
    const std::string text(1000, 'x');
    m_Peer.Answer("LATE", text, 0);
    m_Peer.Answer("M", "r", 0);
    const auto settle = [&] { m_Ipc.CallMethod("M", "", m_Reply); };
    for (int i = 0; i < 1000; ++i) {
        Call("LATE", "", 0);
        RecordingLog::Clear();
    }
    settle();
    const std::size_t before = mallinfo2().uordblks;
    for (int i = 0; i < 10000; ++i) {
        Call("LATE", "", 0);
        RecordingLog::Clear();
    }
    settle();
    EXPECT_LT(mallinfo2().uordblks, before + 4 * 1024 * 1024);
}

TEST_F(DBusCalls, EventsAreBroadcastSignals) {
    m_Ipc.SendEvent("EVENT", "the data");
    ASSERT_TRUE(m_Peer.WaitForMember("EVENT"));
    const RawPeer::TMessage event = m_Peer.Received().back();
    EXPECT_EQ(event.type, DBUS_MESSAGE_TYPE_SIGNAL);
    EXPECT_EQ(event.path, "/com/Kaven/Ostel/CALLER");
    EXPECT_EQ(event.interface, "com.Kaven.Ostel.Ostel");
    EXPECT_EQ(event.signature, "s");
    EXPECT_EQ(event.text, "the data");
}

TEST_F(DBusCalls, AnEventAfterTheBusHasGoneIsAnErrorAndNotAHang) {
    m_Bus.Kill();
    const auto start = std::chrono::steady_clock::now();
    const std::string first = RuntimeErrorOf([&] { m_Ipc.SendEvent("E", "d"); });
    EXPECT_EQ(first, "dbus_connection_send failed");
    EXPECT_EQ(RuntimeErrorOf([&] { m_Ipc.SendEvent("E", "d"); }), first);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

}  // namespace
