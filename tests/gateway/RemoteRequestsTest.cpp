// Requests of other units, short of what carries them.
#include "RemoteRequests.h"

#include <gtest/gtest.h>

#include <new>

#include "RecordingLog.h"
#include "ScarceThreads.h"
#include "TempDir.h"

namespace {

TDataModel AModel() {
    TParamDefinition parameter;
    parameter.name = "A";
    parameter.defaultValue = "1";
    TSchema schema;
    schema.MakeObject("Device.").Define(parameter);
    return TDataModel(std::move(schema));
}

class RemoteRequests : public testing::Test {
protected:
    // The answer's document.
    std::string Ask(const std::string& request, const std::string& address = "10.0.0.1") {
        return m_Requests.Answer(request, address).substr(8);
    }

    TempDir m_Dir;
    TDataModel m_Model = AModel();
    TStore m_Store{m_Dir.File("state")};
    TDispatcher m_Dispatcher{m_Model, m_Store, [](const std::string&, const std::string&) {}};
    TSubscriptions m_Subscriptions{"S0", [](const std::string&, const std::string&,
                                            const TStopSignal&, TDeadline) { return true; }};
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
        EXPECT_EQ(RecordingLog::Count(2, cause), 1);
    }
}

TEST_F(RemoteRequests, SubscribeNobodyForWhomThereIsNoThread) {
    const std::string subscribed = R"({"PARAMS":[{"NAME":"Device.A","VALUE":"1"}],"STATUS":"OK"})";
    {
        const ScarceThreads none(0);
        EXPECT_EQ(Ask(Subscribe("S1")), R"({"STATUS":"RC_RUNTIME_ERROR"})");
    }
    m_Subscriptions.OnChange("Device.A", "2");
    EXPECT_EQ(Ask(Subscribe("S1")), subscribed);
    m_Subscriptions.OnChange("Device.A", "3");
}

TEST_F(RemoteRequests, TakeSerialNumbersThatCanBeSome) {
    EXPECT_EQ(Ask(Subscribe(std::string(257, 'S'))), R"({"STATUS":"RC_INVALID_ARGUMENT"})");
    EXPECT_EQ(Ask(Subscribe(std::string(256, 'S'))),
              R"({"PARAMS":[{"NAME":"Device.A","VALUE":"1"}],"STATUS":"OK"})");
}

}  // namespace
