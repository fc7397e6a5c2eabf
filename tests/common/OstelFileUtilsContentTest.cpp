// The contents of files: reading, writing, copying, moving.
#include <sys/wait.h>

#include "FileUtilsTest.h"
#include "OstelFileUtils.h"

using namespace OstelFileUtils;

namespace {

// More than a chunk, with every byte in it, zeros too.
std::string Bytes(std::size_t count) {
    std::string bytes(count, '\0');
    for (std::size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<char>(i * 7 % 256);
    }
    return bytes;
}

std::set<std::string> NamesIn(const std::string& directory) {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
        names.insert(entry.path().lexically_relative(directory).string());
    }
    return names;
}

using ReadFileTest = FileUtilsTest;

TEST_F(ReadFileTest, ReadsEveryByte) {
    for (const std::size_t size : {0U, 1U, 8191U, 8192U, 8193U, 100000U}) {
        std::string text = "before";
        EXPECT_TRUE(ReadFile(Put("file", Bytes(size)), text));
        EXPECT_TRUE(text == Bytes(size)) << size;
    }
}

TEST_F(ReadFileTest, ReadsWhatHasNoSize) {
    std::string text;
    EXPECT_TRUE(ReadFile("/proc/self/cmdline", text));
    EXPECT_EQ(text, Content("/proc/self/cmdline"));
    EXPECT_FALSE(text.empty());
}

TEST_F(ReadFileTest, LeavesTheTextAloneWhenItCannotOpenTheFile) {
    const std::string closed = Put("closed", "text");
    chmod(closed.c_str(), 0200);
    const TOrdinaryUser ordinary;
    std::string text = "before";
    EXPECT_FAILS(ReadFile(File("missing"), text), ENOENT);
    EXPECT_FAILS(ReadFile(closed, text), EACCES);
    EXPECT_EQ(text, "before");
}

TEST_F(ReadFileTest, FailsWhereReadingFailsAndKeepsWhatItRead) {
    std::string text = "before";
    EXPECT_FAILS(ReadFile(Directory("d"), text), EISDIR);
    EXPECT_EQ(text, "");
}

using WriteFileTest = FileUtilsTest;

TEST_F(WriteFileTest, ReplacesOrAppends) {
    for (const bool sync : {false, true}) {
        const std::string file = Put("file", "a long text before");
        EXPECT_TRUE(WriteFile(file, "one", false, sync));
        EXPECT_EQ(Content(file), "one");
        EXPECT_TRUE(WriteFile(file, "two", true, sync));
        EXPECT_EQ(Content(file), "onetwo");
        EXPECT_TRUE(WriteFile(file, "", true, sync));
        EXPECT_EQ(Content(file), "onetwo");
        EXPECT_TRUE(WriteFile(file, "", false, sync));
        EXPECT_EQ(Content(file), "");
    }
}

TEST_F(WriteFileTest, WritesEveryByte) {
    EXPECT_TRUE(WriteFile(File("file"), Bytes(100000), false, false));
    EXPECT_TRUE(Content(File("file")) == Bytes(100000));
}

TEST_F(WriteFileTest, ANewFileHasItsModeLessTheMaskAndAnOldOneKeepsIts) {
    const unsigned int before = SetCreationMask(022);
    EXPECT_TRUE(WriteFile(File("new"), "", true, false));
    SetCreationMask(0);
    EXPECT_TRUE(WriteFile(File("newer"), "", false, false));
    SetCreationMask(before);
    EXPECT_EQ(ModeOf(File("new")), 0755U);
    EXPECT_EQ(ModeOf(File("newer")), 0755U);
    chmod(File("new").c_str(), 0640);
    EXPECT_TRUE(WriteFile(File("new"), "", false, false));
    EXPECT_EQ(ModeOf(File("new")), 0640U);
}

TEST_F(WriteFileTest, FailsWhereItMayNotWrite) {
    const std::string closed = Put("closed", "text");
    chmod(closed.c_str(), 0444);
    const TOrdinaryUser ordinary;
    EXPECT_FAILS(WriteFile(closed, "x", false, false), EACCES);
    EXPECT_FAILS(WriteFile(File("missing/file"), "x", false, false), ENOENT);
    EXPECT_FAILS(WriteFile(m_Dir.Path().string(), "x", false, false), EISDIR);
    EXPECT_EQ(Content(closed), "text");
}

TEST_F(WriteFileTest, FailsWhereNothingFits) {
    EXPECT_FAILS(WriteFile("/dev/full", "x", false, false), ENOSPC);
    EXPECT_TRUE(WriteFile("/dev/full", "", false, false));
}

using CopyFileTest = FileUtilsTest;

TEST_F(CopyFileTest, CopiesEveryByteToANameOrIntoADirectory) {
    const std::string file = Put("file", Bytes(100000));
    EXPECT_TRUE(CopyFile(file, File("copy")));
    EXPECT_TRUE(Content(File("copy")) == Bytes(100000));
    EXPECT_TRUE(CopyFile(file, Directory("d")));
    EXPECT_TRUE(Content(File("d/file")) == Bytes(100000));
    Directory("e");
    EXPECT_TRUE(CopyFile(file, Link("e", "link")));
    EXPECT_TRUE(Content(File("e/file")) == Bytes(100000));
}

TEST_F(CopyFileTest, ReplacesTheContentAndKeepsTheMode) {
    const std::string target = Put("target", "a long text before");
    chmod(target.c_str(), 0640);
    EXPECT_TRUE(CopyFile(Put("file", "new"), target));
    EXPECT_EQ(Content(target), "new");
    EXPECT_EQ(ModeOf(target), 0640U);
}

TEST_F(CopyFileTest, CopiesNoPermissionsAndNoTimes) {
    const std::string file = Put("file", "text");
    chmod(file.c_str(), 04600);
    std::filesystem::last_write_time(file, {});
    const unsigned int before = SetCreationMask(0);
    EXPECT_TRUE(CopyFile(file, File("copy")));
    SetCreationMask(before);
    EXPECT_EQ(ModeOf(File("copy")), 0755U);
    EXPECT_NE(std::filesystem::last_write_time(File("copy")),
              std::filesystem::last_write_time(file));
}

TEST_F(CopyFileTest, EmptiesAFileThatIsCopiedOntoItself) {
    const std::string file = Put("file", "text");
    EXPECT_TRUE(CopyFile(file, file));
    EXPECT_EQ(Content(file), "");
}

TEST_F(CopyFileTest, FailsWithoutATraceWhenTheSourceCannotBeOpened) {
    const std::string closed = Put("closed", "text");
    chmod(closed.c_str(), 0200);
    const TOrdinaryUser ordinary;
    EXPECT_FAILS(CopyFile(File("missing"), File("copy")), ENOENT);
    EXPECT_FAILS(CopyFile(closed, File("copy")), EACCES);
    EXPECT_FAILS(CopyFile(Link("circle", "circle"), File("copy")), ELOOP);
    EXPECT_FALSE(IsThere(File("copy")));
}

TEST_F(CopyFileTest, FailsWhenTheTargetCannotBeMade) {
    const std::string file = Put("file", "text");
    EXPECT_FAILS(CopyFile(file, File("missing/copy")), ENOENT);
    EXPECT_FAILS(CopyFile(file, "/dev/full"), ENOSPC);
    Directory("d/file");
    EXPECT_FAILS(CopyFile(file, File("d")), EISDIR);
}

TEST_F(CopyFileTest, FailsForADirectory) {
    EXPECT_FAILS(CopyFile(Directory("d"), File("copy")), EISDIR);
}

TEST_F(CopyFileTest, KeepsNoDescriptorOpen) {
    const auto before = NamesIn("/proc/self/fd").size();
    const std::string file = Put("file", "text");
    std::string text;
    CopyFile(file, File("copy"));
    CopyFile(file, File("missing/copy"));
    CopyFile(file, "/dev/full");
    ReadFile(m_Dir.Path().string(), text);
    WriteFile("/dev/full", "x", false, false);
    CopyDirectory(Directory("d"), File("e"));
    RemoveDirectoryRecursive(File("e"));
    GetDirectorySizeRecursive(m_Dir.Path().string());
    SyncDirectory(m_Dir.Path().string());
    std::set<std::string> names;
    GetFiles(m_Dir.Path().string() + "/", names);
    EXPECT_EQ(names.size(), 2U);
    EXPECT_EQ(NamesIn("/proc/self/fd").size(), before);
}

class CopyDirectoryTest : public FileUtilsTest {
protected:
    CopyDirectoryTest() {
        Directory("from/a/empty");
        Put("from/file", "text");
        Put("from/a/deep", "deep text");
        Link("nowhere", "from/dangling");
        Link("file", "from/link");
        Link("..", "from/a/up");
        Link("circle", "from/circle");
    }

    void ExpectCopyAt(const std::string& path) const {
        EXPECT_EQ(NamesIn(path), NamesIn(File("from")));
        EXPECT_EQ(Content(path + "/file"), "text");
        EXPECT_EQ(Content(path + "/a/deep"), "deep text");
        EXPECT_EQ(std::filesystem::read_symlink(path + "/dangling"), "nowhere");
        EXPECT_EQ(std::filesystem::read_symlink(path + "/link"), "file");
        EXPECT_EQ(std::filesystem::read_symlink(path + "/a/up"), "..");
        EXPECT_EQ(std::filesystem::read_symlink(path + "/circle"), "circle");
    }
};

TEST_F(CopyDirectoryTest, MakesADirectoryOfTheNewName) {
    EXPECT_TRUE(CopyDirectory(File("from"), File("to")));
    ExpectCopyAt(File("to"));
}

TEST_F(CopyDirectoryTest, NewDirectoriesHaveOneModeLessTheMask) {
    chmod(File("from").c_str(), 0700);
    chmod(File("from/a").c_str(), 0711);
    const unsigned int before = SetCreationMask(0);
    EXPECT_TRUE(CopyDirectory(File("from"), File("to")));
    SetCreationMask(before);
    EXPECT_EQ(ModeOf(File("to")), 0755U);
    EXPECT_EQ(ModeOf(File("to/a")), 0755U);
}

TEST_F(CopyDirectoryTest, GoesIntoADirectoryThatIsThere) {
    EXPECT_TRUE(CopyDirectory(File("from"), Directory("to")));
    EXPECT_THAT(NamesIn(File("to")), testing::Contains("from/a/deep"));
    ExpectCopyAt(File("to/from"));
    EXPECT_TRUE(CopyDirectory(File("from/"), Directory("other")));
    ExpectCopyAt(File("other/from"));
}

TEST_F(CopyDirectoryTest, CopiesTheDirectoryBehindALink) {
    const std::string link = Link("from", "linked");
    EXPECT_TRUE(CopyDirectory(link, File("to")));
    ExpectCopyAt(File("to"));
    EXPECT_TRUE(CopyDirectory(link, File("to")));
    ExpectCopyAt(File("to/linked"));
}

TEST_F(CopyDirectoryTest, MergesIntoWhatIsThere) {
    Directory("to/from/a");
    Put("to/from/a/deep", "a longer text before");
    Put("to/from/a/other", "kept");
    Put("to/from/dangling", "replaced by the link");
    EXPECT_TRUE(CopyDirectory(File("from"), File("to")));
    EXPECT_EQ(Content(File("to/from/a/other")), "kept");
    EXPECT_EQ(Content(File("to/from/a/deep")), "deep text");
    EXPECT_EQ(std::filesystem::read_symlink(File("to/from/dangling")), "nowhere");
}

TEST_F(CopyDirectoryTest, ReplacesALinkWhereALinkGoesAndWritesThroughItWhereAFileGoes) {
    const std::string away = Put("away", "before");
    Directory("to");
    Link(away, "to/link");
    Link(away, "to/file");
    EXPECT_TRUE(CopyDirectoryContent(File("from"), File("to")));
    EXPECT_EQ(std::filesystem::read_symlink(File("to/link")), "file");
    EXPECT_EQ(Content(away), "text");
}

TEST_F(CopyDirectoryTest, ContentNeedsTwoDirectories) {
    const std::string file = Put("other", "");
    EXPECT_FAILS(CopyDirectoryContent(File("from"), File("missing")), ENOENT);
    EXPECT_FAILS(CopyDirectoryContent(File("missing"), File("from")), ENOENT);
    EXPECT_FAILS(CopyDirectoryContent(File("from"), file), ENOTDIR);
    EXPECT_FAILS(CopyDirectoryContent(file, File("from")), ENOTDIR);
    EXPECT_FAILS(CopyDirectory(file, File("to")), ENOTDIR);
    EXPECT_FAILS(CopyDirectory(File("missing"), File("to")), ENOENT);
    EXPECT_FALSE(IsThere(File("to")));
    EXPECT_FAILS(CopyDirectory(File("from"), File("missing/to")), ENOENT);
    EXPECT_FAILS(CopyDirectory(File("from"), file), ENOTDIR);
}

TEST_F(CopyDirectoryTest, StopsAtTheFirstFailure) {
    Directory("to/link");  // a directory cannot give way to a link
    EXPECT_FAILS(CopyDirectoryContent(File("from"), File("to")), EEXIST);
    Directory("one/file");
    Directory("target");
    Put("target/file", "");
    EXPECT_FAILS(CopyDirectoryContent(File("one"), File("target")), ENOTDIR);
}

TEST_F(CopyDirectoryTest, GoesNotIntoItself) {
    const std::set<std::string> before = NamesIn(m_Dir.Path());
    const std::string from = File("from");
    EXPECT_FAILS(CopyDirectory(from, from), EINVAL);
    EXPECT_FAILS(CopyDirectory(from, File("from/new")), EINVAL);
    EXPECT_FAILS(CopyDirectory(from, File("from/a/up/a/empty/new")), EINVAL);
    EXPECT_FAILS(CopyDirectory(File("from/../from/"), File("from/a")), EINVAL);
    EXPECT_FAILS(CopyDirectoryContent(from, File("from/a/empty")), EINVAL);
    EXPECT_EQ(NamesIn(m_Dir.Path()), before);
}

// In a root directory of its own: without the guard the call would copy the whole machine.
TEST_F(CopyDirectoryTest, TheRootGoesNowhere) {
    const std::set<std::string> before = NamesIn(m_Dir.Path());
    const pid_t child = fork();
    if (child == 0) {
        if (chroot(m_Dir.Path().c_str()) != 0 || chdir("/") != 0) {
            _exit(77);
        }
        errno = 0;
        _exit(!CopyDirectory("/", "/from/a") && errno == EINVAL ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 77) {
        GTEST_SKIP() << "only root may have a root directory of its own";
    }
    EXPECT_EQ(status, 0);
    EXPECT_EQ(NamesIn(m_Dir.Path()), before);
}

TEST_F(CopyDirectoryTest, GoesBesideItselfAndOutOfItself) {
    EXPECT_TRUE(CopyDirectory(File("from"), File("from2")));
    ExpectCopyAt(File("from2"));
    EXPECT_TRUE(CopyDirectory(File("from/a"), File("from/b")));
    EXPECT_EQ(Content(File("from/b/deep")), "deep text");
    EXPECT_TRUE(CopyDirectoryContent(File("from/a"), File("from")));
    EXPECT_EQ(Content(File("from/deep")), "deep text");
    EXPECT_TRUE(CopyDirectoryContent(File("from/a/empty"), File("from/./a/empty")));
}

TEST_F(CopyDirectoryTest, FailsAtAFileThatItMayNotRead) {
    chmod(File("from/a/deep").c_str(), 0200);
    const TOrdinaryUser ordinary;
    EXPECT_FAILS(CopyDirectory(File("from"), File("to")), EACCES);
}

TEST_F(CopyDirectoryTest, TakesAnUnreadableDirectoryForAnEmptyOne) {
    chmod(File("from/a").c_str(), 0);
    {
        const TOrdinaryUser ordinary;
        EXPECT_TRUE(CopyDirectory(File("from"), File("to")));
        EXPECT_TRUE(IsDirEmpty(File("to/a")));
    }
    chmod(File("from/a").c_str(), 0700);
}

using MoveTest = FileUtilsTest;

TEST_F(MoveTest, GoesIntoADirectoryUnderTheBaseName) {
    Directory("d");
    EXPECT_TRUE(Move(Put("file", "text"), File("d")));
    EXPECT_EQ(Content(File("d/file")), "text");
    EXPECT_FALSE(IsThere(File("file")));
    Directory("sub/deep");
    EXPECT_TRUE(Move(File("sub/"), File("d")));
    EXPECT_TRUE(IsThere(File("d/sub/deep")));
}

TEST_F(MoveTest, TakesAnotherNameAndReplacesAFile) {
    EXPECT_TRUE(Move(Put("file", "one"), File("other")));
    EXPECT_EQ(Content(File("other")), "one");
    EXPECT_TRUE(Move(Put("file", "two"), File("other")));
    EXPECT_EQ(Content(File("other")), "two");
    EXPECT_FAILS(Move(File("file"), File("other")), ENOENT);
}

TEST_F(MoveTest, FailsAcrossFileSystemsAndLeavesTheSource) {
    struct stat here = {};
    struct stat there = {};
    ASSERT_EQ(stat(m_Dir.Path().c_str(), &here), 0);
    if (stat("/dev/shm", &there) != 0 || here.st_dev == there.st_dev) {
        GTEST_SKIP() << "/dev/shm is no file system of its own";
    }
    const std::string file = Put("file", "text");
    const std::string target = "/dev/shm/ostel-test-" + std::to_string(getpid());
    EXPECT_FAILS(Move(file, target), EXDEV);
    EXPECT_FALSE(IsThere(target));
    EXPECT_EQ(Content(file), "text");
}

}  // namespace
