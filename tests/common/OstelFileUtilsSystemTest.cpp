// What takes a system under stress: signals, a full file system, a watched system call.
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>

#include <regex>
#include <thread>

#include "FileUtilsTest.h"
#include "OstelFileUtils.h"
#include "SignalStorm.h"
#include "Strace.h"

using namespace OstelFileUtils;

namespace {

class FileUtilsSignals : public FileUtilsTest {
protected:
    FileUtilsSignals() {
        EXPECT_EQ(mkfifo(m_Fifo.c_str(), 0600), 0);
        // Both ends, so that nobody waits for the other to open it.
        m_End = open(m_Fifo.c_str(), O_RDWR | O_CLOEXEC);
    }

    std::thread WriteLater(const std::string& text) const {
        return TSignalStorm::Later([this, text] {
            EXPECT_EQ(write(m_End, text.data(), text.size()), static_cast<ssize_t>(text.size()));
            close(m_End);
        });
    }

    std::thread ReadLater(std::string& text) const {
        return TSignalStorm::Later([this, &text] {
            char chunk[65536];
            while (text.size() < m_Long.size()) {
                const ssize_t count = read(m_End, chunk, sizeof chunk);
                ASSERT_GT(count, 0);
                text.append(chunk, static_cast<std::size_t>(count));
            }
            close(m_End);
        });
    }

    const std::string m_Fifo = File("fifo");
    const std::string m_Long = std::string(300000, 'x') + "y";
    int m_End = -1;
};

TEST_F(FileUtilsSignals, DoNotEndARead) {
    const TSignalStorm storm;
    std::thread writer = WriteLater("late");
    std::string text;
    EXPECT_TRUE(ReadFile(m_Fifo, text));
    writer.join();
    EXPECT_EQ(text, "late");
}

TEST_F(FileUtilsSignals, DoNotEndAWriteThatIsDoneInParts) {
    const TSignalStorm storm;
    std::string text;
    std::thread reader = ReadLater(text);
    EXPECT_TRUE(WriteFile(m_Fifo, m_Long, false, false));
    reader.join();
    EXPECT_TRUE(text == m_Long);
}

TEST_F(FileUtilsSignals, DoNotEndACopysReads) {
    const TSignalStorm storm;
    std::thread writer = WriteLater("late");
    EXPECT_TRUE(CopyFile(m_Fifo, File("copy")));
    writer.join();
    EXPECT_EQ(Content(File("copy")), "late");
}

TEST_F(FileUtilsSignals, DoNotEndACopysWrites) {
    const std::string file = Put("file", m_Long);
    const TSignalStorm storm;
    std::string text;
    std::thread reader = ReadLater(text);
    EXPECT_TRUE(CopyFile(file, m_Fifo));
    reader.join();
    EXPECT_TRUE(text == m_Long);
}

// A file system of 64 KiB at a directory, seen by this process only.
class TSmallFileSystem {
public:
    explicit TSmallFileSystem(const std::string& path) : m_Path(path) {
        m_IsMounted = (unshare(CLONE_NEWNS) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0) &&
                      mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                      mount("tmpfs", path.c_str(), "tmpfs", 0, "size=64k") == 0;
    }
    TSmallFileSystem(const TSmallFileSystem&) = delete;
    TSmallFileSystem& operator=(const TSmallFileSystem&) = delete;
    ~TSmallFileSystem() {
        if (m_IsMounted) {
            umount2(m_Path.c_str(), MNT_DETACH);
        }
    }

    bool IsMounted() const { return m_IsMounted; }

private:
    std::string m_Path;
    bool m_IsMounted;
};

TEST_F(FileUtilsTest, AFullFileSystemFailsAWriteAndACopy) {
    const TSmallFileSystem small(Directory("small"));
    if (!small.IsMounted()) {
        GTEST_SKIP() << "mounting a small file system: " << GetError();
    }
    const std::string large(100000, 'x');
    const std::string file = Put("file", large);
    unsigned long long bytes = 0;
    EXPECT_TRUE(GetAvailableSpace(File("small"), bytes));
    EXPECT_EQ(bytes, 65536U);
    EXPECT_FAILS(WriteFile(File("small/file"), large, false, false), ENOSPC);
    EXPECT_TRUE(GetAvailableSpace(File("small"), bytes));
    EXPECT_EQ(bytes, 0U);
    EXPECT_EQ(GetSize(File("small/file")), 65536U);
    EXPECT_FAILS(WriteFile(File("small/other"), "x", true, true), ENOSPC);
    EXPECT_TRUE(Remove(File("small/file")));
    EXPECT_FAILS(CopyFile(file, File("small")), ENOSPC);
    EXPECT_FAILS(Move(file, File("small")), EXDEV);
    EXPECT_EQ(Content(file), large);
}

struct TTraced {
    const char* verb;
    const char* call;
    const char* line;  // PATH and MORE stand for the program's arguments
};

class FileUtilsTraced : public FileUtilsTest, public testing::WithParamInterface<TTraced> {};

std::string Replaced(std::string text, const std::string& word, const std::string& by) {
    const std::size_t place = text.find(word);
    return place == std::string::npos ? text : text.replace(place, word.size(), by);
}

TEST_P(FileUtilsTraced, MakesExactlyThisCall) {
    const TTraced& traced = GetParam();
    const std::string verb = traced.verb;
    const std::string path = verb == "sync-directory" ? Directory("path")
                             : verb == "read-link"    ? Link("target", "path")
                                                      : Put("path", "text");
    const std::string obstacle = Strace::WhyNot();
    if (!obstacle.empty()) {
        GTEST_SKIP() << obstacle;
    }
    EXPECT_THAT(
        Strace::Run(traced.call, {FILE_UTILS_PROGRAM, verb, path, File("more")}),
        testing::HasSubstr(Replaced(Replaced(traced.line, "PATH", path), "MORE", File("more"))));
}

TEST_F(FileUtilsTest, SyncingADirectoryReachesItsOwnDescriptor) {
    const std::string obstacle = Strace::WhyNot();
    if (!obstacle.empty()) {
        GTEST_SKIP() << obstacle;
    }
    const std::string directory = Directory("d");
    const std::string calls = Strace::Run(
        "open,openat,fsync", {FILE_UTILS_PROGRAM, "sync-directory", directory, File("more")});
    std::smatch call;
    ASSERT_TRUE(
        std::regex_search(calls, call, std::regex("\"" + directory + "\",[^\n]* = ([0-9]+)\n")))
        << calls;
    EXPECT_THAT(calls, testing::HasSubstr("fsync(" + call[1].str() + ")"));
}

INSTANTIATE_TEST_SUITE_P(
    All, FileUtilsTraced,
    testing::Values(TTraced{"read", "open,openat", "\"PATH\", 0) = "},
                    TTraced{"read", "read", "\"text\", 8192) "},
                    TTraced{"copy", "read", "\"text\", 8192) "},
                    TTraced{"write", "open,openat", "\"PATH\", 0x241, 0755) = "},
                    TTraced{"append", "open,openat", "\"PATH\", 0x441, 0755) = "},
                    TTraced{"write-sync", "open,openat", "\"PATH\", 0x101241, 0755) = "},
                    TTraced{"append-sync", "open,openat", "\"PATH\", 0x101441, 0755) = "},
                    TTraced{"copy", "open,openat", "\"PATH\", 0) = "},
                    TTraced{"copy", "open,openat", "\"MORE\", 0x241, 0755) = "},
                    TTraced{"read-link", "readlink", "readlink(\"PATH\", \"target\", 4096) "},
                    TTraced{"owner", "lchown,lchown32", "(\"PATH\", 1234, -1) "},
                    TTraced{"group", "lchown,lchown32", "(\"PATH\", -1, 1234) "}),
    [](const testing::TestParamInfo<TTraced>& traced) {
        std::string name = std::to_string(traced.index) + "_" + traced.param.verb;
        for (char& c : name) {
            c = c == '-' ? '_' : c;
        }
        return name;
    });

}  // namespace
