#include "SharedFiles.h"

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>

#include "ChildProcess.h"
#include "Emulated.h"
#include "TempDir.h"

namespace {

constexpr std::size_t MOST = 1048575;

class SharedFiles : public testing::Test {
protected:
    SharedFiles() {
        std::filesystem::create_directories(m_Dir.Path() / "shared/inner");
        Write("secret", "secret");
        Write("shared/plain", "plain");
        Write("shared/inner/deep", "deep");
        Write("shared/empty", "");
    }

    void SetUp() override { SKIP_WHERE_EMULATED("does not know openat2"); }

    void Write(const std::string& name, const std::string& text) {
        std::ofstream(m_Dir.File(name), std::ios::binary) << text;
    }

    std::string Read(const std::string& name) const {
        return TSharedFiles(m_Dir.File("shared")).Read(name, MOST).value_or("refused");
    }

    TempDir m_Dir;
};

TEST_F(SharedFiles, GivesWhatStandsBelowTheDirectory) {
    EXPECT_EQ(Read("plain"), "plain");
    EXPECT_EQ(Read("inner/deep"), "deep");
    EXPECT_EQ(Read("inner/../plain"), "plain");
    EXPECT_EQ(Read("./plain"), "plain");
    EXPECT_EQ(Read("empty"), "");
}

TEST_F(SharedFiles, GivesNothingElse) {
    std::filesystem::create_symlink("../secret", m_Dir.File("shared/link"));
    std::filesystem::create_symlink(m_Dir.File("secret"), m_Dir.File("shared/absolute"));
    std::filesystem::create_symlink("..", m_Dir.File("shared/up"));
    std::filesystem::create_symlink("loop", m_Dir.File("shared/loop"));
    ASSERT_EQ(mkfifo(m_Dir.File("shared/fifo").c_str(), 0600), 0);
    for (const std::string& name :
         {std::string("../secret"), std::string("inner/../../secret"), m_Dir.File("secret"),
          m_Dir.File("shared/plain"), std::string("link"), std::string("absolute"),
          std::string("up/secret"), std::string("loop"), std::string("fifo"), std::string("inner"),
          std::string("missing"), std::string(""), std::string("."), std::string("plain/"),
          std::string("/etc/passwd"), std::string("plain\0", 6), std::string(10000, 'x'),
          std::string("/proc/self/root/etc/passwd")}) {
        EXPECT_EQ(Read(name), "refused") << name;
    }
}

TEST_F(SharedFiles, FollowsLinksThatStayBelow) {
    std::filesystem::create_symlink("../plain", m_Dir.File("shared/inner/link"));
    EXPECT_EQ(Read("inner/link"), "plain");
}

TEST_F(SharedFiles, GivesAFileWhateverIsRenamedMeanwhile) {
    Write("a", "");
    std::atomic<bool> isOver{false};
    std::thread renaming([&] {
        while (!isOver) {
            std::filesystem::rename(m_Dir.File("a"), m_Dir.File("b"));
            std::filesystem::rename(m_Dir.File("b"), m_Dir.File("a"));
        }
    });
    const TSharedFiles files(m_Dir.File("shared"));
    int given = 0;
    for (int i = 0; i < 20000; ++i) {
        given += files.Read("inner/../plain", 5) == "plain" ? 1 : 0;
    }
    isOver = true;
    renaming.join();
    EXPECT_EQ(given, 20000);
}

// On 32-bit x86 neither its time nor, on a large disk, its number fits what a file is asked by.
TEST_F(SharedFiles, GivesAFileOfAnyTime) {
    ASSERT_EQ(RunProgram({"touch", "-d", "2100-01-01", m_Dir.File("shared/plain")}).status, 0);
    EXPECT_EQ(Read("plain"), "plain");
}

TEST_F(SharedFiles, HasALimit) {
    Write("shared/most", std::string(MOST, 'x'));
    Write("shared/more", std::string(MOST + 1, 'x'));
    EXPECT_EQ(Read("most").size(), MOST);
    EXPECT_EQ(Read("more"), "refused");
}

TEST_F(SharedFiles, SharesNothingWithoutADirectory) {
    EXPECT_FALSE(TSharedFiles("").Read("etc/passwd", MOST).has_value());
    EXPECT_THROW(TSharedFiles("/nonexistent"), std::runtime_error);
    EXPECT_THROW(TSharedFiles(m_Dir.File("secret")), std::runtime_error);
}

// Ends the process, with 0 when the directory was refused.
[[noreturn]] void ShareWithout(long systemCall, int error, const std::string& directory) {
    std::array<sock_filter, 4> filter = {{
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned int>(systemCall), 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned int>(error)),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    }};
    const sock_fprog program = {filter.size(), filter.data()};
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program);
    try {
        const TSharedFiles files(directory);
    } catch (const std::runtime_error& refusal) {
        std::fputs(refusal.what(), stderr);
        _exit(0);
    }
    _exit(1);
}

TEST(SharedFilesOfAnOldKernel, AreRefusedAtOnce) {
    const TempDir dir;
    EXPECT_EXIT(ShareWithout(SYS_openat2, ENOSYS, dir.Path()), testing::ExitedWithCode(0),
                dir.Path().string() + ": openat2: Function not implemented");
#if !OSTEL_EMULATED  // An emulator does not know openat2 anyway, and has no such filters.
    EXPECT_EXIT(ShareWithout(SYS_openat2, EPERM, dir.Path()), testing::ExitedWithCode(0),
                dir.Path().string() + ": openat2: Operation not permitted");
    EXPECT_EXIT(ShareWithout(SYS_openat, EPERM, dir.Path()), testing::ExitedWithCode(0),
                dir.Path().string() + ": Operation not permitted");
#endif
}

}  // namespace
