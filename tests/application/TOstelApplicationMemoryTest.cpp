// Requests of a thread for which not even the C libraries find memory. What is answered here is of
// short words: the JSON library itself, 2.14, loses the end of a longer one, or writes beyond it,
// when memory runs out in the middle of reading it.
#include <atomic>
#include <functional>
#include <new>

#include "IOstelDataModelChangeObserver.h"
#include "OstelAppLibTest.h"
#include "ScarceHeap.h"
#include "WaitUntil.h"

using ScarceHeap::TFailures;

namespace {

const char* const NAME = "Device.DeviceInfo.SerialNumber";
const char* const OTHER_NAME = "Device.DeviceInfo.SoftwareVersion";
const char* const VALUE = "a value that is no short string";

// What it writes to is made ready, it is asked, and what it has written is looked at.
struct TRequest {
    std::function<void()> prepare;
    std::function<tOstelReturnCode()> ask;
    std::function<bool(bool isDone)> isRight;
};

class TOstelApplicationMemory : public OstelAppLib {
protected:
    void SetUp() override {
        if (!ScarceHeap::IS_HERE) {
            GTEST_SKIP() << "the sanitizers have an allocator of their own";
        }
    }

    // Asks with one allocation more each time before that which fails, or before all that do.
    static void RunOutOfMemory(const TRequest& request) {
        request.prepare();
        Ask(request);
        for (const TFailures failures : {TFailures::ONE, TFailures::ALL_THAT_FOLLOW}) {
            std::size_t count = 0;
            while (HasRunOutAfter(count, failures, request)) {
                ASSERT_LT(++count, 1000U);
            }
            EXPECT_GT(count, 20U);
        }
    }

    void ExpectNoRequestBut(const std::string& whole) const {
        for (const RawPeer::TMessage& request : m_Dispatcher.Requests()) {
            EXPECT_EQ(request.text, whole);
        }
    }

private:
    static tOstelReturnCode Ask(const TRequest& request) {
        try {
            return request.ask();
        } catch (const std::bad_alloc&) {
            return RC_RUNTIME_ERROR;
        }
    }

    // Whatever failed, the next request is served. Libraries keep a few blocks for later, now of
    // one thread and now of another: memory counts as lost when there is less each time.
    static bool HasRunOutAfter(std::size_t count, TFailures failures, const TRequest& request) {
        bool hasFailed = false;
        bool isKept = false;
        for (int i = 0; i < 20 && !isKept; ++i) {
            request.prepare();
            RecordingLog::Clear();
            const long held = ScarceHeap::Held();
            ScarceHeap::FailAfter(count, failures);
            const tOstelReturnCode code = Ask(request);
            hasFailed = ScarceHeap::GoOn();
            EXPECT_TRUE(code == RC_SUCCESS || code == RC_RUNTIME_ERROR) << count << ": " << code;
            EXPECT_TRUE(request.isRight(code == RC_SUCCESS)) << count;
            request.prepare();
            EXPECT_EQ(Ask(request), RC_SUCCESS) << count;
            EXPECT_TRUE(request.isRight(true)) << count;
            request.prepare();
            RecordingLog::Clear();
            isKept = ScarceHeap::Held() == held;
        }
        EXPECT_TRUE(isKept) << count;
        return hasFailed;
    }
};

TEST_F(TOstelApplicationMemory, AParameterIsReadOrNot) {
    AnswerParams("GET_PARAM", {Param("A", "1")});
    std::string value;
    RunOutOfMemory({[&] { value = "before"; }, [&] { return m_App.GetParam(NAME, value); },
                    [&](bool isDone) { return value == (isDone ? "1" : "before"); }});
    ExpectNoRequestBut(R"({"NAME":"Device.DeviceInfo.SerialNumber"})");
}

TEST_F(TOstelApplicationMemory, TheFlatInterfaceReadsAParameterOrDoesNot) {
    AnswerParams("GET_PARAM", {Param("A", "1")});
    tOstelAppLibParamRequest request = {};
    RunOutOfMemory({[&] { request = Named<tOstelAppLibParamRequest>(NAME); },
                    [&] { return ostelAppLibGetParam(&request); },
                    [&](bool isDone) { return request.value == std::string(isDone ? "1" : ""); }});
    ExpectNoRequestBut(R"({"NAME":"Device.DeviceInfo.SerialNumber"})");
}

TEST_F(TOstelApplicationMemory, AParameterIsWrittenOrNot) {
    m_Dispatcher.Answer("SET_PARAM", "");
    RunOutOfMemory(
        {[] {}, [&] { return m_App.SetParam(NAME, VALUE, true); }, [](bool) { return true; }});
    ExpectNoRequestBut(R"({"NAME":"Device.DeviceInfo.SerialNumber",)"
                       R"("VALUE":"a value that is no short string","COMMIT":true})");
}

// The last name is one that the JSON library has to write.
TEST_F(TOstelApplicationMemory, AnArrayIsReadOrNot) {
    AnswerParams("GET_PARAM_ARRAY", {Param("A", "1"), Param("B", "2"), Param("C", "3")});
    TParams params;
    RunOutOfMemory({[&] {
                        params = {{NAME, ""}, {OTHER_NAME, ""}, {"Device.\"", ""}};
                        params.shrink_to_fit();
                    },
                    [&] { return m_App.GetParamArray(params); },
                    [&](bool isDone) {
                        return params.size() == 3 && params[0].value == (isDone ? "1" : "") &&
                               params[2].value == (isDone ? "3" : "");
                    }});
    ExpectNoRequestBut(R"({"PARAMS":[{"NAME":"Device.DeviceInfo.SerialNumber"},)"
                       R"({"NAME":"Device.DeviceInfo.SoftwareVersion"},{"NAME":"Device.\""}]})");
}

// Leaves its thread one allocation less each time.
class TConsumer : public IOstelDataModelChangeObserver {
public:
    explicit TConsumer(int most) : m_Left(most) {}

    void OnDataModelParamChanged(const std::string&, const std::string&) override {
        if (m_Left > 0) {
            ScarceHeap::FailAfter(static_cast<std::size_t>(--m_Left), TFailures::ONE);
        } else {
            ScarceHeap::GoOn();
            m_IsOver = true;
        }
    }

    bool IsOver() const { return m_IsOver; }

private:
    std::atomic<bool> m_IsOver{false};
    int m_Left;
};

TEST_F(TOstelApplicationMemory, TheWorkerOutlivesIt) {
    TConsumer consumer(50);
    m_App.AddDataModelChangeObserver(&consumer);
    const auto isOver = [&] {
        m_Dispatcher.SendEvent("EVENT_TYPE_PARAM_CHANGED", R"({"DATA_MODEL_NAME":"A"})");
        return consumer.IsOver();
    };
    EXPECT_TRUE(WaitUntil(isOver, std::chrono::seconds(60)));
    m_App.RemoveDataModelChangeObserver(&consumer);
    EXPECT_GT(RecordingLog::Count(2, std::bad_alloc().what()), 0);
    EXPECT_EQ(m_Dispatcher.Call("OSTEL_KTA", "IS_APP_ACTIVE", ""), 0);
}

}  // namespace
