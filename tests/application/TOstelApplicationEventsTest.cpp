// Events that come over the bus, the observers of applications and of other units, and events and
// questions to other applications.
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <stdexcept>
#include <tuple>

#include "ApplicationTest.h"
#include "PrivateMember.h"

using TRemoteObserverMap =
    std::map<IOstelDataModelChangeObserverRemote*, std::set<std::string>> TOstelApplication::*;

// A remote subscription needs another unit; the map that it would fill is filled from here.
struct TRemoteObservers {
    friend TRemoteObserverMap MemberOf(TRemoteObservers);
};
template struct PrivateMember<TRemoteObservers, &TOstelApplication::m_RemoteObservers>;

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using TAppState = IOstelAppStateObserver::TOstelAppState;

struct TAppStateObserver : IOstelAppStateObserver {
    void OnAppStateChanged(TOstelAppState state, const std::string& appName) override {
        seen.emplace_back(state, appName);
    }
    std::vector<std::pair<int, std::string>> seen;
};

struct TRemoteObserver : IOstelDataModelChangeObserverRemote {
    void OnDataModelChangeRemote(const std::string& name, const std::string& value,
                                 const std::string& serialNumber) override {
        seen.emplace_back(name, value, serialNumber);
    }
    std::vector<std::tuple<std::string, std::string, std::string>> seen;
};

struct TObserver : IOstelObserver {
    void OnEvent(const std::string& name, const std::string& data) override {
        seen.emplace_back(name, data);
    }
    std::vector<std::pair<std::string, std::string>> seen;
};

class TOstelApplicationEvents : public ApplicationTest {
protected:
    TOstelApplicationEvents() {
        m_App.AddAppStateChangeObserver(&m_AppStateObserver);
        m_App.AddObserver(&m_Observer);
    }

    ~TOstelApplicationEvents() override {
        m_App.RemoveAppStateChangeObserver(&m_AppStateObserver);
        m_App.RemoveObserver(&m_Observer);
        (m_App.*MemberOf(TRemoteObservers())).clear();
    }

    void Subscribe(TRemoteObserver& observer, const std::set<std::string>& names) {
        (m_App.*MemberOf(TRemoteObservers()))[&observer] = names;
    }

    // The one worker takes things in their order: it answers when it is through with what came
    // before.
    void WaitForWorker() { ASSERT_EQ(m_Dispatcher.Call("OSTEL_KTA", "IS_APP_ACTIVE", ""), 0); }

    TAppStateObserver m_AppStateObserver;
    TObserver m_Observer;
};

TEST_F(TOstelApplicationEvents, ApplicationsThatComeAndGoReachTheObservers) {
    m_Dispatcher.SendEvent("APP_CONNECTED", "OSTEL_MVA");
    m_Dispatcher.SendEvent("APP_DISCONNECTED", "OSTEL_MVA");
    WaitForWorker();
    EXPECT_THAT(m_AppStateObserver.seen,
                ElementsAre(Pair(IOstelAppStateObserver::APP_STATE_CONNECTED, "OSTEL_MVA"),
                            Pair(IOstelAppStateObserver::APP_STATE_DISCONNECTED, "OSTEL_MVA")));
}

TEST_F(TOstelApplicationEvents, EveryEventButTheConnectedOneMeansDisconnected) {
    for (const char* name : {"APP_DISCONNECTED", "", "ANY", "APP_CONNECTED ", "app_connected"}) {
        m_AppStateObserver.seen.clear();
        m_App.OnAppStateChange(name, "X");
        EXPECT_THAT(m_AppStateObserver.seen,
                    ElementsAre(Pair(IOstelAppStateObserver::APP_STATE_DISCONNECTED, "X")));
    }
}

TEST_F(TOstelApplicationEvents, AnAppStateObserverAddedTwiceIsToldOnceAndRemovedAtOnce) {
    m_App.AddAppStateChangeObserver(&m_AppStateObserver);
    m_App.NotifyAppStateChangeObservers(TAppState::APP_STATE_CONNECTED, "X");
    EXPECT_THAT(m_AppStateObserver.seen, SizeIs(1));
    m_App.RemoveAppStateChangeObserver(&m_AppStateObserver);
    m_App.RemoveAppStateChangeObserver(&m_AppStateObserver);
    m_App.NotifyAppStateChangeObservers(TAppState::APP_STATE_CONNECTED, "X");
    EXPECT_THAT(m_AppStateObserver.seen, SizeIs(1));
}

TEST_F(TOstelApplicationEvents, AppStateObserversAreToldInTheOrderOfTheirAddresses) {
    struct TOrdered : IOstelAppStateObserver {
        void OnAppStateChanged(TOstelAppState, const std::string&) override {
            order->push_back(this);
        }
        std::vector<const TOrdered*>* order = nullptr;
    };
    std::vector<const TOrdered*> order;
    std::array<TOrdered, 3> observers;
    for (const std::size_t i : {2U, 0U, 1U}) {
        observers.at(i).order = &order;
        m_App.AddAppStateChangeObserver(&observers.at(i));
    }
    m_App.OnAppStateChange("APP_CONNECTED", "X");
    EXPECT_THAT(order, ElementsAre(&observers[0], &observers[1], &observers[2]));
    for (TOrdered& observer : observers) {
        m_App.RemoveAppStateChangeObserver(&observer);
    }
}

TEST_F(TOstelApplicationEvents,
       AnExceptionOfAnAppStateObserverPassesAndLeavesTheObserversUnlocked) {
    struct TThrower : IOstelAppStateObserver {
        void OnAppStateChanged(TOstelAppState, const std::string&) override {
            throw std::runtime_error("thrown");
        }
    } thrower;
    m_App.AddAppStateChangeObserver(&thrower);
    EXPECT_THROW(m_App.OnAppStateChange("APP_CONNECTED", "X"), std::runtime_error);
    m_App.RemoveAppStateChangeObserver(&thrower);
    m_App.OnAppStateChange("APP_CONNECTED", "X");
    EXPECT_FALSE(m_AppStateObserver.seen.empty());
}

TEST_F(TOstelApplicationEvents, TheWorkerOutlivesWhatObserversThrow) {
    struct TThrower : IOstelAppStateObserver, IOstelObserver, IOstelDataModelChangeObserver {
        void OnAppStateChanged(TOstelAppState, const std::string&) override {
            throw std::runtime_error("state thrown");
        }
        void OnEvent(const std::string&, const std::string&) override { throw 7; }
        void OnDataModelParamChanged(const std::string&, const std::string&) override {
            throw std::logic_error("change thrown");
        }
    } thrower;
    m_App.AddAppStateChangeObserver(&thrower);
    m_App.AddObserver(&thrower);
    m_App.AddDataModelChangeObserver(&thrower);
    m_Dispatcher.SendEvent("APP_CONNECTED", "X");
    m_Dispatcher.SendEvent("EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT", "{}");
    m_Dispatcher.SendEvent("EVENT_TYPE_PARAM_CHANGED", "{}");
    WaitForWorker();
    EXPECT_EQ(RecordingLog::Count(2, "state thrown"), 1);
    EXPECT_EQ(RecordingLog::Count(2, "change thrown"), 1);
    EXPECT_THAT(RecordingLog::Texts(2), SizeIs(3));
    m_App.RemoveAppStateChangeObserver(&thrower);
    m_App.RemoveObserver(&thrower);
    m_App.RemoveDataModelChangeObserver(&thrower);
    m_Dispatcher.SendEvent("EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT", R"({"URL":"after"})");
    WaitForWorker();
    ASSERT_FALSE(m_Observer.seen.empty());
    EXPECT_EQ(m_Observer.seen.back().second, "after");
}

TEST_F(TOstelApplicationEvents, ARemoteChangeReachesTheObserversOfItsName) {
    TRemoteObserver both;
    TRemoteObserver other;
    Subscribe(both, {"Device.A", "Device.B"});
    Subscribe(other, {"Device.C", "Device.*"});
    m_Dispatcher.SendEvent("REMOTE_DATA_MODEL_CHANGED",
                           R"({"NAME":"Device.B","VALUE":"2","SERIAL_NUMBER":"SN"})");
    WaitForWorker();
    EXPECT_THAT(both.seen, ElementsAre(std::tuple("Device.B", "2", "SN")));
    EXPECT_THAT(other.seen, IsEmpty());
}

TEST_F(TOstelApplicationEvents, ARemoteChangeWithoutASerialNumberStillNotifies) {
    TRemoteObserver observer;
    Subscribe(observer, {"Device.A"});
    m_App.OnRemoteDataModelChange("ANY", R"({"NAME":"Device.A","VALUE":"1"})");
    m_App.OnRemoteDataModelChange("ANY", R"({"NAME":"Device.A","SERIAL_NUMBER":5})");
    EXPECT_THAT(observer.seen,
                ElementsAre(std::tuple("Device.A", "1", ""), std::tuple("Device.A", "", "")));
}

TEST_F(TOstelApplicationEvents, ARemoteChangeThatNobodySubscribedToNotifiesNobody) {
    TRemoteObserver observer;
    Subscribe(observer, {"Device.A", ""});
    m_App.OnRemoteDataModelChange("ANY", R"({"NAME":"Device.A.","VALUE":"1"})");
    m_App.NotifyDataModelChangeObserversRemote("device.a", "1", "SN");
    EXPECT_THAT(observer.seen, IsEmpty());
}

TEST_F(TOstelApplicationEvents, AMalformedRemoteChangeIsAChangeOfNoParameter) {
    TRemoteObserver observer;
    TRemoteObserver observerOfNone;
    Subscribe(observer, {"Device.A"});
    Subscribe(observerOfNone, {""});
    const std::string deep(100000, '[');
    for (const std::string& data : {std::string(), std::string("{"), std::string("text"), deep}) {
        m_App.OnRemoteDataModelChange("REMOTE_DATA_MODEL_CHANGED", data);
    }
    EXPECT_THAT(observer.seen, IsEmpty());
    EXPECT_THAT(observerOfNone.seen, testing::AllOf(SizeIs(4), Each(std::tuple("", "", ""))));
}

TEST_F(TOstelApplicationEvents, ARemoteObserverIsToldFromACopyOfTheMap) {
    struct TRemover : IOstelDataModelChangeObserverRemote {
        void OnDataModelChangeRemote(const std::string&, const std::string&,
                                     const std::string&) override {
            ++count;
            observers->clear();
        }
        std::map<IOstelDataModelChangeObserverRemote*, std::set<std::string>>* observers = nullptr;
        int count = 0;
    };
    std::array<TRemover, 3> removers;
    auto& observers = m_App.*MemberOf(TRemoteObservers());
    for (TRemover& remover : removers) {
        remover.observers = &observers;
        observers[&remover] = {"A"};
    }
    m_App.NotifyDataModelChangeObserversRemote("A", "1", "SN");
    for (const TRemover& remover : removers) {
        EXPECT_EQ(remover.count, 1);
    }
}

TEST_F(TOstelApplicationEvents, RemoteObserversAreToldInTheOrderOfTheirAddresses) {
    struct TOrdered : IOstelDataModelChangeObserverRemote {
        void OnDataModelChangeRemote(const std::string&, const std::string&,
                                     const std::string&) override {
            order->push_back(this);
        }
        std::vector<const TOrdered*>* order = nullptr;
    };
    std::vector<const TOrdered*> order;
    std::array<TOrdered, 3> observers;
    for (const std::size_t i : {2U, 0U, 1U}) {
        observers.at(i).order = &order;
        (m_App.*MemberOf(TRemoteObservers()))[&observers.at(i)] = {"A"};
    }
    m_App.NotifyDataModelChangeObserversRemote("A", "1", "SN");
    EXPECT_THAT(order, ElementsAre(&observers[0], &observers[1], &observers[2]));
}

// So that none is called any more when its removal has returned.
TEST_F(TOstelApplicationEvents, ObserversAreToldUnderTheListenersLock) {
    struct TWaiting : IOstelAppStateObserver, IOstelDataModelChangeObserverRemote {
        void OnAppStateChanged(TOstelAppState, const std::string&) override { Wait(); }
        void OnDataModelChangeRemote(const std::string&, const std::string&,
                                     const std::string&) override {
            Wait();
        }
        void Wait() {
            entered.set_value();
            mayLeave.get_future().wait();
        }
        std::promise<void> entered;
        std::promise<void> mayLeave;
    };
    const std::function<void(TWaiting&)> changes[] = {
        [&](TWaiting&) { m_App.OnAppStateChange("APP_CONNECTED", "X"); },
        [&](TWaiting& observer) {
            (m_App.*MemberOf(TRemoteObservers()))[&observer] = {"A"};
            m_App.NotifyDataModelChangeObserversRemote("A", "1", "SN");
            (m_App.*MemberOf(TRemoteObservers())).clear();
        },
    };
    for (const auto& change : changes) {
        TWaiting observer;
        m_App.AddAppStateChangeObserver(&observer);
        auto told = std::async(std::launch::async, [&] { change(observer); });
        observer.entered.get_future().wait();
        TAppStateObserver other;
        auto added =
            std::async(std::launch::async, [&] { m_App.AddAppStateChangeObserver(&other); });
        auto removed =
            std::async(std::launch::async, [&] { m_App.RemoveAppStateChangeObserver(&observer); });
        EXPECT_EQ(added.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
        EXPECT_EQ(removed.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
        observer.mayLeave.set_value();
        told.get();
        added.get();
        removed.get();
        m_App.RemoveAppStateChangeObserver(&other);
    }
}

TEST_F(TOstelApplicationEvents, ANullObserverIsRefusedWhenItIsAdded) {
    m_App.AddAppStateChangeObserver(nullptr);
    m_App.AddObserver(nullptr);
    m_App.AddCpeClientStateObserver(nullptr);
    m_App.AddDataModelChangeObserver(nullptr);
    EXPECT_EQ(RecordingLog::Count(2, "A null observer is not added."), 4);
    m_App.OnAppStateChange("APP_CONNECTED", "X");
    m_App.NotifyObservers("E", "");
    m_App.NotifyCpeClientStateObservers(IOstelCpeClientStateObserver::CONNECTED, "", "");
    m_App.NotifyDataModelChangeObservers("Device.A", "1");
    EXPECT_THAT(m_AppStateObserver.seen, SizeIs(1));
}

TEST_F(TOstelApplicationEvents, AnEventIsSentToEveryApplicationTheSenderIncluded) {
    m_App.SendEvent("EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT", R"({"URL":"u"})");
    WaitForWorker();
    EXPECT_THAT(m_Observer.seen, ElementsAre(Pair("EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT", "u")));
}

TEST_F(TOstelApplicationEvents, AnEventThatTheBusCannotCarryIsLogged) {
    m_App.SendEvent("NOT A NAME", "data");
    m_App.SendEvent("", "data");
    m_App.SendEvent(std::string("A\0B", 3), "data");
    m_App.SendEvent(std::string(256, 'A'), "data");
    const std::string noName = "DBusMessage pointer is NULL!";
    EXPECT_THAT(RecordingLog::Texts(2), ElementsAre(noName, noName, noName, noName));
    RecordingLog::Clear();
    m_App.SendEvent("NAME", "\xff");
    m_App.SendEvent("NAME", std::string("a\0b", 3));
    EXPECT_EQ(RecordingLog::Count(2, "dbus_message_iter_append_basic failed"), 4);
    WaitForWorker();
}

TEST_F(TOstelApplicationEvents, AnEventWithoutABusIsLogged) {
    m_Bus.Kill();
    m_App.SendEvent("NAME", "data");
    // Once by the transport and once by the application object.
    EXPECT_EQ(RecordingLog::Count(2, "dbus_connection_send failed"), 2);
}

TEST_F(TOstelApplicationEvents, EventsOfTenMegabytesAndOfGreatDepthAreSurvived) {
    const std::string url(10 << 20, 'u');
    m_Dispatcher.SendEvent("EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT", R"({"URL":")" + url + "\"}");
    for (const char* name : {"EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT", "EVENT_TYPE_PARAM_CHANGED",
                             "EVENT_TYPE_CLIENT_CONNECTED", "REMOTE_DATA_MODEL_CHANGED"}) {
        m_Dispatcher.SendEvent(name, std::string(100000, '['));
        m_Dispatcher.SendEvent(name, "");
    }
    m_Dispatcher.SendEvent("EVENT_TYPE_PARAM_CHANGED", std::string(10 << 20, 'x'));
    WaitForWorker();
    ASSERT_THAT(m_Observer.seen, SizeIs(1));
    EXPECT_TRUE(m_Observer.seen.front().second == url);
    EXPECT_THAT(RecordingLog::Texts(2), IsEmpty());
}

class TIsAppActive : public ApplicationTest {
protected:
    bool m_Active = true;
};

TEST_F(TIsAppActive, AnEmptyNameIsAFailureAndLeavesTheResultAlone) {
    EXPECT_EQ(m_App.IsAppActive("", m_Active), RC_FAILURE);
    EXPECT_TRUE(m_Active);
    m_Active = false;
    EXPECT_EQ(m_App.IsAppActive("", m_Active), RC_FAILURE);
    EXPECT_FALSE(m_Active);
}

TEST_F(TIsAppActive, ARunningApplicationIsAskedWithAnEmptyText) {
    ScriptedDispatcher other("OSTEL_MVA");
    other.Answer("IS_APP_ACTIVE", "not read");
    m_Active = false;
    EXPECT_EQ(m_App.IsAppActive("OSTEL_MVA", m_Active), RC_SUCCESS);
    EXPECT_TRUE(m_Active);
    ASSERT_THAT(other.Requests(), SizeIs(1));
    EXPECT_EQ(other.Requests()[0].text, "");
    EXPECT_EQ(other.Requests()[0].signature, "s");
    EXPECT_THAT(m_Dispatcher.Requests(), IsEmpty());
}

TEST_F(TIsAppActive, AnotherCodeIsReturnedAndMeansInactive) {
    ScriptedDispatcher other("OSTEL_MVA");
    other.Answer("IS_APP_ACTIVE", "", 5);
    EXPECT_EQ(m_App.IsAppActive("OSTEL_MVA", m_Active), RC_INVALID_PARAM_VALUE);
    EXPECT_FALSE(m_Active);
}

TEST_F(TIsAppActive, AnAbsentApplicationIsInactive) {
    EXPECT_EQ(m_App.IsAppActive("OSTEL_MVA", m_Active), RC_FAILURE);
    EXPECT_FALSE(m_Active);
    EXPECT_THAT(RecordingLog::Texts(2), SizeIs(1));
}

TEST_F(TIsAppActive, ASilentApplicationIsInactiveAfterASecond) {
    ScriptedDispatcher other("OSTEL_MVA");
    other.Answer("IS_APP_ACTIVE", "", 0, TManner::KEEP_SILENT);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(m_App.IsAppActive("OSTEL_MVA", m_Active), RC_FAILURE);
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_FALSE(m_Active);
    EXPECT_GE(elapsed, std::chrono::milliseconds(900));
    EXPECT_LT(elapsed, std::chrono::milliseconds(2900));
}

TEST_F(TIsAppActive, AnApplicationMayAskItself) {
    m_Active = false;
    EXPECT_EQ(m_App.IsAppActive("OSTEL_KTA", m_Active), RC_SUCCESS);
    EXPECT_TRUE(m_Active);
}

TEST_F(TIsAppActive, ANameThatTheBusDoesNotAllowIsARuntimeError) {
    const std::vector<std::string> names = {"A B",
                                            "..",
                                            ".A",
                                            "A.",
                                            "1",
                                            "\xff",
                                            std::string("A\0B", 3),
                                            std::string(255 - 16 + 1, 'A'),
                                            std::string(1 << 20, 'A')};
    for (const std::string& name : names) {
        EXPECT_EQ(m_App.IsAppActive(name, m_Active), RC_RUNTIME_ERROR) << name;
    }
    EXPECT_TRUE(m_Active);
    EXPECT_EQ(static_cast<std::size_t>(RecordingLog::Count(2, "DBusMessage pointer is NULL!")),
              names.size());
}

TEST_F(TIsAppActive, TheLongestNameThatTheBusAllowsIsAsked) {
    EXPECT_EQ(m_App.IsAppActive(std::string(255 - 16, 'A'), m_Active), RC_FAILURE);
    EXPECT_FALSE(m_Active);
}

}  // namespace
