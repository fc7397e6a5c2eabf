// What children do to the parent's descriptors and signals, and what the system sees of it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <memory>
#include <regex>
#include <sstream>
#include <thread>

#include "OstelProcUtils.h"
#include "SignalStorm.h"
#include "Strace.h"
#include "TempDir.h"

using OstelProcUtils::TProcess;

namespace {

using TBytes = std::vector<unsigned char>;

std::string TextOf(TProcess& process) {
    std::string text;
    process.Read(text);
    return text;
}

bool IsOpen(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

TEST(TPipe, IsNotForOtherPrograms) {
    const TProcess::TPipe pipe;
    EXPECT_EQ(fcntl(pipe.readEnd, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(pipe.writeEnd, F_GETFD), FD_CLOEXEC);
    ASSERT_EQ(write(pipe.writeEnd, "x", 1), 1);
    char byte = 0;
    EXPECT_EQ(read(pipe.readEnd, &byte, 1), 1);
}

TEST(TPipe, ClosesBothEndsOnce) {
    auto pipe = std::make_unique<TProcess::TPipe>();
    const std::array<int, 2> ends = {pipe->readEnd, pipe->writeEnd};
    pipe->Close();
    EXPECT_FALSE(IsOpen(ends[0]) || IsOpen(ends[1]));
    // The numbers are others' now.
    ASSERT_EQ(open("/dev/null", O_RDONLY | O_CLOEXEC), ends[0]);
    ASSERT_EQ(open("/dev/null", O_RDONLY | O_CLOEXEC), ends[1]);
    pipe->Close();
    pipe.reset();
    EXPECT_TRUE(IsOpen(ends[0]) && IsOpen(ends[1]));
    close(ends[0]);
    close(ends[1]);
}

TEST(TPipe, LeavesNothingBehindWhenOneEndOnlyIsToBeHad) {
    const int in = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 10);
    const int next = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(next);
    close(STDIN_FILENO);
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    // Room for a pipe, but not to move its end away from the standard streams.
    const rlimit few{static_cast<rlim_t>(next + 1), limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &few);
    EXPECT_THROW(TProcess::TPipe(), std::runtime_error);
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_FALSE(IsOpen(STDIN_FILENO) || IsOpen(next));
    dup2(in, STDIN_FILENO);
    close(in);
}

TEST(TProcess, NeverClosesADescriptorThatIsAnothersByNow) {
    std::array<int, 4> numbers{};
    for (int& number : numbers) {
        number = open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
    std::for_each(numbers.begin(), numbers.end(), close);
    auto cat = std::make_unique<TProcess>("cat", std::vector<std::string>());
    for (const int number : numbers) {
        ASSERT_TRUE(IsOpen(number)) << "one of the pipes has it";
    }
    ASSERT_TRUE(cat->Spawn(""));
    cat->SendEof();
    int left = 0;
    std::vector<int> others;
    for (const int number : numbers) {
        if (IsOpen(number)) {
            ++left;
        } else {
            others.push_back(number);
        }
    }
    EXPECT_EQ(left, 1) << "the child's output";
    for (const int other : others) {
        ASSERT_EQ(open("/dev/null", O_RDONLY | O_CLOEXEC), other);
    }
    cat->SendEof();
    cat->Write("x");
    cat->Wait();
    cat.reset();
    int open = 0;
    for (const int number : numbers) {
        open += IsOpen(number) ? 1 : 0;
    }
    EXPECT_EQ(open, 3) << "all but the child's output";
    std::for_each(others.begin(), others.end(), close);
}

// What comes of a process when there are only the descriptors below the limit.
std::string ErrorBelow(int descriptors) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit few{static_cast<rlim_t>(descriptors), limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &few);
    try {
        const TProcess process("true", {});
    } catch (const std::runtime_error& error) {
        setrlimit(RLIMIT_NOFILE, &limit);
        return error.what();
    }
    setrlimit(RLIMIT_NOFILE, &limit);
    return "none";
}

TEST(TProcess, NeedsTwoPipesBeforeItStarts) {
    const int next = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(next);
    for (const int free : {0, 1, 2, 3}) {
        EXPECT_EQ(ErrorBelow(next + free), "[TPipe]: Failed to create a pipe!") << free;
        EXPECT_EQ(open("/dev/null", O_RDONLY | O_CLOEXEC), next) << "one pipe was left behind";
        close(next);
    }
}

TEST(TProcess, LeavesTheChildItsStandardStreamsOnly) {
    TProcess other("cat", {});
    ASSERT_TRUE(other.Spawn(""));
    TProcess process("sh", {"-c", "ls /proc/$$/fd; true"});
    ASSERT_TRUE(process.Spawn(""));
    std::istringstream words(TextOf(process));
    for (std::string number; words >> number;) {
        // What the test program itself was started with may be there as well.
        const bool isOurs = number.size() == 1 && number[0] <= '2';
        EXPECT_TRUE(isOurs || !(fcntl(std::stoi(number), F_GETFD) & FD_CLOEXEC)) << number;
    }
    // Nobody else holds its input open.
    other.SendEof();
    EXPECT_EQ(TextOf(other), "");
}

TEST(TProcess, CanDoWithoutTheParentsStandardStreams) {
    const int in = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 10);
    const int out = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 10);
    close(STDIN_FILENO);
    close(STDOUT_FILENO);
    const TProcess::TPipe moved;
    EXPECT_EQ(fcntl(moved.readEnd, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(moved.writeEnd, F_GETFD), FD_CLOEXEC);
    std::string answer;
    {
        TProcess cat("cat", {});
        EXPECT_TRUE(cat.Spawn(""));
        cat.Write("x");
        cat.SendEof();
        answer = TextOf(cat);
    }
    EXPECT_FALSE(IsOpen(STDIN_FILENO) || IsOpen(STDOUT_FILENO));
    dup2(in, STDIN_FILENO);
    dup2(out, STDOUT_FILENO);
    EXPECT_EQ(answer, "x\n");
}

// A child that reads nothing, as long as it lives.
class TProcessNeverReading : public testing::Test {
protected:
    TProcessNeverReading() {
        EXPECT_TRUE(m_Child.Spawn(""));
        m_Pid = std::stoi(TextOf(m_Child));
        m_Input = open(("/proc/" + std::to_string(m_Pid) + "/fd/0").c_str(),
                       O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        EXPECT_NE(m_Input, -1);
    }
    ~TProcessNeverReading() override { End(); }

    int Unread() const {
        int count = -1;
        EXPECT_EQ(ioctl(m_Input, FIONREAD, &count), 0);
        return count;
    }

    // Its pipe has no reader any more.
    void End() {
        if (m_Pid != -1) {
            close(m_Input);
            kill(m_Pid, SIGKILL);
            m_Child.Wait();
            m_Pid = -1;
        }
    }

    TProcess m_Child{"sh", {"-c", "echo $$; echo; exec sleep 1000"}};
    pid_t m_Pid = -1;
    int m_Input = -1;
};

TEST_F(TProcessNeverReading, IsSentBytesWhenThereAreEnoughOfThem) {
    m_Child.Write(TBytes(8191, 'x'));
    EXPECT_EQ(Unread(), 0);
    m_Child.Write(TBytes(1, 'x'));
    EXPECT_EQ(Unread(), 8192);
    m_Child.Write(TBytes(1, 'x'));
    EXPECT_EQ(Unread(), 8192);
    m_Child.SendEof();
    EXPECT_EQ(Unread(), 8193);
}

TEST_F(TProcessNeverReading, IsSentBytesWithTheNextLine) {
    m_Child.Write(TBytes(3, 'x'));
    EXPECT_EQ(Unread(), 0);
    m_Child.Write("a");
    EXPECT_EQ(Unread(), 5);
}

TEST_F(TProcessNeverReading, LetsItsWriterGoWhenItIsKilled) {
    std::thread killer([this] {
        const int capacity = fcntl(m_Input, F_GETPIPE_SZ);
        while (Unread() < capacity) {
            std::this_thread::yield();
        }
        close(m_Input);
        kill(m_Pid, SIGKILL);
    });
    m_Child.Write(std::string(1000000, 'x'));
    killer.join();
    m_Child.Wait();
    m_Pid = -1;
    EXPECT_EQ(m_Child.GetStatus(), SIGKILL);
}

TEST(TProcess, ReadsAheadWhatItsBufferHolds) {
    TProcess process("sh", {"-c", "echo; head -c 9000 /dev/zero"});
    // It starts with the pipe from the child, whose read end is the first number.
    const int ahead = fcntl(*reinterpret_cast<const int*>(&process), F_DUPFD_CLOEXEC, 0);
    ASSERT_TRUE(process.Spawn(""));
    process.Wait();
    EXPECT_EQ(TextOf(process), "");
    int count = -1;
    EXPECT_EQ(ioctl(ahead, FIONREAD, &count), 0);
    EXPECT_EQ(count, 9001 - 8191) << "the buffer keeps one byte for what is put back";
    close(ahead);
}

int s_Sigpipes = 0;

// Each way to write to a child that has gone. SIGPIPE keeps its disposition and comes to nobody.
class TProcessGone : public TProcessNeverReading {
protected:
    TProcessGone() {
        m_Mine.sa_handler = [](int) { ++s_Sigpipes; };
        sigaction(SIGPIPE, &m_Mine, nullptr);
    }

    void TearDown() override {
        EXPECT_EQ(s_Sigpipes, 0);
        struct sigaction now = {};
        sigaction(SIGPIPE, nullptr, &now);
        EXPECT_EQ(now.sa_handler, m_Mine.sa_handler);
        sigset_t signals;
        sigpending(&signals);
        EXPECT_EQ(sigismember(&signals, SIGPIPE), 0);
        pthread_sigmask(SIG_SETMASK, nullptr, &signals);
        EXPECT_EQ(sigismember(&signals, SIGPIPE), 0);
    }

    struct sigaction m_Mine = {};
};

TEST_F(TProcessGone, BearsALine) {
    End();
    m_Child.Write("x");
    m_Child.Write("y");
    m_Child.SendEof();
}

TEST_F(TProcessGone, BearsBytes) {
    End();
    m_Child.Write(TBytes(10000, 'x'));
}

TEST_F(TProcessGone, BearsTheEndOfTheInput) {
    m_Child.Write(TBytes(1, 'x'));
    End();
    m_Child.SendEof();
}

TEST_F(TProcessGone, BearsTheEndOfTheObject) {
    TProcess gone("true", {});
    ASSERT_TRUE(gone.Spawn(""));
    gone.Write(TBytes(1, 'x'));
    gone.Wait();
}

class TProcessSignals : public testing::Test {
protected:
    TProcessSignals() { EXPECT_TRUE(m_Cat.Spawn("")); }

    TProcess m_Cat{"cat", {}};
    const std::string m_Long = std::string(300000, 'x');
};

TEST_F(TProcessSignals, DoNotEndARead) {
    const TSignalStorm storm;
    std::thread writer = TSignalStorm::Later([this] {
        m_Cat.Write("late");
        m_Cat.SendEof();
    });
    EXPECT_EQ(TextOf(m_Cat), "late\n");
    writer.join();
}

TEST_F(TProcessSignals, DoNotEndAWrite) {
    const TSignalStorm storm;
    TBytes bytes;
    std::thread reader = TSignalStorm::Later([&] { m_Cat.Read(bytes); });
    m_Cat.Write(m_Long);
    m_Cat.SendEof();
    reader.join();
    EXPECT_TRUE(std::string(bytes.begin(), bytes.end()) == m_Long + "\n");
}

TEST_F(TProcessSignals, DoNotEndAWait) {
    const TSignalStorm storm;
    std::thread writer = TSignalStorm::Later([this] { m_Cat.SendEof(); });
    m_Cat.Wait();
    writer.join();
    EXPECT_EQ(m_Cat.GetStatus(), 0);
}

// The calls, one after the other.
std::regex Sequence(const std::vector<std::string>& calls) {
    std::string pattern;
    for (const std::string& call : calls) {
        pattern += (pattern.empty() ? "" : "[^\n]*\n") + call;
    }
    return std::regex(pattern);
}

TEST(TProcess, MakesExactlyTheseCalls) {
    const std::string obstacle = Strace::WhyNot();
    if (!obstacle.empty()) {
        GTEST_SKIP() << obstacle;
    }
    const TempDir dir;
    const std::string trace = Strace::Run("pipe2,dup2,close,execve,wait4,waitpid",
                                          {PROC_UTILS_PROGRAM, dir.Path(), "none", "word"});
    std::smatch ends;
    ASSERT_TRUE(std::regex_search(trace, ends,
                                  Sequence({R"(pipe2\(\[(\d+), (\d+)\], 0x80000\))",
                                            R"(pipe2\(\[(\d+), (\d+)\], 0x80000\))"})))
        << trace;
    // The first pipe comes from the child, the second one leads to it.
    const auto call = [&](const std::string& name, int end, const std::string& more = "") {
        return name + "\\(" + ends.str(static_cast<std::size_t>(end)) + more + "\\) ";
    };
    const std::string path = dir.File("none");
    EXPECT_TRUE(std::regex_search(
        trace, Sequence({call("dup2", 3, ", 0"), call("dup2", 2, ", 1"), call("close", 3),
                         call("close", 4), call("close", 1), call("close", 2),
                         "execve\\(\"" + path + "\", \\[\"" + path + "\", \"word\"\\], "})))
        << trace;
    // Apart from each other: a sanitizer makes calls of its own between them.
    EXPECT_TRUE(std::regex_search(trace, Sequence({call("close", 3), call("close", 2)}))) << trace;
    EXPECT_THAT(trace, testing::ContainsRegex("wait4.*WEXITSTATUS.s. == 1}], 0, NULL"));
}

}  // namespace
