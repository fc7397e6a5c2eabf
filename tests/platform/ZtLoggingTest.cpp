#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "LogEnds.h"
#include "TempDir.h"
#include "WaitUntil.h"
#include "zt_logging.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Pair;
using testing::SizeIs;

namespace {

struct TResult {
    int status;
    std::string output;
};

TResult RunCommand(const std::string& command) {
    struct TCloser {
        void operator()(std::FILE* pipe) const { pclose(pipe); }
    };
    std::unique_ptr<std::FILE, TCloser> pipe(popen(command.c_str(), "r"));
    TResult result{-1, ""};
    if (!pipe) {
        return result;
    }
    std::array<char, 4096> part{};
    while (const std::size_t length = std::fread(part.data(), 1, part.size(), pipe.get())) {
        result.output.append(part.data(), length);
    }
    result.status = pclose(pipe.release());
    return result;
}

void LogTo(int destination) {
    ASSERT_EQ(0, ztLogging_setLogDestination(destination));
}

void LogToFile(const std::string& path) {
    ASSERT_EQ(0, setenv("ZT_LOGGING_FILE", path.c_str(), 1));
    LogTo(ZT_LOG_DESTINATION_FILE);
}

}  // namespace

TEST(ZtLogging, ExportsExactlyTheSixFunctions) {
    const TResult nm = RunCommand(
        "nm --dynamic --defined-only --format=just-symbols " ZT_LOGGING_LIBRARY " | sort");
    EXPECT_EQ(0, nm.status);
    EXPECT_EQ(
        "ztLogging_log\nztLogging_logInit\nztLogging_logSync\nztLogging_logTerm\n"
        "ztLogging_setLogDestination\nztLogging_setLogLevel\n",
        nm.output);
}

TEST(ZtLogging, LineCarriesTimeLevelLoggerProcessAndText) {
    const LogEnds::TStandardOutput out;
    LogTo(ZT_LOG_DESTINATION_STDOUT);
    EXPECT_EQ(0, ztLogging_logInit("KTA"));
    ztLogging_log(ZT_LOG_LEVEL_WARNING, "%s is %d", "it", 42);
    EXPECT_THAT(out.Writes(),
                ElementsAre(MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} "
                                         "[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} WARNING KTA\\[" +
                                         std::to_string(getpid()) + "\\]: it is 42\n")));
}

TEST(ZtLogging, LevelsAreNamed) {
    struct TCase {
        int level;
        const char* name;
        int priority;
    };
    const LogEnds::TStandardOutput out;
    LogTo(ZT_LOG_DESTINATION_STDOUT | ZT_LOG_DESTINATION_SYSLOG);
    ASSERT_EQ(0, ztLogging_setLogLevel(7));
    const std::vector<TCase> cases = {{0, " ERROR ", LOG_ERR},       {2, " ERROR ", LOG_ERR},
                                      {3, " WARNING ", LOG_WARNING}, {4, " NOTICE ", LOG_NOTICE},
                                      {5, " INFO ", LOG_INFO},       {6, " DEBUG ", LOG_DEBUG},
                                      {7, " DEBUG ", LOG_DEBUG}};
    for (const TCase& one : cases) {
        ztLogging_log(one.level, "text");
        EXPECT_THAT(out.Writes(), ElementsAre(HasSubstr(one.name)));
        EXPECT_EQ(LOG_USER | one.priority, LogEnds::SystemLog().back().first);
    }
}

TEST(ZtLogging, LinesAboveTheLevelAreDropped) {
    const LogEnds::TStandardOutput out;
    LogTo(ZT_LOG_DESTINATION_STDOUT);
    for (const int level : {2, 4, 6}) {
        ASSERT_EQ(0, ztLogging_setLogLevel(level));
        ztLogging_log(level + 1, "above");
        ztLogging_log(level, "at the level");
        EXPECT_THAT(out.Writes(), ElementsAre(HasSubstr("at the level")));
    }
}

TEST(ZtLogging, DestinationsCombine) {
    const TempDir dir;
    const std::string path = dir.File("log");
    ASSERT_EQ(0, setenv("ZT_LOGGING_FILE", path.c_str(), 1));
    const LogEnds::TStandardOutput out;
    for (const int destination : {0, 2, 4, 6, 8, 10, 12, 14}) {
        const std::size_t fileLines = LogEnds::FileLines(path).size();
        const std::size_t systemLines = LogEnds::SystemLog().size();
        LogTo(destination);
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "text");
        EXPECT_EQ((destination & 2) != 0 ? 1U : 0U, out.Writes().size()) << destination;
        EXPECT_EQ((destination & 4) != 0 ? 1U : 0U, LogEnds::SystemLog().size() - systemLines)
            << destination;
        EXPECT_EQ((destination & 8) != 0 ? 1U : 0U, LogEnds::FileLines(path).size() - fileLines)
            << destination;
    }
}

TEST(ZtLogging, SystemLogTakesLoggerNameAndText) {
    ztLogging_logInit("KTA");
    ztLogging_log(ZT_LOG_LEVEL_ERROR, "100%% %s", "%s");
    EXPECT_THAT(LogEnds::SystemLog(), ElementsAre(Pair(LOG_USER | LOG_ERR, "KTA: 100% %s")));
}

TEST(ZtLogging, SettersRefuseWhatIsNoSetting) {
    const LogEnds::TStandardOutput out;
    LogTo(ZT_LOG_DESTINATION_STDOUT);
    ASSERT_EQ(0, ztLogging_setLogLevel(ZT_LOG_LEVEL_WARNING));
    for (const int level : {-1, 8, 1000}) {
        EXPECT_EQ(-1, ztLogging_setLogLevel(level)) << level;
    }
    for (const int destination : {1, 3, 16, -1}) {
        EXPECT_EQ(-1, ztLogging_setLogDestination(destination)) << destination;
    }
    ztLogging_log(ZT_LOG_LEVEL_NOTICE, "dropped still");
    ztLogging_log(ZT_LOG_LEVEL_WARNING, "written still");
    EXPECT_THAT(out.Writes(), ElementsAre(HasSubstr("written still")));
}

TEST(ZtLogging, FileDestinationWithoutAFileIsRefusedAloud) {
    const LogEnds::TStandardError err;
    EXPECT_EQ(-1, ztLogging_setLogDestination(ZT_LOG_DESTINATION_FILE));
    EXPECT_EQ("zt_logging: the file destination has no file\n", err.Text());
    ztLogging_log(ZT_LOG_LEVEL_ERROR, "text");
    EXPECT_THAT(LogEnds::SystemLog(), SizeIs(1));
}

TEST(ZtLogging, FileThatCannotBeOpenedIsRefusedAloud) {
    const TempDir dir;
    const std::string fifo = dir.File("fifo");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    for (const std::string& path : {dir.File("no/such/folder"), dir.Path().string(), fifo}) {
        const LogEnds::TStandardError err;
        ASSERT_EQ(0, setenv("ZT_LOGGING_FILE", path.c_str(), 1));
        ASSERT_EQ(0, ztLogging_logSync());
        EXPECT_EQ(-1, ztLogging_setLogDestination(ZT_LOG_DESTINATION_FILE));
        EXPECT_THAT(err.Text(), HasSubstr("zt_logging: cannot write the log file " + path + ": "));
    }
}

TEST(ZtLogging, FileIsAppendedTo) {
    const TempDir dir;
    LogToFile(dir.File("log"));
    ztLogging_log(ZT_LOG_LEVEL_ERROR, "first");
    LogToFile(dir.File("log"));
    ztLogging_log(ZT_LOG_LEVEL_ERROR, "second");
    EXPECT_THAT(LogEnds::FileLines(dir.File("log")),
                ElementsAre(HasSubstr("first"), HasSubstr("second")));
}

TEST(ZtLogging, LineIsOneWriteAndStaysWhole) {
    const LogEnds::TStandardOutput out;
    LogTo(ZT_LOG_DESTINATION_STDOUT);
    const std::string text(100 * 1024, 'x');
    ztLogging_log(ZT_LOG_LEVEL_ERROR, "<%s>", text.c_str());
    EXPECT_THAT(out.Writes(), ElementsAre(testing::EndsWith("<" + text + ">\n")));
}

TEST(ZtLogging, SlowReaderOfANonBlockingPipeGetsWholeLines) {
    std::array<int, 2> ends{};
    ASSERT_EQ(0, pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK));
    const int original = dup(STDOUT_FILENO);
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
    LogTo(ZT_LOG_DESTINATION_STDOUT);
    // Four times what the pipe holds.
    const std::string text(256 * 1024, 'x');
    std::thread writer([&] {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s", text.c_str());
        dup2(original, STDOUT_FILENO);
    });
    std::string received;
    EXPECT_TRUE(WaitUntil([&] {
        std::array<char, 4096> part{};
        const ssize_t length = read(ends[0], part.data(), part.size());
        received.append(part.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
        return length == 0;
    }));
    writer.join();
    close(ends[0]);
    close(original);
    EXPECT_THAT(received, testing::EndsWith("]: " + text + "\n"));
}

TEST(ZtLogging, TextCannotForgeALine) {
    const LogEnds::TStandardOutput out;
    LogTo(ZT_LOG_DESTINATION_STDOUT | ZT_LOG_DESTINATION_SYSLOG);
    ztLogging_logInit("KTA\nforged");
    ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s", "one\ntwo\r\x1b[2J\x7f\tthree \xc3\xa4\n\n");
    const std::vector<std::string> writes = out.Writes();
    ASSERT_THAT(writes, SizeIs(1));
    EXPECT_THAT(writes[0], HasSubstr("KTA\\nforged["));
    EXPECT_THAT(writes[0], testing::EndsWith("]: one\\ntwo\\x0d\\x1b[2J\\x7f\tthree \xc3\xa4\n"));
    EXPECT_EQ("KTA\\nforged: one\\ntwo\\x0d\\x1b[2J\\x7f\tthree \xc3\xa4",
              LogEnds::SystemLog().back().second);
}

TEST(ZtLogging, FormatThatCannotBeFilledInIsLoggedAsItIs) {
    LogTo(ZT_LOG_DESTINATION_SYSLOG);
    const std::array<wchar_t, 2> unprintable = {static_cast<wchar_t>(0x7fffffff), L'\0'};
    ztLogging_log(ZT_LOG_LEVEL_ERROR, "wide %ls", unprintable.data());
    EXPECT_THAT(LogEnds::SystemLog(), ElementsAre(Pair(testing::_, ": wide %ls")));
}

TEST(ZtLogging, MissingTextsAreNoReasonToCrash) {
    EXPECT_EQ(0, ztLogging_logInit(nullptr));
    // Not a constant, which the compiler would rightly refuse.
    const char* volatile none = nullptr;
    const char* const format = none;
    ztLogging_log(ZT_LOG_LEVEL_ERROR, format, 0);
    EXPECT_THAT(LogEnds::SystemLog(), IsEmpty());
}

TEST(ZtLogging, ErrnoIsLeftAlone) {
    const TempDir dir;
    ASSERT_EQ(0, setenv("ZT_LOGGING_SETTINGS", dir.File("missing").c_str(), 1));
    const LogEnds::TStandardError err;
    errno = EDOM;
    ztLogging_log(ZT_LOG_LEVEL_ERROR, "text");
    EXPECT_EQ(EDOM, errno);
    EXPECT_THAT(LogEnds::SystemLog(), SizeIs(1));
}

TEST(ZtLogging, CallsBeforeInitAndAfterTermAreServedWithoutAName) {
    const LogEnds::TStandardOutput out;
    ztLogging_logTerm();
    LogTo(ZT_LOG_DESTINATION_STDOUT);
    ztLogging_log(ZT_LOG_LEVEL_ERROR, "before");
    ztLogging_logInit("KTA");
    ztLogging_log(ZT_LOG_LEVEL_ERROR, "between");
    ztLogging_logTerm();
    ztLogging_log(ZT_LOG_LEVEL_ERROR, "after");
    const std::string pid = std::to_string(getpid());
    EXPECT_THAT(out.Writes(), ElementsAre(HasSubstr("ERROR [" + pid + "]: before"),
                                          HasSubstr("ERROR KTA[" + pid + "]: between"),
                                          HasSubstr("ERROR [" + pid + "]: after")));
}

TEST(ZtLogging, ServesOtherThreadsWhileStaticObjectsAreDestroyed) {
    const TempDir dir;
    const std::string path = dir.File("log");
    const TResult run = RunCommand("ZT_LOGGING_DESTINATION=8 ZT_LOGGING_FILE=" + path +
                                   " timeout 60 " ZT_LOGGING_PROBE " 2>&1");
    EXPECT_EQ(0, run.status);
    EXPECT_EQ("", run.output);
    std::vector<std::string> lines = LogEnds::FileLines(path);
    // The end of the process may cut off what its other thread is writing.
    std::ifstream log(path);
    log.seekg(-1, std::ios::end);
    if (log.get() != '\n') {
        lines.pop_back();
    }
    const std::string name = "a logger name that is too long for a text's own small buffer[";
    EXPECT_THAT(lines, testing::Contains(testing::EndsWith("from the very end")));
    EXPECT_THAT(lines, testing::Each(HasSubstr(" ERROR " + name)));
}

TEST(ZtLogging, ThreadsDoNotMixTheirLines) {
    constexpr int THREADS = 4;
    constexpr int LINES = 500;
    const TempDir dir;
    LogToFile(dir.File("log"));
    std::vector<std::thread> threads;
    for (int thread = 0; thread < THREADS; ++thread) {
        threads.emplace_back([thread] {
            const std::string filler(2000, static_cast<char>('a' + thread));
            for (int line = 0; line < LINES; ++line) {
                ztLogging_log(ZT_LOG_LEVEL_ERROR, "%d:%d:%s", thread, line, filler.c_str());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::array<int, THREADS> next{};
    const std::vector<std::string> lines = LogEnds::FileLines(dir.File("log"));
    ASSERT_THAT(lines, SizeIs(THREADS * LINES));
    for (const std::string& line : lines) {
        const std::string text = line.substr(line.find("]: ") + 3);
        const auto thread = static_cast<std::size_t>(text[0] - '0');
        ASSERT_LT(thread, next.size());
        ASSERT_EQ(std::to_string(thread) + ":" + std::to_string(next[thread]++) + ":" +
                      std::string(2000, static_cast<char>('a' + thread)),
                  text);
    }
}

TEST(ZtLogging, ChildProcessLogsAlthoughAnotherThreadWasLogging) {
    const TempDir dir;
    LogToFile(dir.File("log"));
    std::atomic<bool> stop{false};
    std::thread logger([&] {
        while (!stop) {
            ztLogging_log(ZT_LOG_LEVEL_ERROR, "parent");
        }
    });
    for (int child = 0; child < 50; ++child) {
        const pid_t pid = fork();
        if (pid == 0) {
            ztLogging_log(ZT_LOG_LEVEL_ERROR, "child");
            _exit(0);
        }
        int status = -1;
        const bool ended = WaitUntil([&] { return waitpid(pid, &status, WNOHANG) == pid; });
        EXPECT_TRUE(ended) << "the child hangs";
        EXPECT_EQ(0, status);
        if (!ended) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            break;
        }
    }
    stop = true;
    logger.join();
}
