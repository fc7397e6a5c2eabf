// What an application outlives: dispatchers that answer too often or never, observers that take
// their time, a system without descriptors or threads, and children of the process.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <iterator>
#include <memory>
#include <set>
#include <sstream>
#include <thread>

#include "ApplicationTest.h"
#include "ChildProcess.h"
#include "Emulated.h"
#include "Resources.h"
#include "ScarceThreads.h"
#include "WaitUntil.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Gt;
using testing::IsSubsetOf;
using testing::Not;
using testing::SizeIs;

std::string OneParam(const std::string& value) {
    return R"({"PARAMS":[{"NAME":"Device.X","VALUE":")" + value + R"("}]})";
}

// An event that hands a text on to observers.
const char* const EVENT = "EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT";

std::string DataOf(const std::string& text) {
    return R"({"URL":")" + text + R"("})";
}

struct TObserver : IOstelObserver {
    void OnEvent(const std::string&, const std::string& data) override {
        if (onEvent) {
            onEvent(data);
        }
        const std::lock_guard<std::mutex> lock(mutex);
        seen.push_back(data);
    }

    std::vector<std::string> Seen() {
        const std::lock_guard<std::mutex> lock(mutex);
        return seen;
    }

    std::function<void(const std::string& data)> onEvent;
    std::mutex mutex;
    std::vector<std::string> seen;
};

class TOstelApplicationFaults : public ApplicationTest {
protected:
    TOstelApplicationFaults() {
        m_Dispatcher.Answer("GET_PARAM", OneParam("1"));
        m_App.AddObserver(&m_Observer);
    }
    ~TOstelApplicationFaults() override { m_App.RemoveObserver(&m_Observer); }

    std::string Value() {
        std::string value = "none";
        m_App.GetParam("Device.X", value);
        return value;
    }

    TObserver m_Observer;
};

TEST_F(TOstelApplicationFaults, AnAnswerThatComesTwiceIsTakenOnce) {
    m_Dispatcher.Answer("GET_PARAM", OneParam("twice"), 0, TManner::ANSWER_TWICE);
    EXPECT_EQ(Value(), "twice");
    m_Dispatcher.Answer("GET_PARAM", OneParam("next"));
    EXPECT_EQ(Value(), "next");
    EXPECT_THAT(RecordingLog::Texts(2), SizeIs(0));
}

TEST_F(TOstelApplicationFaults, ADispatcherThatNeverAnswersFailsEachCallAtItsTimeout) {
    SetTimeout(1);
    m_Dispatcher.Answer("GET_PARAM", "", 0, TManner::KEEP_SILENT);
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::future<tOstelReturnCode>> calls(8);
    for (auto& call : calls) {
        call = std::async(std::launch::async, [this] {
            std::string value;
            return m_App.GetParam("Device.X", value);
        });
    }
    for (auto& call : calls) {
        EXPECT_EQ(call.get(), RC_FAILURE);
    }
    const auto taken = std::chrono::steady_clock::now() - start;
    EXPECT_GE(taken, std::chrono::seconds(1));
    // They wait beside each other.
    EXPECT_LT(taken, std::chrono::seconds(8));
    SetTimeout(60);
    m_Dispatcher.Answer("GET_PARAM", OneParam("next"));
    EXPECT_EQ(Value(), "next");
}

TEST_F(TOstelApplicationFaults, AnObserverThatTakesItsTimeHoldsUpEventsOnly) {
    std::promise<void> entered;
    std::promise<void> mayGoOn;
    m_Observer.onEvent = [&](const std::string& data) {
        if (data == "1") {
            entered.set_value();
            mayGoOn.get_future().wait();
        }
    };
    for (const char* data : {"1", "2", "3"}) {
        m_Dispatcher.SendEvent(EVENT, DataOf(data));
    }
    entered.get_future().wait();
    EXPECT_EQ(Value(), "1");
    EXPECT_EQ(m_App.SetParam("Device.X", "2", true), RC_FAILURE) << "the dispatcher's answer";
    EXPECT_THAT(m_Observer.Seen(), SizeIs(0));
    mayGoOn.set_value();
    EXPECT_TRUE(WaitUntil([&] { return m_Observer.Seen().size() == 3; }));
    EXPECT_THAT(m_Observer.Seen(), ElementsAre("1", "2", "3"));
}

TEST_F(TOstelApplicationFaults, AnObserverMayCallTheApplication) {
    std::promise<std::string> value;
    m_Observer.onEvent = [&](const std::string& data) {
        if (data == "ask") {
            m_App.SendEvent(EVENT, DataOf("answer"));
            value.set_value(Value());
        }
    };
    m_Dispatcher.SendEvent(EVENT, DataOf("ask"));
    EXPECT_EQ(value.get_future().get(), "1");
    EXPECT_TRUE(WaitUntil([&] { return m_Observer.Seen().size() == 2; }));
    EXPECT_THAT(m_Observer.Seen(), ElementsAre("ask", "answer"));
}

TEST_F(TOstelApplicationFaults, ANewNameLosesNoEvents) {
    constexpr std::size_t EVENTS = 2000;
    std::thread renamer([] {
        for (const char* id : {"OSTEL_MVA", "OSTEL_KTA", "OSTEL_MVA"}) {
            getOstelIpcInstance()->Init(id);
        }
    });
    for (std::size_t i = 0; i < EVENTS; ++i) {
        m_Dispatcher.SendEvent(EVENT, DataOf(std::to_string(i)));
    }
    renamer.join();
    ASSERT_TRUE(WaitUntil([&] { return m_Observer.Seen().size() >= EVENTS; }));
    const std::vector<std::string> seen = m_Observer.Seen();
    ASSERT_THAT(seen, SizeIs(EVENTS));
    for (std::size_t i = 0; i < EVENTS; ++i) {
        ASSERT_EQ(seen[i], std::to_string(i));
    }
    EXPECT_EQ(m_Dispatcher.Call("OSTEL_MVA", "IS_APP_ACTIVE", ""), 0);
    EXPECT_EQ(m_Dispatcher.Call("OSTEL_KTA", "IS_APP_ACTIVE", ""), -1000);
    EXPECT_EQ(Value(), "1");
}

// With AddressSanitizer comes UndefinedBehaviorSanitizer.
#ifdef __SANITIZE_ADDRESS__
#define SKIP_WHERE_DESCRIPTORS_ARE_NEEDED() \
    GTEST_SKIP() << "UndefinedBehaviorSanitizer needs descriptors to look at objects"
#else
#define SKIP_WHERE_DESCRIPTORS_ARE_NEEDED() static_cast<void>(0)
#endif

// Leaves this process without a free descriptor.
class TNoDescriptors {
public:
    TNoDescriptors() {
        getrlimit(RLIMIT_NOFILE, &m_Before);
        const int free = dup(STDERR_FILENO);
        close(free);
        const rlimit none{static_cast<rlim_t>(free), m_Before.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    }
    TNoDescriptors(const TNoDescriptors&) = delete;
    TNoDescriptors& operator=(const TNoDescriptors&) = delete;
    ~TNoDescriptors() { setrlimit(RLIMIT_NOFILE, &m_Before); }

private:
    rlimit m_Before{};
};

TEST_F(TOstelApplicationFaults, ARequestNeedsNoNewDescriptor) {
    SKIP_WHERE_DESCRIPTORS_ARE_NEEDED();
    const TNoDescriptors none;
    EXPECT_EQ(Value(), "1");
    m_App.SendEvent(EVENT, DataOf("1"));
    EXPECT_TRUE(WaitUntil([&] { return m_Observer.Seen().size() == 1; }));
}

TEST_F(TOstelApplicationFaults, ARequestToAnotherUnitFailsWithoutADescriptor) {
    SKIP_WHERE_DESCRIPTORS_ARE_NEEDED();
    m_App.EnableSecureRemote("", "", "");
    RecordingLog::Clear();
    const TNoDescriptors none;
    EXPECT_EQ(m_App.CommitRemote("127.0.0.1"), RC_FAILURE);
    EXPECT_THAT(RecordingLog::Texts(2), Contains("setsockopt is failed"));
}

TEST_F(TOstelApplicationFaults, BusyThreadsGetTheirCodesAtOnceWhenTheBusGoesAndComes) {
    constexpr int THREADS = 8;
    std::atomic<int> answered{0};
    std::atomic<int> failed{0};
    std::atomic<bool> isOver{false};
    std::vector<std::future<std::chrono::steady_clock::duration>> longest;
    // Whatever fails before: the threads are waited for.
    const std::shared_ptr<void> atTheEnd(nullptr, [&](void*) { isOver = true; });
    for (int i = 0; i < THREADS; ++i) {
        longest.push_back(std::async(std::launch::async, [&] {
            std::chrono::steady_clock::duration most{};
            while (!isOver) {
                std::string value;
                const auto start = std::chrono::steady_clock::now();
                const tOstelReturnCode code = m_App.GetParam("Device.X", value);
                most = std::max(most, std::chrono::steady_clock::now() - start);
                (code == RC_SUCCESS ? answered : failed) += 1;
                EXPECT_TRUE(code == RC_SUCCESS || code == RC_FAILURE || code == RC_RUNTIME_ERROR);
            }
            return most;
        }));
    }
    ASSERT_TRUE(WaitUntil([&] { return answered > 100; }));
    m_Bus.Kill();
    ASSERT_TRUE(WaitUntil([&] { return failed > THREADS; }));
    m_Bus.Start();
    const int failedBefore = failed;
    EXPECT_TRUE(WaitUntil([&] { return failed > failedBefore + THREADS; }));
    isOver = true;
    for (auto& most : longest) {
        EXPECT_LT(most.get(), std::chrono::seconds(20));
    }
    EXPECT_TRUE(Resources::IsIdleForASecond());
    const auto start = std::chrono::steady_clock::now();
    getOstelIpcInstance()->Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

// Has a bus, but has not been initialised.
class TOstelApplicationWithoutMeans : public testing::Test {
protected:
    void ExpectToStart() {
        m_App.Initialize(OSTEL_KTA);
        EXPECT_TRUE(m_App.IsInitialized());
        EXPECT_EQ(m_Dispatcher.Call("OSTEL_KTA", "IS_APP_ACTIVE", ""), 0);
    }

    PrivateBus m_Bus;
    ScriptedDispatcher m_Dispatcher;
    TOstelApplication& m_App = *TOstelApplication::GetInstance();
};

TEST_F(TOstelApplicationWithoutMeans, StartsOnceThereAreDescriptors) {
    SKIP_WHERE_DESCRIPTORS_ARE_NEEDED();
    {
        const TNoDescriptors none;
        m_App.Initialize(OSTEL_KTA);
        EXPECT_FALSE(m_App.IsInitialized());
        EXPECT_THAT(RecordingLog::Texts(2), Not(SizeIs(0)));
    }
    ExpectToStart();
}

TEST_F(TOstelApplicationWithoutMeans, StartsOnceThereAreThreads) {
    SKIP_WHERE_EMULATED("puts no limit on addresses");
    {
        const ScarceThreads none(0);
        m_App.Initialize(OSTEL_KTA);
        EXPECT_FALSE(m_App.IsInitialized());
        EXPECT_THAT(RecordingLog::Texts(2), Not(SizeIs(0)));
    }
    ExpectToStart();
}

// The child has the connections but not the threads.
TEST_F(TOstelApplicationFaults, AChildThatLeavesAtOnceDoesNotDisturbItsParent) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(7);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 7);
    EXPECT_EQ(Value(), "1");
    EXPECT_EQ(m_Dispatcher.Call("OSTEL_KTA", "IS_APP_ACTIVE", ""), 0);
}

std::set<std::string> OpenDescriptors() {
    std::set<std::string> open;
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) != -1) {
            open.insert(std::to_string(descriptor));
        }
    }
    return open;
}

// What whoever started the tests left open; every other program here has it too.
const std::set<std::string> INHERITED = OpenDescriptors();

TEST_F(TOstelApplicationFaults, AnotherProgramInheritsNoConnection) {
    EXPECT_EQ(Value(), "1");
    EXPECT_THAT(OpenDescriptors(), SizeIs(Gt(INHERITED.size()))) << "no connection to inherit";
    std::set<std::string> expected = INHERITED;
    expected.insert({"0", "1", "2"});
    // The shell's own, not those of ls: a shell that has something left to do does not become ls.
    const TFinished list = RunProgram({"sh", "-c", "ls /proc/$$/fd; exit $?"});
    EXPECT_EQ(list.status, 0);
    std::istringstream names(list.output);
    EXPECT_THAT(std::set<std::string>(std::istream_iterator<std::string>(names), {}),
                IsSubsetOf(expected));
}

}  // namespace
