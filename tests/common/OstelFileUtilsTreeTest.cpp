// Directories and all that is in them.
#include <fcntl.h>
#include <sys/wait.h>

#include <algorithm>

#include "BinaryLayout.h"
#include "FileUtilsTest.h"
#include "OstelFileUtils.h"

using namespace OstelFileUtils;

struct TDir {
    friend std::size_t OffsetOf(TDir);
};
struct TEntry {
    friend std::size_t OffsetOf(TEntry);
};
struct TPath {
    friend std::size_t OffsetOf(TPath);
};
template struct MemberOffset<TDir, &TDirIterator::m_Dir>;
template struct MemberOffset<TEntry, &TDirIterator::m_Entry>;
template struct MemberOffset<TPath, &TDirIterator::m_Path>;

namespace {

using testing::IsEmpty;
using testing::UnorderedElementsAre;

std::vector<std::string> NamesIn(const std::string& directory) {
    std::vector<std::string> names;
    for (TDirIterator entry(directory); entry != TDirIterator::End(); ++entry) {
        names.push_back(entry.GetName());
    }
    return names;
}

using TDirIteratorTest = FileUtilsTest;

TEST_F(TDirIteratorTest, WalksAllButTheDots) {
    Directory("d/sub");
    Put("d/.hidden", "");
    Put("d/file", "");
    Link("nowhere", "d/link");
    EXPECT_THAT(NamesIn(File("d")), UnorderedElementsAre("sub", ".hidden", "file", "link"));
}

TEST_F(TDirIteratorTest, FullPathsAreTheDirectoryASlashAndTheName) {
    Put("d-file", "");
    Directory("d");
    Put("d/file", "");
    EXPECT_EQ(TDirIterator(File("d")).GetFullPath(), File("d/file"));
    EXPECT_EQ(TDirIterator(File("d/")).GetFullPath(), File("d//file"));
}

TEST_F(TDirIteratorTest, IsEmptyAtTheEndAndStaysThere) {
    Directory("d");
    Put("d/file", "");
    TDirIterator entry(File("d"));
    entry.Next();
    entry.Next();
    EXPECT_EQ(entry.GetName(), "");
    EXPECT_EQ(entry.GetFullPath(), "");
    EXPECT_TRUE(entry == TDirIterator::End());
    EXPECT_EQ(TDirIterator().GetName(), "");
    EXPECT_EQ(TDirIterator().GetFullPath(), "");
    TDirIterator end;
    ++end;
    EXPECT_TRUE(end == TDirIterator::End());
}

TEST_F(TDirIteratorTest, TheEndIsOneObject) {
    EXPECT_EQ(&TDirIterator::End(), &TDirIterator::End());
}

TEST_F(TDirIteratorTest, WhatCannotBeOpenedIsTheEnd) {
    EXPECT_TRUE(TDirIterator::End() == TDirIterator(File("missing")));
    EXPECT_TRUE(TDirIterator(File("missing")) == TDirIterator::End());
    EXPECT_TRUE(TDirIterator(Put("file", "")) == TDirIterator::End());
}

// The slash is put behind the path before it is opened.
TEST_F(TDirIteratorTest, TheEmptyPathIsTheRoot) {
    EXPECT_THAT(TDirIterator("").GetFullPath(), testing::MatchesRegex("/[^/]+"));
    EXPECT_FALSE(IsDirEmpty(""));
    std::set<std::string> names;
    EXPECT_FAILS(GetFiles("", names), ENOENT);
    EXPECT_THAT(names, IsEmpty());
}

TEST_F(TDirIteratorTest, EqualsByFullPath) {
    Directory("d");
    Put("d/a", "");
    Put("d/b", "");
    Directory("e");
    Put("e/a", "");
    TDirIterator first(File("d"));
    const TDirIterator second(File("d"));
    EXPECT_TRUE(first == second);
    EXPECT_FALSE(first != second);
    ++first;
    EXPECT_TRUE(first != second);
    Directory("f");
    Put("f/a", "");
    EXPECT_TRUE(TDirIterator(File("e")) != TDirIterator(File("f")));
    EXPECT_TRUE(second != TDirIterator::End());
    EXPECT_TRUE(TDirIterator::End() != second);
}

TEST_F(TDirIteratorTest, AnExhaustedOneEqualsTheEndButTheEndDoesNotEqualIt) {
    const TDirIterator exhausted(Directory("d"));
    EXPECT_TRUE(exhausted == TDirIterator::End());
    EXPECT_FALSE(TDirIterator::End() == exhausted);
    EXPECT_TRUE(exhausted == TDirIterator(Directory("e")));
}

TEST_F(TDirIteratorTest, ACopyStartsAgainAtTheFirstEntry) {
    Directory("d");
    Put("d/a", "");
    Put("d/b", "");
    TDirIterator entry(File("d"));
    const std::string first = entry.GetName();
    ++entry;
    const TDirIterator copy(entry);
    EXPECT_EQ(copy.GetName(), first);
    EXPECT_NE(entry.GetName(), first);
    const TDirIterator copyOfTheEnd(TDirIterator::End());
    EXPECT_TRUE(copyOfTheEnd == TDirIterator::End());
    EXPECT_TRUE(TDirIterator::End() == copyOfTheEnd);
}

TEST_F(TDirIteratorTest, PostfixAdvancesAndReturnsACopyAtTheFirstEntry) {
    Directory("d");
    for (const char* name : {"d/a", "d/b", "d/c"}) {
        Put(name, "");
    }
    const std::vector<std::string> names = NamesIn(File("d"));
    TDirIterator entry(File("d"));
    ++entry;
    EXPECT_EQ((entry++).GetName(), names[0]);
    EXPECT_EQ(entry.GetName(), names[2]);
    EXPECT_EQ((++entry).GetName(), "");
}

TEST_F(TDirIteratorTest, KeepsNoDescriptorOpen) {
    const auto before = NamesIn("/proc/self/fd").size();
    for (int i = 0; i < 10; ++i) {
        TDirIterator entry(m_Dir.Path().string());
        const TDirIterator copy(entry++);
    }
    EXPECT_EQ(NamesIn("/proc/self/fd").size(), before);
}

TEST_F(TDirIteratorTest, KeepsTheOrderOfItsMembers) {
    EXPECT_EQ(OffsetOf(TDir()), 0U);
    EXPECT_EQ(OffsetOf(TEntry()), sizeof(void*));
    EXPECT_EQ(OffsetOf(TPath()), 2 * sizeof(void*));
    static_assert(sizeof(TDirIterator) == 2 * sizeof(void*) + sizeof(std::string));
}

using CreateDirectoryRecursiveTest = FileUtilsTest;

TEST_F(CreateDirectoryRecursiveTest, MakesAllLevelsWithTheMode) {
    const unsigned int before = SetCreationMask(0);
    EXPECT_TRUE(CreateDirectoryRecursive(File("a/b/c"), 0755));
    SetCreationMask(before);
    for (const char* name : {"a", "a/b", "a/b/c"}) {
        EXPECT_TRUE(std::filesystem::is_directory(File(name))) << name;
        EXPECT_EQ(ModeOf(File(name)), 0755U) << name;
    }
    EXPECT_TRUE(CreateDirectoryRecursive(File("a/b/c"), 0755));
    EXPECT_TRUE(CreateDirectoryRecursive(File("a/b/d/"), 0755));
    EXPECT_TRUE(std::filesystem::is_directory(File("a/b/d")));
}

// Its parent is made as "a", which "a/." then is already.
TEST_F(CreateDirectoryRecursiveTest, FailsAtANameThatItsParentBringsAbout) {
    EXPECT_FAILS(CreateDirectoryRecursive(File("a/."), 0755), EEXIST);
    EXPECT_TRUE(std::filesystem::is_directory(File("a")));
    EXPECT_TRUE(CreateDirectoryRecursive(File("a/."), 0755));
}

TEST_F(CreateDirectoryRecursiveTest, TakesAnythingOfThatNameForIt) {
    const std::string file = Put("a", "");
    EXPECT_TRUE(CreateDirectoryRecursive(file, 0755));
    EXPECT_FAILS(CreateDirectoryRecursive(File("a/b"), 0755), ENOTDIR);
    const std::string dangling = Link("missing", "dangling");
    EXPECT_TRUE(CreateDirectoryRecursive(dangling, 0755));
    EXPECT_FAILS(CreateDirectoryRecursive(File("dangling/b"), 0755), ENOENT);
}

TEST_F(CreateDirectoryRecursiveTest, FailsWhereItMayNotWrite) {
    const std::string closed = Directory("closed");
    chmod(closed.c_str(), 0555);
    const TOrdinaryUser ordinary;
    EXPECT_FAILS(CreateDirectoryRecursive(closed + "/a/b", 0755), EACCES);
}

using RemoveDirectoryRecursiveTest = FileUtilsTest;

TEST_F(RemoveDirectoryRecursiveTest, RemovesTheTreeAndNotWhatItsLinksLeadTo) {
    Directory("kept");
    Put("kept/file", "text");
    Directory("d/a/b");
    Put("d/a/file", "");
    Link("nowhere", "d/a/dangling");
    Link(File("kept"), "d/a/b/away");
    Link(File("kept/file"), "d/file");
    Link("circle", "d/circle");
    Link("..", "d/a/up");
    EXPECT_TRUE(RemoveDirectoryRecursive(File("d")));
    EXPECT_FALSE(IsThere(File("d")));
    EXPECT_EQ(Content(File("kept/file")), "text");
}

TEST_F(RemoveDirectoryRecursiveTest, IsDoneWhenThereIsNothing) {
    EXPECT_TRUE(RemoveDirectoryRecursive(File("missing")));
    EXPECT_TRUE(RemoveDirectoryRecursive(Link("missing", "dangling")));
}

TEST_F(RemoveDirectoryRecursiveTest, RefusesAFile) {
    EXPECT_FAILS(RemoveDirectoryRecursive(Put("file", "")), ENOTDIR);
    EXPECT_TRUE(IsThere(File("file")));
}

TEST_F(RemoveDirectoryRecursiveTest, EmptiesTheDirectoryBehindALinkAndFailsAtTheLink) {
    Directory("d");
    Put("d/file", "");
    const std::string link = Link("d", "link");
    EXPECT_FAILS(RemoveDirectoryRecursive(link), ENOTDIR);
    EXPECT_THAT(NamesIn(File("d")), IsEmpty());
}

TEST_F(RemoveDirectoryRecursiveTest, FailsAtWhatItMayNotRemove) {
    Directory("d/closed");
    Put("d/closed/file", "");
    chmod(File("d").c_str(), 0777);
    chmod(File("d/closed").c_str(), 0555);
    const TOrdinaryUser ordinary;
    EXPECT_FAILS(RemoveDirectoryRecursive(File("d")), EACCES);
    EXPECT_TRUE(IsThere(File("d/closed/file")));
}

TEST_F(RemoveDirectoryRecursiveTest, FailsAtADirectoryThatItCannotRead) {
    Directory("d");
    Put("d/file", "");
    chmod(File("d").c_str(), 0);
    {
        const TOrdinaryUser ordinary;
        // Unreadable counts as without entries, so that it fails when it removes the directory.
        EXPECT_FAILS(RemoveDirectoryRecursive(File("d")), ENOTEMPTY);
    }
    chmod(File("d").c_str(), 0700);
    EXPECT_TRUE(IsThere(File("d/file")));
}

// In a root directory of its own: without its guard the call would remove the machine's files.
TEST_F(RemoveDirectoryRecursiveTest, RefusesTheEmptyPath) {
    Put("file", "");
    const pid_t child = fork();
    if (child == 0) {
        if (chroot(m_Dir.Path().c_str()) != 0 || chdir("/") != 0) {
            _exit(77);
        }
        errno = 0;
        _exit(!RemoveDirectoryRecursive("") && errno == ENOENT ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 77) {
        GTEST_SKIP() << "only root may have a root directory of its own";
    }
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(IsThere(File("file")));
}

using GetDirectorySizeRecursiveTest = FileUtilsTest;

TEST_F(GetDirectorySizeRecursiveTest, AddsRegularFilesAlsoBehindLinks) {
    Directory("away");
    Put("away/file", std::string(1000, 'x'));
    Directory("d/a/b");
    Put("d/one", std::string(1, 'x'));
    Put("d/a/b/ten", std::string(10, 'x'));
    Link("one", "d/link");
    Link("nowhere", "d/dangling");
    ASSERT_EQ(mkfifo(File("d/fifo").c_str(), 0600), 0);
    EXPECT_EQ(GetDirectorySizeRecursive(File("d")), 12U);
    Link(File("away"), "d/away");
    EXPECT_EQ(GetDirectorySizeRecursive(File("d")), 1012U);
}

TEST_F(GetDirectorySizeRecursiveTest, CountsALoopUntilTheSystemStopsFollowingIt) {
    Directory("d");
    Put("d/file", std::string(10, 'x'));
    Link(".", "d/loop");
    const unsigned long long size = GetDirectorySizeRecursive(File("d"));
    EXPECT_GT(size, 100U);
    EXPECT_EQ(size % 10, 0U);
}

TEST_F(GetDirectorySizeRecursiveTest, IsNothingForWhatIsNoReadableDirectory) {
    EXPECT_EQ(GetDirectorySizeRecursive(File("missing")), 0U);
    EXPECT_EQ(GetDirectorySizeRecursive(Put("file", "text")), 0U);
    Directory("closed");
    Put("closed/file", "text");
    chmod(File("closed").c_str(), 0);
    {
        const TOrdinaryUser ordinary;
        EXPECT_EQ(GetDirectorySizeRecursive(File("closed")), 0U);
    }
    chmod(File("closed").c_str(), 0700);
}

using GetFilesTest = FileUtilsTest;

TEST_F(GetFilesTest, AddsTheNamesOfAllButDirectories) {
    Directory("d/sub");
    Put("d/file", "");
    Put("d/.hidden", "");
    Link("nowhere", "d/dangling");
    Link("file", "d/link");
    Link("sub", "d/linked-directory");
    ASSERT_EQ(mkfifo(File("d/fifo").c_str(), 0600), 0);
    std::set<std::string> names = {"before"};
    EXPECT_TRUE(GetFiles(File("d/"), names));
    EXPECT_THAT(names,
                UnorderedElementsAre("before", "file", ".hidden", "dangling", "link", "fifo"));
}

TEST_F(GetFilesTest, InsertsNoSlashBehindTheDirectory) {
    Directory("d/sub");
    Put("d/file", "");
    std::set<std::string> names;
    EXPECT_TRUE(GetFiles(File("d"), names));
    // "dsub", "d." and "d.." are no directories.
    EXPECT_THAT(names, UnorderedElementsAre("sub", "file", ".", ".."));
}

TEST_F(GetFilesTest, FindsNothingInWhatIsMissingOrEmpty) {
    std::set<std::string> names;
    EXPECT_TRUE(GetFiles(File("missing/"), names));
    EXPECT_TRUE(GetFiles(Directory("d") + "/", names));
    EXPECT_TRUE(GetFiles(Directory("e"), names));
    EXPECT_THAT(names, IsEmpty());
    names = {"before"};
    EXPECT_TRUE(GetFiles(File("missing/"), names));
    EXPECT_TRUE(GetFiles(File("d/"), names));
    EXPECT_THAT(names, UnorderedElementsAre("before"));
}

TEST_F(GetFilesTest, TakesAnUnreadableDirectoryForAnEmptyOne) {
    Directory("closed");
    Put("closed/file", "");
    chmod(File("closed").c_str(), 0);
    std::set<std::string> names;
    {
        const TOrdinaryUser ordinary;
        EXPECT_TRUE(IsDirEmpty(File("closed")));
        EXPECT_TRUE(GetFiles(File("closed/"), names));
    }
    chmod(File("closed").c_str(), 0700);
    EXPECT_THAT(names, IsEmpty());
}

TEST_F(GetFilesTest, ADirectoryIsEmptyWithoutEntries) {
    EXPECT_TRUE(IsDirEmpty(File("missing")));
    EXPECT_TRUE(IsDirEmpty(Directory("d")));
    Directory("d/sub");
    EXPECT_FALSE(IsDirEmpty(File("d")));
    EXPECT_TRUE(IsDirEmpty(Put("file", "")));
}

TEST(OstelFileUtilsTree, ADirectoryOf100000EntriesIsCountedAndRemoved) {
    if (access("/dev/shm", W_OK) == 0) {
        setenv("TMPDIR", "/dev/shm", 1);  // a disk takes a minute on a bad day
    }
    const TempDir place;
    const std::string directory = place.File("d");
    ASSERT_TRUE(CreateDirectory(directory, 0700));
    constexpr int many = 100000;
    for (int i = 0; i < many; ++i) {
        const std::string name = directory + "/" + std::to_string(i);
        const int file = open(name.c_str(), O_WRONLY | O_CREAT, 0600);
        ASSERT_GE(file, 0) << name;
        ASSERT_EQ(write(file, "x", 1), 1);
        close(file);
    }
    std::set<std::string> names;
    EXPECT_TRUE(GetFiles(directory + "/", names));
    EXPECT_EQ(names.size(), std::size_t{many});
    EXPECT_EQ(GetDirectorySizeRecursive(directory), static_cast<unsigned long long>(many));
    EXPECT_TRUE(RemoveDirectoryRecursive(directory));
    EXPECT_FALSE(std::filesystem::exists(directory));
}

}  // namespace
