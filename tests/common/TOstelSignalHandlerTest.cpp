#include "TOstelSignalHandler.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <thread>
#include <type_traits>

#include "BinaryLayout.h"
#include "ChildProcess.h"
#include "NoProcesses.h"
#include "RecordingLog.h"
#include "WaitUntil.h"

struct TFuture {
    friend std::size_t OffsetOf(TFuture);
};
struct THandler {
    friend std::size_t OffsetOf(THandler);
};
template struct MemberOffset<TFuture, &TOstelSignalHandler::m_Future>;
template struct MemberOffset<THandler, &TOstelSignalHandler::m_Handler>;

namespace {

int s_SigmaskError = 0;

}  // namespace

// Takes the place of the system's own for the library as well: no valid call of it fails.
extern "C" OSTEL_API int pthread_sigmask(int how, const sigset_t* set, sigset_t* before) noexcept {
    using TSigmask = int (*)(int, const sigset_t*, sigset_t*);
    static const auto next = reinterpret_cast<TSigmask>(dlsym(RTLD_NEXT, "pthread_sigmask"));
    return s_SigmaskError != 0 ? s_SigmaskError : next(how, set, before);
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// From another process, which has ended when this returns.
void SendFromOutside(const std::string& signals) {
    const TFinished sender =
        RunProgram({"sh", "-c", "for name in " + signals + "; do kill -$name $PPID; done"});
    EXPECT_EQ(sender.status, 0) << sender.errors;
}

bool IsAsleep(pid_t thread) {
    std::string word;
    std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/status");
    while (status >> word && word != "State:") {
    }
    status >> word;
    return word == "S";
}

template <typename Member>
const Member& MemberAt(std::size_t offset, const TOstelSignalHandler& handler) {
    const void* const place = reinterpret_cast<const char*>(&handler) + offset;
    return *static_cast<const Member*>(place);
}

const std::future<int>& FutureOf(const TOstelSignalHandler& handler) {
    return MemberAt<std::future<int>>(OffsetOf(TFuture()), handler);
}

// What the waiting ended with, which Wait leaves where it is.
int ResultOf(const TOstelSignalHandler& handler) {
    return const_cast<std::future<int>&>(FutureOf(handler)).get();
}

std::future_status StatusOf(const TOstelSignalHandler& handler) {
    return FutureOf(handler).wait_for(std::chrono::seconds(0));
}

bool IsBlocked(int signal) {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return sigismember(&mask, signal) == 1;
}

bool IsPending(int signal) {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, signal) == 1;
}

void Never(int signal) {
    ADD_FAILURE() << "signal " << signal << " was not blocked";
}

class TOstelSignalHandlerTest : public testing::Test {
protected:
    void Wait(TOstelSignalHandler& handler, std::function<bool(int)>&& accept) {
        m_Waiter = gettid();
        handler.Wait(std::move(accept));
    }

    // Sends the signals when the test's Wait has nothing to do but wait for them.
    std::thread SenderOf(const std::string& signals) {
        return std::thread([this, signals] {
            EXPECT_TRUE(WaitUntil([this] { return m_Waiter != 0 && IsAsleep(m_Waiter); }));
            SendFromOutside(signals);
        });
    }

    // Waits with a handler that accepts SIGTERM, for signals that come then.
    std::vector<int> SignalsSeen(TOstelSignalHandler& handler, const std::string& signals) {
        std::vector<int> seen;
        std::thread sender = SenderOf(signals);
        Wait(handler, [&](int signal) {
            seen.push_back(signal);
            m_HandlersThread = std::this_thread::get_id();
            return signal == SIGTERM;
        });
        sender.join();
        return seen;
    }

    // The waiting ended by a signal that came too early.
    static void EndEarly(const TOstelSignalHandler& handler, const std::string& signal) {
        SendFromOutside(signal);
        EXPECT_TRUE(WaitUntil([&] { return StatusOf(handler) == std::future_status::ready; }));
    }

    std::thread::id m_HandlersThread;
    std::atomic<pid_t> m_Waiter{0};
};

TEST_F(TOstelSignalHandlerTest, KeepsTheOrderOfItsMembersBehindTheVirtualTable) {
    static_assert(std::has_virtual_destructor_v<TOstelSignalHandler>);
    EXPECT_EQ(OffsetOf(TFuture()), sizeof(void*));
    EXPECT_EQ(OffsetOf(THandler()), sizeof(void*) + sizeof(std::future<int>));
    EXPECT_EQ(sizeof(TOstelSignalHandler), OffsetOf(THandler()) + sizeof(std::function<bool(int)>))
        << "applications make such objects themselves";
}

TEST_F(TOstelSignalHandlerTest, ConsumesSignalsUntilOneIsAccepted) {
    TOstelSignalHandler handler({SIGINT, SIGTERM});
    EXPECT_THAT(SignalsSeen(handler, "INT TERM"), ElementsAre(SIGINT, SIGTERM));
    EXPECT_EQ(ResultOf(handler), SIGTERM);
    EXPECT_NE(m_HandlersThread, std::this_thread::get_id());
    EXPECT_FALSE(IsPending(SIGINT) || IsPending(SIGTERM));
    EXPECT_THAT(RecordingLog::Lines(), IsEmpty());
}

TEST_F(TOstelSignalHandlerTest, LeavesASignalAfterTheAcceptedOnePending) {
    TOstelSignalHandler handler({SIGINT, SIGTERM});
    EXPECT_THAT(SignalsSeen(handler, "TERM"), ElementsAre(SIGTERM));
    SendFromOutside("INT");
    EXPECT_TRUE(IsPending(SIGINT));
    EXPECT_TRUE(IsBlocked(SIGINT) && IsBlocked(SIGTERM));
}

TEST_F(TOstelSignalHandlerTest, DoesNotWaitAgainAfterTheAcceptedSignal) {
    TOstelSignalHandler handler({SIGTERM});
    const auto first = std::make_shared<int>();
    std::function<bool(int)> accept = [first](int) { return true; };
    std::thread sender = SenderOf("TERM");
    Wait(handler, std::move(accept));
    sender.join();
    EXPECT_EQ(first.use_count(), 2) << "moved to the object, which keeps it";
    SendFromOutside("TERM");
    handler.Wait([](int) -> bool { throw std::logic_error("called again"); });
    EXPECT_EQ(first.use_count(), 1);
    EXPECT_TRUE(IsPending(SIGTERM));
}

TEST_F(TOstelSignalHandlerTest, EndsWithASignalThatComesBeforeAnybodyWaits) {
    TOstelSignalHandler handler({SIGINT, SIGTERM});
    EndEarly(handler, "INT");
    bool isCalled = false;
    handler.Wait([&](int) { return isCalled = true; });
    EXPECT_FALSE(isCalled);
    EXPECT_THROW(ResultOf(handler), std::bad_function_call);
    EXPECT_THAT(RecordingLog::Lines(), IsEmpty());
}

TEST_F(TOstelSignalHandlerTest, EndsWithASignalForAnEmptyHandler) {
    TOstelSignalHandler handler({SIGINT, SIGTERM});
    std::thread sender = SenderOf("INT");
    Wait(handler, {});
    sender.join();
    EXPECT_FALSE(IsPending(SIGINT));
    EXPECT_THROW(ResultOf(handler), std::bad_function_call);
}

TEST_F(TOstelSignalHandlerTest, KeepsWhatItsHandlerThrowsToItself) {
    TOstelSignalHandler handler({SIGINT, SIGTERM});
    std::thread sender = SenderOf("INT");
    EXPECT_NO_THROW(Wait(
        handler, [](int signal) -> bool { throw std::runtime_error(std::to_string(signal)); }));
    sender.join();
    EXPECT_FALSE(IsPending(SIGINT));
    EXPECT_THROW(ResultOf(handler), std::runtime_error);
}

TEST_F(TOstelSignalHandlerTest, LetsTheEndOfAFormerHandlerUseAnotherObject) {
    TOstelSignalHandler other({SIGINT});
    EndEarly(other, "INT");
    TOstelSignalHandler handler({SIGTERM});
    EndEarly(handler, "TERM");
    bool isWaitedFor = false;
    const auto waitForOther = [&](const int*) {
        other.Wait({});
        isWaitedFor = true;
    };
    handler.Wait([held = std::shared_ptr<const int>(nullptr, waitForOther)](int) { return true; });
    EXPECT_FALSE(isWaitedFor);
    handler.Wait({});
    EXPECT_TRUE(isWaitedFor);
}

TEST_F(TOstelSignalHandlerTest, BlocksItsSignalsInAdditionAndForLaterThreads) {
    std::signal(SIGUSR1, Never);
    sigset_t mine;
    sigemptyset(&mine);
    sigaddset(&mine, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &mine, nullptr);
    {
        const TOstelSignalHandler handler({SIGUSR1});
        EXPECT_TRUE(IsBlocked(SIGUSR1) && IsBlocked(SIGUSR2));
        EXPECT_FALSE(IsBlocked(SIGTERM));
        std::thread([] { EXPECT_TRUE(IsBlocked(SIGUSR1)); }).join();
        EndEarly(handler, "USR1");
    }
    EXPECT_TRUE(IsBlocked(SIGUSR1)) << "after its end, too";
}

TEST_F(TOstelSignalHandlerTest, BlocksItsDestructionUntilASignalComes) {
    auto handler = std::make_unique<TOstelSignalHandler>(std::vector<int>{SIGTERM});
    std::atomic<pid_t> id{0};
    std::atomic<bool> isDestroyed{false};
    std::thread destroyer([&] {
        id = gettid();
        handler.reset();
        isDestroyed = true;
    });
    EXPECT_TRUE(WaitUntil([&] { return id != 0 && (isDestroyed || IsAsleep(id)); }));
    EXPECT_FALSE(isDestroyed);
    SendFromOutside("TERM");
    destroyer.join();
    EXPECT_FALSE(IsPending(SIGTERM));
}

TEST_F(TOstelSignalHandlerTest, NeverEndsWithoutSignals) {
    static std::atomic<bool> s_IsCaught{false};
    static std::atomic<bool> s_HasEnded{false};
    std::signal(SIGTERM, [](int) { s_IsCaught = true; });
    sigset_t before;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    // It outlives the test: nothing can end it.
    static auto* const s_Handler = new TOstelSignalHandler({});
    sigset_t after;
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    for (int signal = 1; signal < SIGRTMIN; ++signal) {
        EXPECT_EQ(sigismember(&after, signal), sigismember(&before, signal)) << signal;
    }
    std::atomic<pid_t> id{0};
    std::thread([&] {
        id = gettid();
        s_Handler->Wait([](int) { return true; });
        s_HasEnded = true;
    }).detach();
    EXPECT_TRUE(WaitUntil([&] { return id != 0 && (s_HasEnded || IsAsleep(id)); }));
    SendFromOutside("TERM");
    EXPECT_TRUE(WaitUntil([] { return s_IsCaught.load(); }));
    EXPECT_FALSE(s_HasEnded);
    EXPECT_EQ(StatusOf(*s_Handler), std::future_status::timeout);
}

TEST_F(TOstelSignalHandlerTest, LogsWhatIsNoSignalAndWaitsForTheRest) {
    TOstelSignalHandler handler({0, SIGTERM, -1, 1000});
    EXPECT_THAT(SignalsSeen(handler, "TERM"), ElementsAre(SIGTERM));
    EXPECT_THAT(RecordingLog::Texts(3),
                ElementsAre("[TOstelSignalHandler] '0' is not a signal.",
                            "[TOstelSignalHandler] '-1' is not a signal.",
                            "[TOstelSignalHandler] '1000' is not a signal."));
}

void Offer(TOstelSignalHandler& handler, std::function<bool(int)>& accept) {
    handler.Wait(std::move(accept));
}

TEST_F(TOstelSignalHandlerTest, DoesNotWaitForWhatCannotBeBlocked) {
    s_SigmaskError = EPERM;
    TOstelSignalHandler handler({SIGTERM});
    s_SigmaskError = 0;
    EXPECT_FALSE(FutureOf(handler).valid());
    const std::string blocking =
        std::string("[TOstelSignalHandler] Can't update sigmask - '") + std::strerror(EPERM) + "'.";
    EXPECT_THAT(RecordingLog::Texts(2), ElementsAre(blocking));
    RecordingLog::Clear();
    std::function<bool(int)> accept = [](int) { return true; };
    Offer(handler, accept);
    EXPECT_TRUE(accept) << "left to the caller";
    handler.Wait({});
    const std::string waiting = "[TOstelSignalHandler] Future object is not available.";
    EXPECT_THAT(RecordingLog::Texts(2), ElementsAre(waiting, waiting));
}

TEST_F(TOstelSignalHandlerTest, WaitsOnTheCallersThreadWhenThereIsNoOther) {
    const TNoProcesses noThreads;
    TOstelSignalHandler handler({SIGINT, SIGTERM});
    ASSERT_EQ(StatusOf(handler), std::future_status::deferred);
    kill(getpid(), SIGINT);
    kill(getpid(), SIGTERM);
    std::vector<int> seen;
    handler.Wait([&](int signal) {
        seen.push_back(signal);
        m_HandlersThread = std::this_thread::get_id();
        return signal == SIGTERM;
    });
    EXPECT_THAT(seen, testing::UnorderedElementsAre(SIGINT, SIGTERM));
    EXPECT_EQ(m_HandlersThread, std::this_thread::get_id());
}

TEST_F(TOstelSignalHandlerTest, DoesNotBlockItsDestructionWhenNothingWaits) {
    const TNoProcesses noThreads;
    { const TOstelSignalHandler handler({SIGTERM}); }
    EXPECT_TRUE(IsBlocked(SIGTERM));
}

}  // namespace
