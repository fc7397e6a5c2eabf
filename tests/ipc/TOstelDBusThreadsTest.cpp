// Several threads at once: who waits, and who must not be kept waiting.
#include <thread>

#include "ChildProcess.h"
#include "DBusFixture.h"
#include "Resources.h"
#include "ScriptedDispatcher.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using TManner = ScriptedDispatcher::TManner;

class DBusThreads : public DBus {
protected:
    DBusThreads() : m_Server("SERVER") {
        m_Ipc.Init("CALLER");
        m_Ipc.SetMethodServerId("*", "SERVER");
        m_Server.Answer("QUICK", "quick", 0);
        m_Server.Answer("SLOW", "slow", 0, TManner::KEEP_SILENT);
    }

    int Call(const std::string& method, std::uint32_t timeout) {
        TOstelIpc::TMethodSettings settings;
        settings.timeout = timeout;
        std::string reply;
        return m_Ipc.CallMethod(method, "", reply, settings);
    }

    template <typename Work>
    static milliseconds Duration(Work work) {
        const auto start = std::chrono::steady_clock::now();
        work();
        return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start);
    }

    bool WaitForRequests(std::size_t count) const {
        return WaitUntil([&] { return m_Server.Requests().size() >= count; });
    }

    ScriptedDispatcher m_Server;
    TOpenDBus m_Ipc;
};

TEST_F(DBusThreads, ShortCallsAndEventsAreNotHeldUpByALongCall) {
    std::atomic<int> result{-1000};
    std::thread longCall([&] { result = Call("SLOW", 30); });
    ASSERT_TRUE(m_Server.WaitForRequest("SLOW"));
    EXPECT_LT(Duration([&] {
                  for (int i = 0; i < 50; ++i) {
                      EXPECT_EQ(Call("QUICK", 30), 0);
                      m_Ipc.SendEvent("E", "");
                  }
              }),
              seconds(20));
    EXPECT_EQ(result, -1000);
    m_Server.Release();
    longCall.join();
    EXPECT_EQ(result, 0);
}

TEST_F(DBusThreads, EachCallEndsAtItsOwnTimeout) {
    std::thread longCall([&] { EXPECT_EQ(Call("SLOW", 30), 0); });
    ASSERT_TRUE(m_Server.WaitForRequest("SLOW"));
    m_Server.Answer("NEVER", "", 0, TManner::KEEP_SILENT);
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            const milliseconds took = Duration([&] { EXPECT_EQ(Call("NEVER", 1), -1); });
            EXPECT_GE(took, milliseconds(990));
            EXPECT_LT(took, milliseconds(5000));
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    m_Server.Release();
    longCall.join();
}

// The server gets all events, so they must not run too far ahead of the calls.
TEST_F(DBusThreads, EventsAndCallsDoNotLoseEachOthersReplies) {
    std::atomic<bool> done{false};
    std::atomic<int> calls{0};
    std::thread sender([&] {
        for (int sent = 0; !done;) {
            if (sent < 10 * (calls + 1)) {
                m_Ipc.SendEvent("E", "");
                ++sent;
            } else {
                std::this_thread::yield();
            }
        }
    });
    for (; calls < 300; ++calls) {
        EXPECT_LT(Duration([&] { EXPECT_EQ(Call("QUICK", 5), 0); }), seconds(4));
    }
    done = true;
    sender.join();
}

TEST_F(DBusThreads, LoseTheBusTogetherAndAtOnce) {
    std::atomic<bool> gone{false};
    std::atomic<int> failed{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            bool lost = false;
            while (!lost) {
                try {
                    m_Ipc.SendEvent("E", "");
                    lost = Call("QUICK", 30) != 0;
                } catch (const std::runtime_error&) {
                    lost = true;
                }
            }
            failed += gone ? 1 : 0;
        });
    }
    ASSERT_TRUE(WaitForRequests(100));
    gone = true;
    m_Bus.Kill();
    EXPECT_LT(Duration([&] {
                  for (std::thread& thread : threads) {
                      thread.join();
                  }
              }),
              seconds(15));
    EXPECT_EQ(failed, 8);
}

class DBusWorkers : public DBus {
protected:
    DBusWorkers() {
        m_Ipc.Init("OSTEL_KTA");
        m_Ipc.Configure({4, 60, false});
    }
    ~DBusWorkers() override { m_Ipc.Stop(); }

    TOpenDBus m_Ipc;
};

TEST_F(DBusWorkers, AnswerAsFastAsOneWould) {
    TCallHandler handler([](const std::string&, std::string&) { return 7; });
    m_Ipc.AddMethodHandler("M", &handler);
    m_Ipc.SetDispatchTimeout(seconds(60));
    m_Ipc.Run();
    TOpenDBus caller;
    caller.SetMethodServerId("*", "OSTEL_KTA");
    std::string reply;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(caller.CallMethod("M", "", reply), 7);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, seconds(30));
}

TEST_F(DBusWorkers, AreStoppedByOneOfTheirCallbacksAndJoinedFromOutside) {
    TCallHandler handler([&](const std::string&, std::string&) {
        m_Ipc.Stop();
        return 7;
    });
    m_Ipc.AddMethodHandler("STOP", &handler);
    m_Ipc.Run();
    RawPeer peer;
    EXPECT_EQ(CallAs(peer, "OSTEL_KTA", "STOP", "").second, 7);
    EXPECT_FALSE(m_Ipc.IsRunning());
    EXPECT_EQ(m_Ipc.Workers(), 4U);
    m_Ipc.Stop();
    EXPECT_EQ(m_Ipc.Workers(), 0U);
}

TEST_F(DBusWorkers, ServeTheNewNameThatACallbackGives) {
    TCallHandler handler([&](const std::string&, std::string&) {
        m_Ipc.Init("OSTEL_MVA");
        return 7;
    });
    m_Ipc.AddMethodHandler("RENAME", &handler);
    m_Ipc.Run();
    RawPeer peer;
    EXPECT_EQ(CallAs(peer, "OSTEL_KTA", "RENAME", "").second, 7);
    EXPECT_EQ(CallAs(peer, "OSTEL_MVA", "OTHER", "").second, -1);
    EXPECT_TRUE(m_Ipc.IsRunning());
}

// However often callbacks do so; threads that left their loops would stay behind otherwise.
TEST_F(DBusWorkers, StayAsManyWhenCallbacksStopAndRun) {
    m_Ipc.Configure({4, 60, false});
    std::atomic<int> calls{0};
    TCallHandler restart([&](const std::string&, std::string&) {
        m_Ipc.Stop();
        m_Ipc.Run();
        return ++calls;
    });
    TCallHandler rename([&](const std::string&, std::string&) {
        m_Ipc.Init(++calls % 2 == 0 ? "OSTEL_KTA" : "OSTEL_MVA");
        return 0;
    });
    m_Ipc.AddMethodHandler("RESTART", &restart);
    m_Ipc.AddMethodHandler("RENAME", &rename);
    RawPeer peer;
    const auto without = Resources::Threads();
    m_Ipc.Run();
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(CallAs(peer, "OSTEL_KTA", "RESTART", "").second, i + 1);
    }
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(CallAs(peer, i % 2 == 0 ? "OSTEL_KTA" : "OSTEL_MVA", "RENAME", "").second, 0);
    }
    EXPECT_TRUE(WaitUntil([&] { return Resources::Threads() == without + 4; }))
        << Resources::Threads() - without;
    m_Ipc.Stop();
    // A joined thread may be listed for a moment.
    EXPECT_TRUE(WaitUntil([&] { return Resources::Threads() == without; }));
}

TEST_F(DBusWorkers, AreWokenWhenTheNameChanges) {
    // The next name is somebody else's, who must not be told to disconnect.
    const RawPeer owner("OSTEL_MVA");
    m_Ipc.SetDispatchTimeout(seconds(60));
    m_Ipc.Run();
    const auto start = std::chrono::steady_clock::now();
    m_Ipc.Init("OSTEL_MVA");
    EXPECT_LT(std::chrono::steady_clock::now() - start, seconds(20));
    m_Ipc.SendEvent("LAST", "");
    ASSERT_TRUE(owner.WaitForMember("LAST"));
    for (const RawPeer::TMessage& message : owner.Received()) {
        EXPECT_NE(message.member, "Disconnected");
    }
}

TEST_F(DBusWorkers, BearThatTheObjectDisconnects) {
    RawPeer peer;
    for (int round = 0; round < 10; ++round) {
        m_Ipc.Run();
        m_Ipc.Disconnect();
        EXPECT_TRUE(m_Ipc.IsRunning());
        m_Ipc.Init(round % 2 == 0 ? "OSTEL_MVA" : "OSTEL_KTA");
        EXPECT_EQ(CallAs(peer, round % 2 == 0 ? "OSTEL_MVA" : "OSTEL_KTA", "OTHER", "").second, -1);
        m_Ipc.Stop();
    }
}

TEST_F(DBusThreads, ALateAnswerIsNotTakenForTheNextOne) {
    TOstelIpc::TMethodSettings settings;
    settings.timeout = 0;
    std::string reply = "as it was";
    EXPECT_EQ(m_Ipc.CallMethod("SLOW", "", reply, settings), -1);
    EXPECT_EQ(reply, "as it was");
    ASSERT_TRUE(m_Server.WaitForRequest("SLOW"));
    m_Server.Release();
    EXPECT_EQ(m_Ipc.CallMethod("QUICK", "", reply), 0);
    EXPECT_EQ(reply, "quick");
}

// Another thread waits for a reply or sends meanwhile.
TEST_F(DBusThreads, BearThatTheObjectDisconnects) {
    m_Ipc.Run();
    for (int round = 1; round <= 10; ++round) {
        std::thread call(
            [&] { EXPECT_LT(Duration([&] { EXPECT_EQ(Call("SLOW", 30), -1); }), seconds(5)); });
        std::thread sender([&] {
            for (int i = 0; i < 20; ++i) {
                try {
                    m_Ipc.SendEvent("E", "");
                } catch (const std::runtime_error&) {
                    // It was this event's turn to find no connection.
                }
            }
        });
        EXPECT_TRUE(WaitForRequests(static_cast<std::size_t>(round)));
        m_Ipc.Disconnect();
        call.join();
        sender.join();
    }
    m_Server.Release();
}

TEST_F(DBusWorkers, BearThatACallbackDisconnects) {
    TCallHandler handler([&](const std::string&, std::string&) {
        m_Ipc.Disconnect();
        return 7;
    });
    m_Ipc.AddMethodHandler("LEAVE", &handler);
    m_Ipc.Configure({3, 60, false});
    m_Ipc.Run();
    RawPeer peer;
    CallAs(peer, "OSTEL_KTA", "LEAVE", "");
    EXPECT_TRUE(m_Ipc.IsRunning());
    m_Ipc.Stop();
    EXPECT_EQ(m_Ipc.Workers(), 0U);
}

TEST_F(DBusWorkers, LogAReplyUnderTheirClassesModule) {
    m_Ipc.Run();
    RawPeer peer;
    EXPECT_EQ(CallAs(peer, "OSTEL_KTA", "OTHER", "").second, -1);
    EXPECT_THAT(RecordingLog::Texts(6),
                testing::Contains(testing::MatchesRegex(
                    "\\[ipc-lib/d-bus/TOstelDBus:[0-9]+\\]\\[Reply\\]: '' - '-1'")));
}

// The call that stops them goes to the owner, and the workers cannot wait for it.
TEST_F(DBusWorkers, StopAtOnceWhenTheNameIsSomebodyElses) {
    const RawPeer owner("OSTEL_MVA");
    m_Ipc.Init("OSTEL_MVA");
    m_Ipc.SetDispatchTimeout(seconds(60));
    m_Ipc.Run();
    const auto start = std::chrono::steady_clock::now();
    m_Ipc.Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - start, seconds(20));
    ASSERT_TRUE(owner.WaitForMember("Disconnected"));
    const RawPeer::TMessage call = owner.Received().back();
    EXPECT_EQ(call.type, DBUS_MESSAGE_TYPE_METHOD_CALL);
    EXPECT_EQ(call.signature, "");
    EXPECT_FALSE(call.wantsReply);
    m_Ipc.Stop();
    m_Ipc.SendEvent("LAST", "");
    ASSERT_TRUE(owner.WaitForMember("LAST"));
    int stops = 0;
    for (const RawPeer::TMessage& message : owner.Received()) {
        stops += message.member == "Disconnected" ? 1 : 0;
    }
    EXPECT_EQ(stops, 1);
}

// At once, or when the object runs again, if another message ended the worker's wait first.
TEST_F(DBusWorkers, HandleTheCallThatStopSends) {
    std::atomic<int> calls{0};
    TCallHandler handler([&](const std::string&, std::string&) {
        ++calls;
        return 0;
    });
    m_Ipc.AddMethodHandler("Disconnected", &handler);
    m_Ipc.Run();
    m_Ipc.Stop();
    m_Ipc.Run();
    EXPECT_TRUE(WaitUntil([&] { return calls == 1; }));
    m_Ipc.RemoveMethodHandler("Disconnected");
}

TEST_F(DBusWorkers, StopWhileCallsPourIn) {
    TCallHandler handler([](const std::string&, std::string&) { return 7; });
    m_Ipc.AddMethodHandler("M", &handler);
    RawPeer peer;
    for (int round = 0; round < 20; ++round) {
        m_Ipc.Run();
        for (int i = 0; i < 20; ++i) {
            peer.Send(RawPeer::NewCall("OSTEL_KTA", "M"));
        }
        m_Ipc.Stop();
        ASSERT_EQ(m_Ipc.Workers(), 0U);
    }
}

TEST_F(DBusWorkers, ReportAReplyThatTheLostBusCannotTake) {
    TCallHandler handler([&](const std::string&, std::string&) {
        m_Bus.Kill();
        EXPECT_EQ(RuntimeErrorOf([&] { m_Ipc.SendEvent("E", ""); }), "dbus_connection_send failed");
        return 0;
    });
    m_Ipc.AddMethodHandler("KILL", &handler);
    m_Ipc.Configure({1, 60, false});
    m_Ipc.Run();
    RawPeer peer;
    peer.Send(RawPeer::NewCall("OSTEL_KTA", "KILL"));
    EXPECT_TRUE(
        WaitUntil([] { return RecordingLog::Count(2, "dbus_connection_send failed") == 2; }));
}

}  // namespace
