#include "OstelProcUtils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <thread>
#include <type_traits>

#include "BinaryLayout.h"
#include "NoProcesses.h"
#include "RecordingLog.h"
#include "TempDir.h"

using OstelProcUtils::TProcess;

// The members in the order that they have to keep.
#define MEMBER(name)                           \
    struct T_##name {                          \
        friend std::size_t OffsetOf(T_##name); \
    };                                         \
    template struct MemberOffset<T_##name, &TProcess::name>
MEMBER(fromChild);
MEMBER(toChild);
MEMBER(inputBuffer);
MEMBER(outputBuffer);
MEMBER(output);
MEMBER(input);
MEMBER(program);
MEMBER(arguments);
MEMBER(pid);

namespace {

using testing::HasSubstr;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

using TBytes = std::vector<unsigned char>;

// What a shell program prints, read as text.
std::string TextOf(const std::string& script, std::string text = "") {
    TProcess shell("sh", {"-c", script});
    EXPECT_TRUE(shell.Spawn(""));
    shell.Read(text);
    return text;
}

int PidOf(const TProcess& process) {
    const void* const place = reinterpret_cast<const char*>(&process) + OffsetOf(T_pid());
    return *static_cast<const int*>(place);
}

std::string BytesOf(TProcess& process) {
    TBytes bytes;
    process.Read(bytes);
    return {bytes.begin(), bytes.end()};
}

// The words that a program was started with: its file as it was called, and its arguments.
std::string CommandOf(const std::string& directory, const std::string& program) {
    TProcess process(program, {"/proc/self/cmdline"});
    EXPECT_TRUE(process.Spawn(directory));
    return BytesOf(process);
}

std::string Words(const std::string& path) {
    return path + std::string("\0/proc/self/cmdline\0", 20);
}

TEST(TProcess, WithoutADirectoryIsFoundThroughTheSearchPath) {
    EXPECT_EQ(CommandOf("", "cat"), Words("cat"));
}

TEST(TProcess, RunsTheProgramOfADirectory) {
    EXPECT_EQ(CommandOf("/bin", "cat"), Words("/bin/cat"));
    EXPECT_EQ(CommandOf("/bin/", "cat"), Words("/bin/cat"));
    EXPECT_EQ(CommandOf("/", "bin/cat"), Words("/bin/cat"));
}

TEST(TProcess, PassesTheArgumentsInOrderAndAsTheyAre) {
    TProcess process("printf", {"%s|", "b", "", "a b", "$HOME"});
    ASSERT_TRUE(process.Spawn(""));
    EXPECT_EQ(BytesOf(process), "b||a b|$HOME|");
}

TEST(TProcess, ReadsLinesUpToAnEmptyOneWhichEndsAnAnswer) {
    TProcess process("printf", {R"(a\nb\n\nc\n)"});
    ASSERT_TRUE(process.Spawn(""));
    std::string text;
    process.Read(text);
    EXPECT_EQ(text, "a\nb");
    process.Read(text);
    EXPECT_EQ(text, "a\nbc\n");
    process.Read(text);
    EXPECT_EQ(text, "a\nbc\n") << "nothing comes after the end";
}

struct TAnswer {
    std::string script;
    std::string before;
    std::string after;
};

void PrintTo(const TAnswer& answer, std::ostream* out) {
    *out << testing::PrintToString(answer.before) << " and " << answer.script;
}

class TProcessAnswers : public testing::TestWithParam<TAnswer> {};

TEST_P(TProcessAnswers, AreAppended) {
    EXPECT_EQ(TextOf(GetParam().script, GetParam().before), GetParam().after);
}

INSTANTIATE_TEST_SUITE_P(All, TProcessAnswers,
                         testing::Values(TAnswer{R"(printf 'a\nb\n')", "", "a\nb\n"},
                                         TAnswer{R"(printf 'a\nb')", "", "a\nb\n"},
                                         TAnswer{R"(printf 'a\n')", "x", "xa\n"},
                                         TAnswer{R"(printf 'a\n\n')", "x\n", "x\na"},
                                         TAnswer{R"(printf '\na\n')", "", ""},
                                         TAnswer{R"(printf '\na\n')", "x", "x"},
                                         TAnswer{R"(printf '\na\n')", "x\n\n", "x\n"},
                                         TAnswer{"true", "x\n", "x\n"}));

TEST(TProcess, ReadsEveryByte) {
    TProcess process("printf", {R"(a\0\n\n\377)"});
    ASSERT_TRUE(process.Spawn(""));
    TBytes bytes = {'>'};
    process.Read(bytes);
    EXPECT_EQ(bytes, (TBytes{'>', 'a', 0, '\n', '\n', 255}));
}

TEST(TProcess, SendsALineAtOnce) {
    TProcess cat("cat", {});
    ASSERT_TRUE(cat.Spawn(""));
    // The answer comes while the child's input is open.
    cat.Write("x");
    cat.Write("");
    std::string text;
    cat.Read(text);
    EXPECT_EQ(text, "x");
}

TEST(TProcess, EndsItsInputAfterTheBytesThatWereLeft) {
    TProcess cat("cat", {});
    ASSERT_TRUE(cat.Spawn(""));
    cat.Write(TBytes{'a', 0, '\n'});
    cat.Write("line");
    cat.Write(TBytes{255});
    cat.SendEof();
    EXPECT_EQ(BytesOf(cat), std::string("a\0\nline\n\xff", 9));
    cat.SendEof();
    cat.Write("late");
    cat.Wait();
    EXPECT_EQ(cat.GetStatus(), 0);
}

TEST(TProcess, SendsWhatIsLeftWhenTheObjectGoes) {
    const TempDir dir;
    {
        TProcess tee("sh", {"-c", "cat > \"$0\"; mv \"$0\" \"$0.done\"", dir.File("out")});
        ASSERT_TRUE(tee.Spawn(""));
        tee.Write(TBytes{'a'});
    }
    ASSERT_GT(wait(nullptr), 0);
    EXPECT_EQ(TextOf("cat " + dir.File("out.done")), "a\n");
}

TEST(TProcess, WritesWhileAnotherThreadReads) {
    // More than the pipes can hold.
    const TBytes sent(1000000, 'x');
    TProcess cat("cat", {});
    ASSERT_TRUE(cat.Spawn(""));
    std::thread writer([&] {
        cat.Write(sent);
        cat.SendEof();
    });
    TBytes bytes;
    cat.Read(bytes);
    writer.join();
    EXPECT_TRUE(bytes == sent);
    cat.Wait();
    EXPECT_EQ(cat.GetStatus(), 0);
}

TEST(TProcess, TellsOfItsStatusesOnTheStandardErrorStream) {
    TProcess process("sh", {"-c", "echo $$; exit 2"});
    std::string pid;
    CaptureStderr();
    const bool isSpawned = process.Spawn("/bin");
    process.Read(pid);
    process.Wait();
    const std::string told = GetCapturedStderr();
    ASSERT_TRUE(isSpawned);
    pid.pop_back();
    EXPECT_EQ(process.GetStatus(), 512);
    EXPECT_THAT(told, HasSubstr("[TProcess:Parent]: Child process PID '" + pid + "'\n"));
    EXPECT_THAT(told, HasSubstr("[TProcess:Child]: Spawned! Executing 'sh'\n"));
    EXPECT_THAT(
        told, testing::EndsWith("[TProcess:Parent]: Child process terminated with status '512'\n"));
    EXPECT_THAT(RecordingLog::Lines(), testing::IsEmpty());
}

TEST(TProcess, HasTheSignalThatKilledItForAStatus) {
    TProcess process("sh", {"-c", "kill -KILL $$"});
    ASSERT_TRUE(process.Spawn(""));
    process.Wait();
    EXPECT_EQ(process.GetStatus(), SIGKILL);
}

using TPlace = std::pair<std::string, std::string>;  // the directory and the file there

class TProcessMissing : public testing::TestWithParam<TPlace> {};

TEST_P(TProcessMissing, EndsWithStatusOneAndSaysSo) {
    const auto& [directory, path] = GetParam();
    TProcess process("no-such-program", {"x"});
    CaptureStderr();
    const bool isSpawned = process.Spawn(directory);
    process.Write("x");
    const std::string output = BytesOf(process);
    process.Wait();
    const std::string told = GetCapturedStderr();
    EXPECT_TRUE(isSpawned);
    EXPECT_EQ(output, "");
    EXPECT_EQ(process.GetStatus(), 256);
    // The parent's lines may come in between.
    EXPECT_THAT(told, HasSubstr("[TProcess:Child]: Spawned! Executing 'no-such-program'\n"));
    EXPECT_THAT(told, HasSubstr("[TProcess:Child]: Failed to execute '" + path + "'!\n"));
}

INSTANTIATE_TEST_SUITE_P(All, TProcessMissing,
                         testing::Values(TPlace("", "no-such-program"),
                                         TPlace("/nowhere", "/nowhere/no-such-program"),
                                         TPlace("/nowhere/", "/nowhere/no-such-program")));

struct TCommand {
    std::string directory;
    std::string program;
    std::string argument;
};

void PrintTo(const TCommand& command, std::ostream* out) {
    *out << testing::PrintToString(command.directory) << " " << command.program << " "
         << command.argument;
}

class TProcessWithZeroByte : public testing::TestWithParam<TCommand> {};

TEST_P(TProcessWithZeroByte, IsNotTakenForWhatStandsBeforeIt) {
    TProcess process(GetParam().program, {GetParam().argument});
    ASSERT_TRUE(process.Spawn(GetParam().directory));
    EXPECT_EQ(BytesOf(process), "");
    process.Wait();
    EXPECT_EQ(process.GetStatus(), 256);
}

INSTANTIATE_TEST_SUITE_P(All, TProcessWithZeroByte,
                         testing::Values(TCommand{"", std::string("echo\0x", 6), "said"},
                                         TCommand{std::string("/bin/echo\0x", 11), "echo", "said"},
                                         TCommand{"/bin", "echo", std::string("said\0x", 6)}));

TEST(TProcess, LeavesTheExitOfAProgramThatCannotBeExecutedToTheParent) {
    // Run in the child as well, it would remove the parent's file.
    const TempDir dir;
    static std::string s_File;
    s_File = dir.File("parents");
    TextOf("touch " + s_File);
    std::atexit([] { unlink(s_File.c_str()); });
    TProcess process("no-such-program", {});
    ASSERT_TRUE(process.Spawn(""));
    process.Wait();
    EXPECT_EQ(access(s_File.c_str(), F_OK), 0);
}

TEST(TProcess, IsNotThereWhenTheSystemHasNoProcessLeft) {
    TProcess process("true", {});
    const TNoProcesses noProcesses;
    CaptureStderr();
    EXPECT_FALSE(process.Spawn(""));
    EXPECT_EQ(PidOf(process), -1);
    process.Wait();
    EXPECT_EQ(GetCapturedStderr(),
              "[TProcess:Parent]: Failed to create a child process!\n"
              "[TProcess:Parent]: Child process terminated with status '-1'\n");
    EXPECT_THAT(RecordingLog::Lines(), testing::IsEmpty());
}

TEST(TProcess, IsStartedOnce) {
    TProcess cat("cat", {});
    ASSERT_TRUE(cat.Spawn(""));
    EXPECT_FALSE(cat.Spawn(""));
    cat.Write("still there");
    cat.SendEof();
    EXPECT_EQ(BytesOf(cat), "still there\n");
    cat.Wait();
    EXPECT_EQ(cat.GetStatus(), 0);
    EXPECT_FALSE(cat.Spawn(""));
}

TEST(TProcess, NeitherReadsNorWritesBeforeItIsStarted) {
    TProcess cat("cat", {});
    std::string text = "x";
    cat.Write("early");
    cat.Write(TBytes{'e'});
    cat.SendEof();
    cat.Read(text);
    EXPECT_EQ(text, "x");
    EXPECT_EQ(BytesOf(cat), "");
    ASSERT_TRUE(cat.Spawn(""));
    cat.SendEof();
    EXPECT_EQ(BytesOf(cat), "");
}

TEST(TProcess, DoesNotWaitForTheChildrenOfOthers) {
    TProcess process("true", {});
    const pid_t other = fork();
    if (other == 0) {
        _exit(3);
    }
    process.Wait();
    EXPECT_EQ(process.GetStatus(), -1);
    EXPECT_EQ(PidOf(process), -1);
    ASSERT_TRUE(process.Spawn(""));
    EXPECT_GT(PidOf(process), 0);
    process.Wait();
    EXPECT_EQ(PidOf(process), -1) << "another child may have it by now";
    process.Wait();
    EXPECT_EQ(process.GetStatus(), -1) << "it was waited for";
    int status = 0;
    ASSERT_EQ(waitpid(other, &status, 0), other);
    EXPECT_EQ(WEXITSTATUS(status), 3);
}

TEST(TProcess, KeepsItsMembersInPlace) {
    constexpr std::size_t PIPE = 2 * sizeof(std::int32_t);
    static_assert(std::is_same_v<decltype(TProcess::TPipe::readEnd), std::int32_t>);
    static_assert(std::is_same_v<decltype(TProcess::TPipe::writeEnd), std::int32_t>);
    static_assert(!std::is_polymorphic_v<TProcess> && sizeof(TProcess::TPipe) == PIPE);
    EXPECT_EQ(OffsetOf(T_fromChild()), 0U);
    EXPECT_EQ(OffsetOf(T_toChild()), PIPE);
    EXPECT_EQ(OffsetOf(T_inputBuffer()), 2 * PIPE);
    EXPECT_EQ(OffsetOf(T_outputBuffer()), 2 * PIPE + sizeof(void*));
    EXPECT_EQ(OffsetOf(T_output()), 2 * PIPE + 2 * sizeof(void*));
    EXPECT_EQ(OffsetOf(T_input()), OffsetOf(T_output()) + sizeof(std::ostream));
    EXPECT_EQ(OffsetOf(T_program()), OffsetOf(T_input()) + sizeof(std::istream));
    EXPECT_EQ(OffsetOf(T_arguments()), OffsetOf(T_program()) + sizeof(std::string));
    EXPECT_EQ(OffsetOf(T_pid()), OffsetOf(T_arguments()) + sizeof(std::vector<std::string>));
    // And the status behind it.
    EXPECT_EQ(sizeof(TProcess), OffsetOf(T_pid()) + 2 * sizeof(std::int32_t));
}

}  // namespace
