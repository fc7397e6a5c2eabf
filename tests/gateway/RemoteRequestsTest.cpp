// Requests of other units, short of what carries them.
#include "RemoteRequests.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <new>

#include "Emulated.h"
#include "PeerDouble.h"
#include "RecordingLog.h"
#include "ScarceThreads.h"
#include "TempDir.h"

namespace {

using testing::Each;
using testing::HasSubstr;

TDataModel AModel() {
    TParamDefinition parameter;
    parameter.name = "A";
    parameter.defaultValue = "1";
    TSchema schema;
    schema.MakeObject("Device.").Define(parameter);
    return TDataModel(std::move(schema));
}

// Whose parameters go, or grow, between two readings.
class TChangingDispatcher : public TDispatcher {
public:
    using TDispatcher::TDispatcher;

    int OnMethodCall(const std::string& type, const std::string& request,
                     std::string& reply) override {
        const int code = TDispatcher::OnMethodCall(type, request, reply);
        if (++m_Calls != 2 || !m_OnSecond) {
            return code;
        }
        return m_OnSecond(reply);
    }

    void Begin(std::function<int(std::string& reply)> onSecond) {
        m_Calls = 0;
        m_OnSecond = std::move(onSecond);
    }

private:
    int m_Calls = 0;
    std::function<int(std::string& reply)> m_OnSecond;
};

class RemoteRequests : public testing::Test {
protected:
    // The answer's document.
    std::string Ask(const std::string& request, const std::string& address = "10.0.0.1") {
        return m_Requests.Answer(request, address).substr(8);
    }

    PeerDouble m_Peer;
    TempDir m_Dir;
    TDataModel m_Model = AModel();
    TStore m_Store{m_Dir.File("state")};
    TChangingDispatcher m_Dispatcher{m_Model, m_Store,
                                     [](const std::string&, const std::string&) {}};
    TSubscriptions m_Subscriptions{"S0", m_Peer.Send()};
    TSharedFiles m_Files{""};
    TRemoteRequests m_Requests{m_Dispatcher, m_Subscriptions, m_Files,
                               [](const std::string& name, const std::string&) {
                                   if (name == "LARGE") {
                                       throw std::bad_alloc();
                                   }
                                   throw std::runtime_error("no bus");
                               }};
};

std::string Subscribe(const std::string& serialNumber) {
    return R"({"REQUEST_TYPE":"SUBSCRIBE","EVENT_NAME":"REMOTE_DATA_MODEL_CHANGED",)"
           R"("PARAMS":[{"NAME":"Device.A"}],"SERIAL_NUMBER":")" +
           serialNumber + R"("})";
}

TEST_F(RemoteRequests, AnswerWhateverFailsOnTheWay) {
    for (const auto& [name, cause] :
         {std::pair("SMALL", "no bus"), std::pair("LARGE", "std::bad_alloc")}) {
        EXPECT_EQ(Ask(R"({"REQUEST_TYPE":"SEND_EVENT","EVENT_DATA":"","EVENT_NAME":")" +
                      std::string(name) + R"("})"),
                  R"({"STATUS":"RC_RUNTIME_ERROR"})");
        EXPECT_EQ(RecordingLog::Count(2, std::string("A request of another unit failed: ") + cause),
                  1);
    }
}

TEST_F(RemoteRequests, SubscribeNobodyForWhomThereIsNoThread) {
    SKIP_WHERE_EMULATED("puts no limit on addresses");
    const std::string subscribed = R"({"PARAMS":[{"NAME":"Device.A","VALUE":"1"}],"STATUS":"OK"})";
    {
        const ScarceThreads none(0);
        EXPECT_EQ(Ask(Subscribe("S1")), R"({"STATUS":"RC_RUNTIME_ERROR"})");
    }
    m_Subscriptions.OnChange("Device.A", "2");
    EXPECT_EQ(Ask(Subscribe("S1")), subscribed);
    m_Subscriptions.OnChange("Device.A", "3");
}

TEST_F(RemoteRequests, SubscribeNobodyWhoIsToldOfAFailureAtLast) {
    const std::pair<const char*, std::function<int(std::string&)>> cases[] = {
        {R"({"STATUS":"RC_INVALID_PARAM_NAME"})",
         [](std::string&) { return RC_INVALID_PARAM_NAME; }},
        {R"({"STATUS":"RC_RUNTIME_ERROR"})", [](std::string&) -> int { throw std::bad_alloc(); }},
        {R"({"STATUS":"RC_BUFFER_OVERFLOW"})", [](std::string& reply) {
             reply =
                 R"({"PARAMS":[{"NAME":"Device.A","VALUE":")" + std::string(5000, 'x') + R"("}]})";
             return RC_SUCCESS;
         }}};
    std::size_t told = 0;
    for (const auto& [answer, onSecond] : cases) {
        m_Dispatcher.Begin(onSecond);
        EXPECT_EQ(Ask(Subscribe("S1")), answer);
        m_Subscriptions.OnChange("Device.A", "2");
        // Told after it, this one shows that the first is not.
        EXPECT_TRUE(m_Subscriptions.Add("10.0.0.1", "S1", {"Device.B"}));
        m_Subscriptions.OnChange("Device.A", "2");
        m_Subscriptions.OnChange("Device.B", "3");
        ASSERT_TRUE(m_Peer.WaitForTexts(++told));
        EXPECT_THAT(m_Peer.Texts(), Each(HasSubstr("Device.B")));
    }
}

// That one succeeded: the other unit counts on it whatever becomes of this one.
TEST_F(RemoteRequests, LeaveAnEarlierSubscriptionWhenARepetitionFails) {
    EXPECT_THAT(Ask(Subscribe("S1")), HasSubstr("OK"));
    m_Dispatcher.Begin([](std::string&) { return RC_INVALID_PARAM_NAME; });
    EXPECT_EQ(Ask(Subscribe("S1")), R"({"STATUS":"RC_INVALID_PARAM_NAME"})");
    m_Subscriptions.OnChange("Device.A", "2");
    ASSERT_TRUE(m_Peer.WaitForTexts(1));
    EXPECT_THAT(m_Peer.Texts(), Each(HasSubstr("Device.A")));
}

// The platform's own code for it is that of something else.
TEST_F(RemoteRequests, NameACommitThatFailsAFailure) {
    m_Dispatcher.Begin([](std::string&) { return 1; });
    EXPECT_EQ(Ask(R"({"REQUEST_TYPE":"COMMIT"})"), R"({"STATUS":"OK"})");
    EXPECT_EQ(Ask(R"({"REQUEST_TYPE":"COMMIT"})"), R"({"STATUS":"RC_FAILURE"})");
}

TEST_F(RemoteRequests, TakeSerialNumbersThatCanBeSome) {
    EXPECT_EQ(Ask(Subscribe(std::string(257, 'S'))), R"({"STATUS":"RC_INVALID_ARGUMENT"})");
    EXPECT_EQ(Ask(Subscribe(std::string(256, 'S'))),
              R"({"PARAMS":[{"NAME":"Device.A","VALUE":"1"}],"STATUS":"OK"})");
}

}  // namespace
