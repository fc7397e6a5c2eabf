// Subscriptions to the parameters of another unit.
#include <functional>
#include <future>

#include "ApplicationTest.h"
#include "PrivateMember.h"
#include "TlsPeer.h"
#include "WaitUntil.h"

using TRemoteObserverMap =
    std::map<IOstelDataModelChangeObserverRemote*, std::set<std::string>> TOstelApplication::*;
struct TSubscribers {
    friend TRemoteObserverMap MemberOf(TSubscribers);
};
template struct PrivateMember<TSubscribers, &TOstelApplication::m_RemoteObservers>;

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct TObserver : IOstelDataModelChangeObserverRemote {
    void OnDataModelChangeRemote(const std::string& name, const std::string& value,
                                 const std::string& serialNumber) override {
        seen.push_back(serialNumber + " " + name + "=" + value);
    }
    std::vector<std::string> seen;
};

const char* const VALUES =
    R"({"STATUS":"OK","PARAMS":[{"NAME":"Device.A","VALUE":"1"},{"NAME":"Device.B","VALUE":"2"}]})";

class TOstelApplicationSubscription : public ApplicationTest {
protected:
    TOstelApplicationSubscription() {
        m_App.SetCertPath("/nonexistent/");
        m_Dispatcher.Answer(
            "GET_PARAM",
            R"({"PARAMS":[{"NAME":"Device.DeviceInfo.SerialNumber","VALUE":"MINE"}]})");
    }

    tOstelReturnCode Subscribe(TParams params) {
        return m_App.AddDataModelChangeObserverRemote(m_Peer.Host(), params, &m_Observer);
    }

    tOstelReturnCode Unsubscribe(const std::vector<std::string>& names) {
        return m_App.RemoveDataModelChangeObserverRemote(m_Peer.Host(), names, &m_Observer);
    }

    // What the observer is told when each of the parameters changes.
    std::vector<std::string> Told() {
        m_Observer.seen.clear();
        for (const char* name : {"Device.A", "Device.B", "Device.C"}) {
            m_App.NotifyDataModelChangeObserversRemote(name, "9", "SN");
        }
        return m_Observer.seen;
    }

    void AnswerWith(const std::string& json) {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Answer = TlsPeer::Framed(json);
    }

    TObserver m_Observer;
    std::mutex m_Mutex;
    std::string m_Answer = TlsPeer::Framed(VALUES);
    TlsPeer m_Peer{{}, [this](TlsPeer::TConnection& connection) {
                       connection.Receive();
                       const std::lock_guard<std::mutex> lock(m_Mutex);
                       connection.Send(m_Answer);
                   }};
};

TEST_F(TOstelApplicationSubscription, AsksForTheParametersAndGetsTheirValues) {
    TParams params{{"Device.B", "ignored"}, {"Device.A", ""}, {"Device.X", ""}};
    EXPECT_EQ(m_App.AddDataModelChangeObserverRemote(m_Peer.Host(), params, &m_Observer),
              RC_SUCCESS);
    EXPECT_THAT(params, ElementsAre(IsParam("Device.A", "1"), IsParam("Device.B", "2")));
    EXPECT_THAT(
        m_Peer.Requests(),
        ElementsAre(R"({"REQUEST_TYPE":"SUBSCRIBE","EVENT_NAME":"REMOTE_DATA_MODEL_CHANGED",)"
                    R"("PARAMS":[{"NAME":"Device.B"},{"NAME":"Device.A"},{"NAME":"Device.X"}],)"
                    R"("SERIAL_NUMBER":"MINE"})"));
    m_App.NotifyDataModelChangeObserversRemote("Device.X", "3", "SN");
    EXPECT_THAT(m_Observer.seen, ElementsAre("SN Device.X=3"))
        << "what was asked for counts, not what was answered";
}

TEST_F(TOstelApplicationSubscription, AChangeThatComesOverTheBusReachesTheObserver) {
    EXPECT_EQ(Subscribe({{"Device.A", ""}}), RC_SUCCESS);
    m_Dispatcher.SendEvent("REMOTE_DATA_MODEL_CHANGED",
                           R"({"NAME":"Device.A","VALUE":"7","SERIAL_NUMBER":"THEIRS"})");
    EXPECT_EQ(m_Dispatcher.Call("OSTEL_KTA", "IS_APP_ACTIVE", ""), 0) << "the worker is through";
    EXPECT_THAT(m_Observer.seen, ElementsAre("THEIRS Device.A=7"));
}

TEST_F(TOstelApplicationSubscription, ParametersAddUp) {
    EXPECT_EQ(Subscribe({{"Device.A", ""}}), RC_SUCCESS);
    EXPECT_EQ(Subscribe({{"Device.A", ""}, {"Device.C", ""}}), RC_SUCCESS);
    EXPECT_THAT(Told(), ElementsAre("SN Device.A=9", "SN Device.C=9"));
}

TEST_F(TOstelApplicationSubscription, UnsubscribesFromSomeAndThenFromTheRest) {
    EXPECT_EQ(Subscribe({{"Device.A", ""}, {"Device.B", ""}}), RC_SUCCESS);
    AnswerWith(R"({"STATUS":"OK"})");
    EXPECT_EQ(Unsubscribe({"Device.A", "Device.Unknown"}), RC_SUCCESS);
    EXPECT_EQ(m_Peer.Requests().back(),
              R"({"REQUEST_TYPE":"UNSUBSCRIBE","EVENT_NAME":"REMOTE_DATA_MODEL_CHANGED",)"
              R"("PARAMS":[{"NAME":"Device.A"},{"NAME":"Device.Unknown"}],)"
              R"("SERIAL_NUMBER":"MINE"})");
    EXPECT_THAT(Told(), ElementsAre("SN Device.B=9"));
    EXPECT_EQ(Unsubscribe({"Device.B"}), RC_SUCCESS);
    EXPECT_THAT(Told(), IsEmpty());
    EXPECT_THAT(m_App.*MemberOf(TSubscribers()), IsEmpty());
    EXPECT_EQ(Unsubscribe({"Device.B"}), RC_SUCCESS) << "an observer that is not there any more";
    EXPECT_THAT(m_App.*MemberOf(TSubscribers()), IsEmpty());
}

TEST_F(TOstelApplicationSubscription, ARefusalChangesNothing) {
    EXPECT_EQ(Subscribe({{"Device.A", ""}}), RC_SUCCESS);
    AnswerWith(R"({"STATUS":"Failed","PARAMS":[]})");
    RecordingLog::Clear();
    TParams params{{"Device.B", "kept"}};
    EXPECT_EQ(m_App.AddDataModelChangeObserverRemote(m_Peer.Host(), params, &m_Observer),
              RC_FAILURE);
    EXPECT_EQ(Unsubscribe({"Device.A"}), RC_FAILURE);
    EXPECT_EQ(RecordingLog::Count(2, "Remote Ostel has failed with 'Failed'"), 2);
    EXPECT_THAT(params, ElementsAre(IsParam("Device.B", "kept")));
    EXPECT_THAT(Told(), ElementsAre("SN Device.A=9"));
}

TEST_F(TOstelApplicationSubscription, APeerThatIsNotThereChangesNothing) {
    TParams params{{"Device.B", "kept"}};
    EXPECT_EQ(m_App.AddDataModelChangeObserverRemote(TlsPeer::FreeHost(), params, &m_Observer),
              RC_FAILURE);
    EXPECT_EQ(m_App.RemoveDataModelChangeObserverRemote("nowhere", {"Device.B"}, &m_Observer),
              RC_FAILURE);
    EXPECT_THAT(params, ElementsAre(IsParam("Device.B", "kept")));
    EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(TOstelApplicationSubscription, AUnitWithoutASerialNumberCannotSubscribe) {
    m_Dispatcher.Answer("GET_PARAM", "", 4);
    EXPECT_EQ(Subscribe({{"Device.A", ""}}), RC_FAILURE);
    EXPECT_EQ(Unsubscribe({"Device.A"}), RC_FAILURE);
    const char* const noSerial = "GetUnitSerialNumber could not fetch local Serial Number";
    EXPECT_THAT(
        RecordingLog::Texts(2),
        ElementsAre(noSerial, "Remote Ostel has failed in 'AddDataModelChangeObserverRemote'",
                    noSerial, "Remote Ostel has failed in 'RemoveDataModelChangeObserverRemote'"));
    EXPECT_THAT(m_Peer.Requests(), IsEmpty());
}

TEST_F(TOstelApplicationSubscription, NobodyCannotSubscribe) {
    TParams params{{"Device.A", ""}};
    EXPECT_EQ(m_App.AddDataModelChangeObserverRemote(m_Peer.Host(), params, nullptr), RC_FAILURE);
    EXPECT_THAT(RecordingLog::Texts(2), ElementsAre("A null observer is not added."));
    EXPECT_THAT(m_Dispatcher.Requests(), IsEmpty());
    EXPECT_THAT(m_Peer.Requests(), IsEmpty());
    EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(TOstelApplicationSubscription, NoNamesAreAnEmptyListAndNoSubscription) {
    EXPECT_EQ(Subscribe({}), RC_SUCCESS);
    EXPECT_THAT(m_Peer.Requests(),
                ElementsAre(testing::HasSubstr(R"("PARAMS":[],"SERIAL_NUMBER")")));
    EXPECT_THAT(Told(), IsEmpty());
    EXPECT_EQ(Unsubscribe({}), RC_SUCCESS);
}

// No change is told before the subscriber has the values to which it is one.
TEST_F(TOstelApplicationSubscription, NobodyIsToldAnythingDuringTheExchange) {
    struct : IOstelAppStateObserver {
        void OnAppStateChanged(TOstelAppState, const std::string&) override { ++told; }
        int told = 0;
    } appStateObserver;
    m_App.AddAppStateChangeObserver(&appStateObserver);
    EXPECT_EQ(Subscribe({{"Device.A", ""}, {"Device.C", ""}}), RC_SUCCESS);
    const std::function<tOstelReturnCode()> exchanges[] = {
        [&] {
            return Subscribe({{"Device.B", ""}});
        },
        [&] { return Unsubscribe({"Device.A"}); },
    };
    const std::vector<std::string> toldAfter[] = {
        {"SN Device.A=9", "SN Device.B=9", "SN Device.C=9"}, {"SN Device.B=9", "SN Device.C=9"}};
    for (int i = 0; i < 2; ++i) {
        std::unique_lock<std::mutex> silence(m_Mutex);
        const std::size_t before = m_Peer.Requests().size();
        auto exchange = std::async(std::launch::async, exchanges[i]);
        ASSERT_TRUE(WaitUntil([&] { return m_Peer.Requests().size() == before + 1; }));
        auto told = std::async(std::launch::async, [&] { return Told(); });
        auto state =
            std::async(std::launch::async, [&] { m_App.OnAppStateChange("APP_CONNECTED", "X"); });
        EXPECT_EQ(told.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
        EXPECT_EQ(state.wait_for(std::chrono::milliseconds(10)), std::future_status::timeout);
        silence.unlock();
        EXPECT_EQ(exchange.get(), RC_SUCCESS);
        EXPECT_THAT(told.get(), testing::ElementsAreArray(toldAfter[i]));
        state.get();
        EXPECT_EQ(appStateObserver.told, i + 1);
    }
    m_App.RemoveAppStateChangeObserver(&appStateObserver);
}

}  // namespace
