// The flat interface's three callbacks.
#include <chrono>
#include <future>
#include <thread>
#include <tuple>

#include "OstelAppLibTest.h"

namespace {

using testing::ElementsAre;

using tCallbacks = std::vector<std::string>;
tCallbacks callbacks;

void OnDevice(tOstelAppClientDeviceState state, const char* mac, const char* host) {
    callbacks.push_back(std::to_string(state) + " " + mac + " " + host);
}
void OnChange(const char* name, const char* value) {
    callbacks.push_back(std::string(name) + "=" + value);
}
void OnUpdate(const char* url) {
    callbacks.push_back(std::string("url:") + url);
}
void UnsubscribeItself(const char*, const char*) {
    callbacks.emplace_back("once");
    ostelAppLibUnsubscribe();
}

class OstelAppLibNotifications : public OstelAppLib {
protected:
    ~OstelAppLibNotifications() override {
        ostelAppLibUnsubscribe();
        ostelAppLibTerm();
    }

    // One event for each of the callbacks, and which of them ran.
    tCallbacks TellOfEverything() {
        callbacks.clear();
        m_App.OnEvent("EVENT_TYPE_CLIENT_CONNECTED", R"({"MAC_ADDRESS":"m","HOST_NAME":"h"})");
        m_App.OnEvent("EVENT_TYPE_PARAM_CHANGED",
                      R"({"DATA_MODEL_NAME":"A","DATA_MODEL_VALUE":"1"})");
        m_App.OnEvent("EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT", R"({"URL":"{\"URL\":\"u\"}"})");
        return callbacks;
    }
};

TEST_F(OstelAppLibNotifications, AnyCallbackMayBeNull) {
    ASSERT_EQ(ostelAppLibInit(OSTEL_KTA), RC_SUCCESS);
    ostelAppLibSubscribe(OnDevice, nullptr, nullptr);
    EXPECT_THAT(TellOfEverything(), ElementsAre("0 m h"));
    ostelAppLibSubscribe(nullptr, OnChange, nullptr);
    EXPECT_THAT(TellOfEverything(), ElementsAre("A=1"));
    ostelAppLibSubscribe(nullptr, nullptr, OnUpdate);
    EXPECT_THAT(TellOfEverything(), ElementsAre("url:u"));
    ostelAppLibSubscribe(nullptr, nullptr, nullptr);
    EXPECT_THAT(TellOfEverything(), ElementsAre());
}

TEST_F(OstelAppLibNotifications, UnsubscribeClearsAllThreeCallbacks) {
    ASSERT_EQ(ostelAppLibInit(OSTEL_KTA), RC_SUCCESS);
    ostelAppLibSubscribe(OnDevice, OnChange, OnUpdate);
    EXPECT_THAT(TellOfEverything(), ElementsAre("0 m h", "A=1", "url:u"));
    ostelAppLibUnsubscribe();
    EXPECT_THAT(TellOfEverything(), ElementsAre());
}

// The callbacks stay: they wait for the next Init.
TEST_F(OstelAppLibNotifications, TermEndsTheDeliveryOfAllThreeAndInitStartsItAgain) {
    ostelAppLibSubscribe(OnDevice, OnChange, OnUpdate);
    EXPECT_THAT(TellOfEverything(), ElementsAre());
    for (int times = 0; times < 2; ++times) {
        ASSERT_EQ(ostelAppLibInit(OSTEL_KTA), RC_SUCCESS);
        EXPECT_THAT(TellOfEverything(), ElementsAre("0 m h", "A=1", "url:u"));
        ASSERT_EQ(ostelAppLibTerm(), RC_SUCCESS);
        EXPECT_THAT(TellOfEverything(), ElementsAre());
    }
}

TEST_F(OstelAppLibNotifications, NotificationsReachTheirCallbacks) {
    EXPECT_EQ(ostelAppLibInit(OSTEL_KTA), RC_SUCCESS);
    ostelAppLibSubscribe(OnDevice, OnChange, OnUpdate);
    m_App.OnEvent("EVENT_TYPE_CLIENT_RECONNECTED", R"({"MAC_ADDRESS":"m","HOST_NAME":"h"})");
    m_App.OnEvent("EVENT_TYPE_PARAM_CHANGED", R"({"DATA_MODEL_NAME":"A","DATA_MODEL_VALUE":"1"})");
    m_App.OnEvent("EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT", R"({"URL":"http://u"})");
    // The URL itself is read as a document once more, and only a document has an address in it.
    m_App.OnEvent("EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT", R"({"URL":"{\"URL\":\"inner\"}"})");
    EXPECT_THAT(callbacks, ElementsAre("1 m h", "A=1", "url:", "url:inner"));
    m_App.NotifyObservers("OTHER", "{}");
    ostelAppLibUnsubscribe();
    m_App.OnEvent("EVENT_TYPE_PARAM_CHANGED", "{}");
    ostelAppLibSubscribe(nullptr, nullptr, nullptr);
    m_App.OnEvent("EVENT_TYPE_PARAM_CHANGED", "{}");
    ostelAppLibSubscribe(nullptr, OnChange, nullptr);
    EXPECT_EQ(ostelAppLibTerm(), RC_SUCCESS);
    m_App.OnEvent("EVENT_TYPE_PARAM_CHANGED", "{}");
    EXPECT_EQ(callbacks.size(), 4U);
}

TEST_F(OstelAppLibNotifications, ClientDevicesHaveFiveStatesAndNoMore) {
    ASSERT_EQ(ostelAppLibInit(OSTEL_KTA), RC_SUCCESS);
    ostelAppLibSubscribe(OnDevice, nullptr, nullptr);
    for (const char* name : {"EVENT_TYPE_CLIENT_CONNECTED", "EVENT_TYPE_CLIENT_RECONNECTED",
                             "EVENT_TYPE_CLIENT_DISCONNECTED", "EVENT_TYPE_CLIENT_UNAUTH_ATTEMPT",
                             "EVENT_TYPE_CLIENT_BLOCKED_ATTEMPT"}) {
        m_App.OnEvent(name, R"({"MAC_ADDRESS":"m","HOST_NAME":"h"})");
    }
    // The greatest values that the enumeration can hold.
    for (const int state : {5, 6, 7}) {
        m_App.NotifyCpeClientStateObservers(
            static_cast<IOstelCpeClientStateObserver::TOstelCpeClientState>(state), "m", "h");
    }
    EXPECT_THAT(callbacks, ElementsAre("0 m h", "1 m h", "2 m h", "3 m h", "4 m h"));
    static_assert(CLIENT_DEVICE_CONNECTED == 0 && CLIENT_DEVICE_RECONNECTED == 1 &&
                      CLIENT_DEVICE_DISCONNECTED == 2 && CLIENT_DEVICE_UNAUTH_ATTEMPT == 3 &&
                      CLIENT_DEVICE_BLOCKED_ATTEMPT == 4,
                  "the values that callbacks are given");
}

// Holds the callback that is under way until the test lets it go.
struct TGate {
    std::promise<void> entered;
    std::promise<void> opened;
};
TGate* gate = nullptr;

template <typename... Arguments>
void WaitAtTheGate(Arguments...) {
    gate->entered.set_value();
    gate->opened.get_future().wait();
    callbacks.emplace_back("ended");
}

// One of the three callbacks, and the others.
struct TPlace {
    const char* name;
    void (*subscribeIt)();
    void (*subscribeTheOthers)();
    const char* event;
};

void PrintTo(const TPlace& place, std::ostream* stream) {
    *stream << place.name;
}

const TPlace PLACES[] = {
    {"ClientDeviceState", [] { ostelAppLibSubscribe(WaitAtTheGate, nullptr, nullptr); },
     [] { ostelAppLibSubscribe(nullptr, OnChange, OnUpdate); }, "EVENT_TYPE_CLIENT_CONNECTED"},
    {"DataModelChange", [] { ostelAppLibSubscribe(nullptr, WaitAtTheGate, nullptr); },
     [] { ostelAppLibSubscribe(OnDevice, nullptr, OnUpdate); }, "EVENT_TYPE_PARAM_CHANGED"},
    {"SoftwareUpdate", [] { ostelAppLibSubscribe(nullptr, nullptr, WaitAtTheGate); },
     [] { ostelAppLibSubscribe(OnDevice, OnChange, nullptr); },
     "EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT"}};

class OstelAppLibSubscription : public OstelAppLibNotifications,
                                public testing::WithParamInterface<std::tuple<TPlace, bool>> {};

// A callback's code may be unloaded, or what it uses be destroyed, once the call has returned.
TEST_P(OstelAppLibSubscription, IsNotChangedBeforeTheCallbackUnderWayHasEnded) {
    const auto& [place, isEnded] = GetParam();
    const auto change = isEnded ? ostelAppLibUnsubscribe : place.subscribeTheOthers;
    TGate here;
    gate = &here;
    ASSERT_EQ(ostelAppLibInit(OSTEL_KTA), RC_SUCCESS);
    place.subscribeIt();
    const auto tell = [this, event = place.event] { m_App.OnEvent(event, "{}"); };
    auto underWay = std::async(std::launch::async, tell);
    here.entered.get_future().wait();
    auto changed = std::async(std::launch::async, [change] {
        change();
        return callbacks;
    });
    EXPECT_EQ(changed.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
    here.opened.set_value();
    EXPECT_THAT(changed.get(), ElementsAre("ended"));
    underWay.get();
    tell();
    EXPECT_THAT(callbacks, ElementsAre("ended"));
}

INSTANTIATE_TEST_SUITE_P(OfEach, OstelAppLibSubscription,
                         testing::Combine(testing::ValuesIn(PLACES), testing::Bool()),
                         [](const auto& test) {
                             return std::get<0>(test.param).name +
                                    std::string(std::get<1>(test.param) ? "Ended" : "Replaced");
                         });

TEST_F(OstelAppLibNotifications, ACallbackMayUnsubscribeWhileEventsArrive) {
    ostelAppLibInit(OSTEL_KTA);
    ostelAppLibSubscribe(nullptr, UnsubscribeItself, nullptr);
    std::thread other([&] {
        for (int i = 0; i < 100; ++i) {
            m_App.OnEvent("EVENT_TYPE_PARAM_CHANGED", "{}");
        }
    });
    for (int i = 0; i < 100; ++i) {
        m_App.OnEvent("EVENT_TYPE_PARAM_CHANGED", "{}");
    }
    other.join();
    EXPECT_THAT(callbacks, ElementsAre("once"));
}

}  // namespace
