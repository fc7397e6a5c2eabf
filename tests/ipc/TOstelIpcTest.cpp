#include "TOstelIpc.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>

#include "RecordingLog.h"
#include "WaitUntil.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// An IPC object whose transport does nothing.
class TIpc : public TOstelIpc {
public:
    ~TIpc() override { TOstelIpc::Stop(); }
    void SendEvent(const std::string&, const std::string&) override {}
    int CallMethod(const std::string&, const std::string&, std::string&) override { return 0; }
    int CallMethod(const std::string&, const std::string&, std::string&,
                   TMethodSettings&) override {
        return 0;
    }
    void MainLoop() override {
        ++loops;
        while (m_Running) {
            std::this_thread::yield();
        }
    }

    const std::string& Name() const { return m_Name; }
    std::vector<std::string> EventsWithListeners() const {
        std::vector<std::string> names;
        for (const auto& entry : m_Listeners) {
            names.push_back(entry.first);
        }
        return names;
    }
    int TimeoutMs() const { return m_TimeoutMs; }
    std::size_t Workers() const { return m_Workers.size(); }

    std::atomic<int> loops{0};
};

class TListener : public IOstelIpcEventListener {
public:
    void OnEvent(const std::string& name, const std::string& data) override {
        events.push_back(name + "=" + data);
        if (then) {
            then();
        }
    }
    std::vector<std::string> events;
    std::function<void()> then;
};

class THandler : public IOstelIpcMethodHandler {
public:
    explicit THandler(int code) : result(code) {}
    int OnMethodCall(const std::string& method, const std::string& data,
                     std::string& reply) override {
        if (then) {
            then();
        }
        reply = method + ":" + data;
        return result;
    }
    int result;
    std::function<void()> then;
};

TEST(TOstelIpc, NamesTheConnectionEvents) {
    EXPECT_EQ(TOstelIpc::ON_APP_CONNECTED_EVENT, "APP_CONNECTED");
    EXPECT_EQ(TOstelIpc::ON_APP_DISCONNECTED_EVENT, "APP_DISCONNECTED");
}

TEST(TOstelIpc, StartsWithItsDefaults) {
    TIpc ipc;
    TOstelIpc::TOstelIpcSettings settings{7, 7, true};
    ipc.GetSettings(settings);
    EXPECT_EQ(settings.threads, 1);
    EXPECT_EQ(settings.timeout, 60U);
    EXPECT_FALSE(settings.monitor);
    EXPECT_EQ(ipc.TimeoutMs(), 60000);
    EXPECT_EQ(ipc.Name(), "");
}

TEST(TOstelIpc, StoresTheNameGivenToInit) {
    TIpc ipc;
    ipc.Init("OSTEL_KTA");
    EXPECT_EQ(ipc.Name(), "OSTEL_KTA");
}

TEST(TOstelIpc, ReportsWhatWasConfigured) {
    TIpc ipc;
    ipc.Configure({3, 5, true});
    TOstelIpc::TOstelIpcSettings settings;
    ipc.GetSettings(settings);
    EXPECT_EQ(settings.threads, 3);
    EXPECT_EQ(settings.timeout, 5U);
    EXPECT_TRUE(settings.monitor);
    EXPECT_EQ(ipc.TimeoutMs(), 5000);
}

TEST(TOstelIpc, ClampsATimeoutThatDoesNotFit) {
    TIpc ipc;
    for (const std::uint32_t timeout : {2147484U, 4294967U, 4294968U, 4294967295U}) {
        ipc.Configure({1, timeout, false});
        EXPECT_EQ(ipc.TimeoutMs(), 2147483000) << timeout;
    }
}

TEST(TOstelIpc, EmptyEventNameMeansEveryEvent) {
    TIpc ipc;
    TListener all;
    TListener star;
    ipc.AddEventLstener(&all, "");
    ipc.AddEventLstener(&star, "*");
    ipc.OnEvent("E", "d");
    EXPECT_THAT(all.events, ElementsAre("E=d"));
    EXPECT_THAT(star.events, ElementsAre("E=d"));
    ipc.RemoveEventLstener(&all, "*");
    ipc.RemoveEventLstener(&star, "");
    ipc.OnEvent("E", "d");
    EXPECT_EQ(all.events.size(), 1U);
    EXPECT_EQ(star.events.size(), 1U);
}

TEST(TOstelIpc, TellsAListenerOfAllEventsFirstAndAgainUnderTheName) {
    TIpc ipc;
    TListener both;
    std::vector<std::string> order;
    TListener named;
    TListener all;
    named.then = [&] { order.emplace_back("named"); };
    all.then = [&] { order.emplace_back("all"); };
    ipc.AddEventLstener(&named, "E");
    ipc.AddEventLstener(&all, "*");
    ipc.AddEventLstener(&both, "E");
    ipc.AddEventLstener(&both, "*");
    ipc.OnEvent("E", "d");
    EXPECT_THAT(order, ElementsAre("all", "named"));
    EXPECT_THAT(both.events, ElementsAre("E=d", "E=d"));
    ipc.OnEvent("F", "d");
    EXPECT_THAT(both.events, ElementsAre("E=d", "E=d", "F=d"));
    EXPECT_THAT(named.events, ElementsAre("E=d"));
}

TEST(TOstelIpc, KeepsAListenerOncePerName) {
    TIpc ipc;
    TListener listener;
    ipc.AddEventLstener(&listener, "E");
    ipc.AddEventLstener(&listener, "E");
    ipc.OnEvent("E", "d");
    EXPECT_EQ(listener.events.size(), 1U);
    ipc.RemoveEventLstener(&listener, "E");
    ipc.RemoveEventLstener(&listener, "E");
    ipc.RemoveEventLstener(&listener, "never added");
    ipc.OnEvent("E", "d");
    EXPECT_EQ(listener.events.size(), 1U);
}

TEST(TOstelIpc, ANullListenerIsLoggedAndNotAdded) {
    TIpc ipc;
    ipc.AddEventLstener(nullptr, "E");
    ipc.AddEventLstener(nullptr, "");
    EXPECT_EQ(RecordingLog::Count(2, "A null listener is not added."), 2);
    EXPECT_EQ(RecordingLog::LastFormat(2), "%s");
    ipc.RemoveEventLstener(nullptr, "E");
    ipc.OnEvent("E", "");
}

TEST(TOstelIpc, TellsListenersInTheOrderOfTheirAddresses) {
    TIpc ipc;
    TListener listeners[4];
    std::vector<int> order;
    for (int i = 3; i >= 0; --i) {
        listeners[i].then = [&order, i] { order.push_back(i); };
        ipc.AddEventLstener(&listeners[i], "E");
    }
    ipc.OnEvent("E", "");
    EXPECT_THAT(order, ElementsAre(0, 1, 2, 3));
}

TEST(TOstelIpc, LogsAnEventEvenWhenNobodyListens) {
    TIpc ipc;
    ipc.OnEvent("E", "data");
    const auto texts = RecordingLog::Texts(6);
    ASSERT_EQ(texts.size(), 1U);
    EXPECT_THAT(texts[0],
                testing::MatchesRegex("\\[ipc-lib/TOstelIpc:[0-9]+\\]\\[OnEvent\\]: 'E' - 'data'"));
}

TEST(TOstelIpc, ListenersMayComeAndGoWhileTheyAreTold) {
    TIpc ipc;
    TListener listeners[3];
    listeners[0].then = [&] {
        ipc.RemoveEventLstener(&listeners[0], "E");
        ipc.RemoveEventLstener(&listeners[1], "E");
        ipc.AddEventLstener(&listeners[2], "E");
        for (int i = 0; i < 1000; ++i) {
            ipc.AddEventLstener(&listeners[0], "other" + std::to_string(i));
        }
    };
    ipc.AddEventLstener(&listeners[0], "E");
    ipc.AddEventLstener(&listeners[1], "E");
    ipc.OnEvent("E", "");
    EXPECT_EQ(listeners[0].events.size(), 1U);
    EXPECT_EQ(listeners[1].events.size(), 0U);
    EXPECT_EQ(listeners[2].events.size(), 1U);
}

TEST(TOstelIpc, AListenersExceptionPassesAndFreesTheLock) {
    TIpc ipc;
    TListener listener;
    listener.then = [] { throw std::runtime_error("x"); };
    ipc.AddEventLstener(&listener, "E");
    EXPECT_THROW(ipc.OnEvent("E", ""), std::runtime_error);
    std::thread([&] { ipc.RemoveEventLstener(&listener, "E"); }).join();
    EXPECT_NO_THROW(ipc.OnEvent("E", ""));
}

TEST(TOstelIpc, CallsTheHandlerThatWasAddedLast) {
    TIpc ipc;
    THandler first(1);
    THandler second(2);
    bool wasFirstCalled = false;
    first.then = [&] { wasFirstCalled = true; };
    ipc.AddMethodHandler("M", &first);
    ipc.AddMethodHandler("M", &second);
    std::string reply;
    EXPECT_EQ(ipc.OnMethodCall("M", "d", reply), 2);
    EXPECT_EQ(reply, "M:d");
    EXPECT_FALSE(wasFirstCalled);
}

TEST(TOstelIpc, AnswersMinusOneWithoutAHandler) {
    TIpc ipc;
    THandler handler(0);
    std::string reply = "as it was";
    EXPECT_EQ(ipc.OnMethodCall("M", "d", reply), -1);
    ipc.AddMethodHandler("M", &handler);
    ipc.AddMethodHandler("M", nullptr);
    EXPECT_EQ(ipc.OnMethodCall("M", "d", reply), -1);
    // Listeners and servers have a name for all, handlers have none.
    ipc.AddMethodHandler("*", &handler);
    EXPECT_EQ(ipc.OnMethodCall("M", "d", reply), -1);
    ipc.AddMethodHandler("M", &handler);
    ipc.RemoveMethodHandler("M");
    ipc.RemoveMethodHandler("M");
    EXPECT_EQ(ipc.OnMethodCall("M", "d", reply), -1);
    EXPECT_EQ(reply, "as it was");
    EXPECT_THAT(RecordingLog::Lines(), IsEmpty());
}

TEST(TOstelIpc, HandlersMayRegisterFromInsideACall) {
    TIpc ipc;
    THandler handler(0);
    handler.then = [&] {
        ipc.RemoveMethodHandler("M");
        ipc.AddMethodHandler("N", &handler);
        handler.then = nullptr;
    };
    ipc.AddMethodHandler("M", &handler);
    std::string reply;
    EXPECT_EQ(ipc.OnMethodCall("M", "", reply), 0);
    EXPECT_EQ(ipc.OnMethodCall("M", "", reply), -1);
    EXPECT_EQ(ipc.OnMethodCall("N", "", reply), 0);
}

TEST(TOstelIpc, AHandlersExceptionPassesAndFreesTheLock) {
    TIpc ipc;
    THandler handler(0);
    handler.then = [] { throw std::runtime_error("x"); };
    ipc.AddMethodHandler("M", &handler);
    std::string reply;
    EXPECT_THROW(ipc.OnMethodCall("M", "", reply), std::runtime_error);
    std::thread([&] { ipc.RemoveMethodHandler("M"); }).join();
    EXPECT_EQ(ipc.OnMethodCall("M", "", reply), -1);
}

TEST(TOstelIpc, TwoCallsAreNeverHandledAtTheSameTime) {
    TIpc ipc;
    THandler handler(0);
    std::atomic<int> inside{0};
    std::atomic<bool> overlapped{false};
    handler.then = [&] {
        overlapped = overlapped || ++inside > 1;
        std::this_thread::yield();
        --inside;
    };
    ipc.AddMethodHandler("M", &handler);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            std::string reply;
            for (int call = 0; call < 200; ++call) {
                ipc.OnMethodCall("M", "", reply);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(overlapped);
}

TEST(TOstelIpc, TwoEventsAreNeverHandledAtTheSameTime) {
    TIpc ipc;
    TListener listener;
    std::atomic<int> inside{0};
    std::atomic<bool> overlapped{false};
    listener.then = [&] {
        overlapped = overlapped || ++inside > 1;
        std::this_thread::yield();
        --inside;
    };
    ipc.AddEventLstener(&listener, "E");
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int event = 0; event < 200; ++event) {
                ipc.OnEvent("E", "");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(overlapped);
    EXPECT_EQ(listener.events.size(), 800U);
}

TEST(TOstelIpc, KeepsTheEntriesOfEventsWithoutListeners) {
    TIpc ipc;
    TListener listener;
    EXPECT_THAT(ipc.EventsWithListeners(), IsEmpty());
    ipc.OnEvent("E", "");
    EXPECT_THAT(ipc.EventsWithListeners(), ElementsAre("*"));
    ipc.RemoveEventLstener(&listener, "F");
    EXPECT_THAT(ipc.EventsWithListeners(), testing::UnorderedElementsAre("*", "F"));
    ipc.AddEventLstener(&listener, "G");
    ipc.RemoveEventLstener(&listener, "G");
    EXPECT_THAT(ipc.EventsWithListeners(), testing::UnorderedElementsAre("*", "F", "G"));
}

TEST(TOstelIpc, FindsTheServerOfAMethod) {
    TIpc ipc;
    std::string id = "as it was";
    ipc.GetMethodServerId("X", id);
    EXPECT_EQ(id, "as it was");
    ipc.SetMethodServerId("Y", "OSTEL_KTA");
    ipc.GetMethodServerId("X", id);
    EXPECT_EQ(id, "");
    ipc.SetMethodServerId("*", "OSTEL_DISPATCHER");
    ipc.GetMethodServerId("X", id);
    EXPECT_EQ(id, "OSTEL_DISPATCHER");
    ipc.GetMethodServerId("Y", id);
    EXPECT_EQ(id, "OSTEL_KTA");
    ipc.SetMethodServerId("Y", "OSTEL_MVA");
    ipc.GetMethodServerId("Y", id);
    EXPECT_EQ(id, "OSTEL_MVA");
}

TEST(TOstelIpc, RunsAsManyThreadsAsConfigured) {
    TIpc ipc;
    ipc.Configure({3, 60, false});
    ipc.Run();
    EXPECT_TRUE(WaitUntil([&] { return ipc.loops == 3; }));
    ipc.Run();
    EXPECT_TRUE(WaitUntil([&] { return ipc.loops == 6; }));
    EXPECT_EQ(ipc.Workers(), 6U);
    ipc.Stop();
    EXPECT_EQ(ipc.Workers(), 0U);
    ipc.Run();
    EXPECT_TRUE(WaitUntil([&] { return ipc.loops == 9; }));
}

TEST(TOstelIpc, RunsNoThreadWhenConfiguredSo) {
    TIpc ipc;
    for (const std::int32_t threads : {0, -1}) {
        ipc.Configure({threads, 60, false});
        ipc.Run();
        EXPECT_EQ(ipc.Workers(), 0U);
        TOstelIpc::TOstelIpcSettings settings;
        ipc.GetSettings(settings);
        EXPECT_EQ(settings.threads, threads);
    }
}

TEST(TOstelIpc, LeavesRunningThreadsAsTheyAreWhenConfigured) {
    TIpc ipc;
    ipc.Run();
    ipc.Configure({5, 60, false});
    EXPECT_EQ(ipc.Workers(), 1U);
    EXPECT_TRUE(WaitUntil([&] { return ipc.loops == 1; }));
    ipc.Stop();
    ipc.Run();
    EXPECT_EQ(ipc.Workers(), 5U);
}

TEST(TOstelIpc, StopsAtOnceWhenItNeverRan) {
    TIpc ipc;
    const auto start = std::chrono::steady_clock::now();
    ipc.Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
    EXPECT_EQ(ipc.Workers(), 0U);
}

}  // namespace
