// Single system calls, and the parts of paths.
#include "OstelFileUtils.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <sys/time.h>
#include <sys/un.h>

#include "FileUtilsTest.h"

using namespace OstelFileUtils;

namespace {

class OstelFileUtils : public FileUtilsTest {
protected:
    struct stat StatusOf(const std::string& path) const {
        struct stat status = {};
        EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
        return status;
    }
};

TEST_F(OstelFileUtils, GetErrorNamesTheLastCause) {
    EXPECT_FALSE(Remove(File("missing")));
    EXPECT_EQ(GetError(), "No such file or directory");
    errno = EXDEV;
    EXPECT_EQ(GetError(), "Invalid cross-device link");
}

TEST_F(OstelFileUtils, ADirectoryHasTheModeLessTheMask) {
    const unsigned int before = SetCreationMask(027);
    EXPECT_TRUE(CreateDirectory(File("d"), 0777));
    EXPECT_EQ(SetCreationMask(before), 027U);
    EXPECT_EQ(ModeOf(File("d")), 0750U);
    EXPECT_FAILS(CreateDirectory(File("d"), 0777), EEXIST);
    EXPECT_FAILS(CreateDirectory(File("missing/d"), 0777), ENOENT);
}

TEST_F(OstelFileUtils, ASymbolicLinkHoldsItsTargetsText) {
    EXPECT_TRUE(CreateSymbolicLink("to/nowhere", File("link")));
    std::string target = "before";
    EXPECT_TRUE(ReadLink(File("link"), target));
    EXPECT_EQ(target, "to/nowhere");
    EXPECT_FAILS(CreateSymbolicLink("x", File("link")), EEXIST);
}

TEST_F(OstelFileUtils, ReadLinkReadsTheLongestTarget) {
    const std::string longest(4095, 'x');
    ASSERT_TRUE(CreateSymbolicLink(longest, File("link")));
    std::string target;
    EXPECT_TRUE(ReadLink(File("link"), target));
    EXPECT_EQ(target, longest);
}

TEST_F(OstelFileUtils, ReadLinkLeavesItsOutputAloneOnFailure) {
    std::string target = "before";
    EXPECT_FAILS(ReadLink(File("missing"), target), ENOENT);
    EXPECT_FAILS(ReadLink(Put("file", ""), target), EINVAL);
    EXPECT_EQ(target, "before");
}

TEST_F(OstelFileUtils, AHardLinkIsASecondNameOfTheFile) {
    const std::string file = Put("file", "text");
    EXPECT_EQ(GetHardLinkCount(file), 1U);
    EXPECT_TRUE(CreateHardLink(file, File("name")));
    EXPECT_EQ(GetHardLinkCount(file), 2U);
    EXPECT_TRUE(IsSame(file, File("name")));
    EXPECT_EQ(Content(File("name")), "text");
    EXPECT_FAILS(CreateHardLink(File("missing"), File("other")), ENOENT);
}

TEST_F(OstelFileUtils, CountsAreNeutralForWhatIsMissing) {
    EXPECT_EQ(GetHardLinkCount(File("missing")), 0U);
    EXPECT_EQ(GetSize(File("missing")), 0U);
    EXPECT_EQ(GetSize(Link("missing", "dangling")), 0U);
}

TEST_F(OstelFileUtils, PermissionsAreTwelveBits) {
    const std::string file = Put("file", "");
    EXPECT_TRUE(ChangePermissions(file, 07641));
    unsigned int mode = 0;
    EXPECT_TRUE(GetPermissions(file, mode));
    EXPECT_EQ(mode, 07641U);
    EXPECT_EQ(ModeOf(file), 07641U);
    EXPECT_FAILS(ChangePermissions(File("missing"), 0644), ENOENT);
}

TEST_F(OstelFileUtils, OwnerAndGroupOfALinkChangeAlone) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root may give files away";
    }
    const std::string file = Put("file", "");
    const std::string link = Link("file", "link");
    EXPECT_TRUE(ChangeLinkOwner(link, 1234));
    EXPECT_EQ(StatusOf(link).st_uid, 1234U);
    EXPECT_EQ(StatusOf(link).st_gid, getegid());
    EXPECT_TRUE(ChangeLinkGroup(link, 4321));
    EXPECT_EQ(StatusOf(link).st_uid, 1234U);
    EXPECT_EQ(StatusOf(link).st_gid, 4321U);
    EXPECT_EQ(StatusOf(file).st_uid, geteuid());
    EXPECT_EQ(StatusOf(file).st_gid, getegid());
}

TEST_F(OstelFileUtils, OwnersAreThoseOfALinksTarget) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root may give files away";
    }
    const std::string file = Put("file", "");
    ASSERT_EQ(chown(file.c_str(), 1234, 4321), 0);
    unsigned int owner = 0;
    unsigned int group = 0;
    EXPECT_TRUE(GetOwner(Link("file", "link"), owner));
    EXPECT_TRUE(GetGroup(File("link"), group));
    EXPECT_EQ(owner, 1234U);
    EXPECT_EQ(group, 4321U);
}

TEST_F(OstelFileUtils, ChangingOwnersFailsForWhatIsMissing) {
    EXPECT_FAILS(ChangeLinkOwner(File("missing"), 0), ENOENT);
    EXPECT_FAILS(ChangeLinkGroup(File("missing"), 0), ENOENT);
}

TEST_F(OstelFileUtils, DeviceAndTimesAreTheSystems) {
    const std::string file = Put("file", "");
    const timeval times[2] = {{1000000000, 999999}, {1100000000, 999999}};
    ASSERT_EQ(utimes(file.c_str(), times), 0);
    unsigned long long device = 0;
    long seconds = 0;
    EXPECT_TRUE(GetDevice(file, device));
    EXPECT_EQ(device, StatusOf(file).st_dev);
    EXPECT_TRUE(GetAccessTime(file, seconds));
    EXPECT_EQ(seconds, 1000000000);
    EXPECT_TRUE(GetModificationTime(file, seconds));
    EXPECT_EQ(seconds, 1100000000);
    EXPECT_TRUE(GetStatusChangeTime(file, seconds));
    EXPECT_EQ(seconds, StatusOf(file).st_ctime);
    EXPECT_NEAR(static_cast<double>(seconds), static_cast<double>(time(nullptr)), 60.0);
}

TEST_F(OstelFileUtils, AttributesLeaveTheirOutputAloneOnFailure) {
    const std::string missing = File("missing");
    unsigned int number = 77;
    unsigned long long wide = 77;
    long seconds = 77;
    EXPECT_FAILS(GetPermissions(missing, number), ENOENT);
    EXPECT_FAILS(GetOwner(missing, number), ENOENT);
    EXPECT_FAILS(GetGroup(missing, number), ENOENT);
    EXPECT_FAILS(GetDevice(missing, wide), ENOENT);
    EXPECT_FAILS(GetAvailableSpace(missing, wide), ENOENT);
    EXPECT_FAILS(GetModificationTime(missing, seconds), ENOENT);
    EXPECT_FAILS(GetStatusChangeTime(missing, seconds), ENOENT);
    EXPECT_FAILS(GetAccessTime(missing, seconds), ENOENT);
    EXPECT_EQ(number, 77U);
    EXPECT_EQ(wide, 77U);
    EXPECT_EQ(seconds, 77);
}

TEST_F(OstelFileUtils, RenameReplacesAFile) {
    const std::string from = Put("from", "new");
    EXPECT_TRUE(Rename(from, Put("to", "old")));
    EXPECT_EQ(Content(File("to")), "new");
    EXPECT_FALSE(IsThere(from));
    EXPECT_FAILS(Rename(from, File("to")), ENOENT);
}

TEST_F(OstelFileUtils, RemoveTakesFilesAndRemoveDirectoryTakesEmptyDirectories) {
    const std::string directory = Directory("d");
    const std::string file = Put("d/file", "");
    EXPECT_FAILS(RemoveDirectory(directory), ENOTEMPTY);
    EXPECT_FAILS(RemoveDirectory(file), ENOTDIR);
    EXPECT_FAILS(Remove(directory), EISDIR);
    EXPECT_TRUE(Remove(file));
    EXPECT_TRUE(RemoveDirectory(directory));
    EXPECT_FALSE(IsThere(directory));
}

TEST_F(OstelFileUtils, RemoveTakesALinkAndNotItsTarget) {
    const std::string file = Put("file", "");
    EXPECT_TRUE(Remove(Link("file", "link")));
    EXPECT_FALSE(IsThere(File("link")));
    EXPECT_TRUE(IsThere(file));
}

TEST_F(OstelFileUtils, KnowsTheKindsOfFilesAlsoBehindALink) {
    Directory("directory");
    Put("regular", "");
    ASSERT_EQ(mkfifo(File("fifo").c_str(), 0600), 0);
    const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    File("socket").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    close(listener);
    const struct {
        std::string path;
        bool directory, regular, fifo, socket, device;
    } cases[] = {
        {File("directory"), true, false, false, false, false},
        {File("regular"), false, true, false, false, false},
        {File("fifo"), false, false, true, false, false},
        {File("socket"), false, false, false, true, false},
        {"/dev/null", false, false, false, false, true},
    };
    for (const auto& one : cases) {
        const std::string link = File("link");
        std::filesystem::create_symlink(one.path, link);
        for (const auto& path : {one.path, link}) {
            EXPECT_TRUE(Exists(path)) << path;
            EXPECT_EQ(IsDirectory(path), one.directory) << path;
            EXPECT_EQ(IsRegular(path), one.regular) << path;
            EXPECT_EQ(IsFifo(path), one.fifo) << path;
            EXPECT_EQ(IsSocket(path), one.socket) << path;
            EXPECT_EQ(IsDevice(path), one.device) << path;
            EXPECT_FALSE(IsBlock(path)) << path;
            EXPECT_EQ(IsSymbolicLink(path), path == link) << path;
        }
        std::filesystem::remove(link);
    }
}

TEST_F(OstelFileUtils, WhatIsMissingAndADanglingLinkAreOfNoKind) {
    const std::string dangling = Link("missing", "dangling");
    for (const auto& path : {File("missing"), dangling, std::string()}) {
        EXPECT_FAILS(Exists(path), ENOENT);
        EXPECT_FALSE(IsDirectory(path) || IsRegular(path) || IsFifo(path) || IsSocket(path) ||
                     IsDevice(path) || IsBlock(path));
        EXPECT_EQ(IsSymbolicLink(path), path == dangling);
    }
    EXPECT_FAILS(Exists(Link("circle", "circle")), ELOOP);
}

TEST_F(OstelFileUtils, ABlockDeviceIsNoDeviceAndALinkToItNoBlockDevice) {
    const std::string block = File("block");
    if (mknod(block.c_str(), S_IFBLK | 0600, makedev(7, 255)) != 0) {
        GTEST_SKIP() << "making a block device: " << GetError();
    }
    EXPECT_TRUE(IsBlock(block));
    EXPECT_FALSE(IsDevice(block));
    EXPECT_FALSE(IsBlock(Link("block", "link")));
    EXPECT_FALSE(IsBlock("/dev/null"));
}

TEST_F(OstelFileUtils, SameIsTheFileAndNotTheContent) {
    const std::string file = Put("file", "text");
    EXPECT_TRUE(IsSame(file, File("./file")));
    EXPECT_TRUE(IsSame(file, Link("file", "link")));
    EXPECT_FALSE(IsSame(file, Put("copy", "text")));
    EXPECT_FAILS(IsSame(file, File("missing")), ENOENT);
    EXPECT_FAILS(IsSame(File("missing"), file), ENOENT);
    EXPECT_FALSE(IsSame(File("missing"), File("missing")));
}

TEST_F(OstelFileUtils, TheSameNumberOnAnotherFileSystemIsAnotherFile) {
    if (StatusOf("/proc").st_ino != StatusOf("/sys").st_ino) {
        GTEST_SKIP() << "/proc and /sys have no inode number in common";
    }
    EXPECT_FALSE(IsSame("/proc", "/sys"));
    EXPECT_TRUE(IsSame("/proc", "/proc/."));
}

TEST_F(OstelFileUtils, RealPathResolvesLinksAndDots) {
    const std::string real = std::filesystem::canonical(Directory("a/b")).string();
    Link("a", "link");
    std::string out = "before";
    EXPECT_TRUE(RealPath(File("link/./b/../b"), out));
    EXPECT_EQ(out, real);
    EXPECT_FAILS(RealPath(File("missing"), out), ENOENT);
    EXPECT_EQ(out, real);
}

TEST_F(OstelFileUtils, ResizeCutsAndGrowsWithZeros) {
    const std::string file = Put("file", "text");
    EXPECT_TRUE(ResizeFile(file, 2));
    EXPECT_EQ(Content(file), "te");
    EXPECT_TRUE(ResizeFile(file, 4));
    EXPECT_EQ(Content(file), std::string("te\0\0", 4));
    EXPECT_FAILS(ResizeFile(File("missing"), 0), ENOENT);
}

TEST_F(OstelFileUtils, ResizeTakesTheLow32BitsOfTheLength) {
    const std::string file = Put("file", "text");
    EXPECT_TRUE(ResizeFile(file, 0x700000003ULL));
    EXPECT_EQ(Content(file), "tex");
}

TEST_F(OstelFileUtils, ResizeTo2GibibytesNeedsWideOffsets) {
    const std::string file = Put("file", "text");
    if (sizeof(off_t) > 4) {
        EXPECT_TRUE(ResizeFile(file, 0x780000000ULL));
        EXPECT_EQ(GetSize(file), 0x80000000ULL);
    } else {
        EXPECT_FAILS(ResizeFile(file, 0x780000000ULL), EINVAL);
    }
}

TEST_F(OstelFileUtils, TheCurrentDirectoryIsTheLastChangedTo) {
    const std::string before = std::filesystem::current_path().string();
    const std::string directory = std::filesystem::canonical(Directory("d")).string();
    EXPECT_TRUE(ChangeDirectory(directory));
    EXPECT_EQ(GetCurrentDirectory(), directory);
    EXPECT_FAILS(ChangeDirectory(File("missing")), ENOENT);
    EXPECT_EQ(GetCurrentDirectory(), directory);
    EXPECT_TRUE(RemoveDirectory(directory));
    EXPECT_EQ(GetCurrentDirectory(), "");
    EXPECT_EQ(errno, ENOENT);
    EXPECT_TRUE(ChangeDirectory(before));
}

TEST_F(OstelFileUtils, ACurrentDirectoryThatDoesNotFitIsTheEmptyText) {
    const std::string before = std::filesystem::current_path().string();
    const std::string name(200, 'x');
    constexpr int levels = 21;  // more than 4096 characters
    ASSERT_TRUE(ChangeDirectory(m_Dir.Path().string()));
    for (int i = 0; i < levels; ++i) {
        ASSERT_TRUE(CreateDirectory(name, 0700) && ChangeDirectory(name));
    }
    errno = 0;
    EXPECT_EQ(GetCurrentDirectory(), "");
    EXPECT_EQ(errno, ERANGE);
    for (int i = 0; i < levels; ++i) {
        ASSERT_TRUE(ChangeDirectory("..") && RemoveDirectory(name));
    }
    EXPECT_TRUE(ChangeDirectory(before));
}

TEST_F(OstelFileUtils, AvailableSpaceIsWhatOrdinaryUsersHave) {
    struct statvfs status = {};
    ASSERT_EQ(statvfs("/dev/shm", &status), 0) << "/dev/shm";
    unsigned long long bytes = 77;
    EXPECT_TRUE(GetAvailableSpace("/dev/shm", bytes));
    const auto expected = static_cast<unsigned long long>(status.f_bsize) * status.f_bavail;
    // Others may use it at the same time.
    EXPECT_NEAR(static_cast<double>(bytes), static_cast<double>(expected), 64.0 * 1024 * 1024);
    EXPECT_TRUE(GetAvailableSpace("/proc", bytes));
    EXPECT_EQ(bytes, 0U);
}

TEST_F(OstelFileUtils, SyncFailsOnlyWhenTheDirectoryCannotBeOpened) {
    EXPECT_TRUE(SyncDirectory(Directory("d")));
    EXPECT_TRUE(SyncDirectory("/proc"));  // where fsync is refused
    EXPECT_FAILS(SyncDirectory(File("missing")), ENOENT);
    EXPECT_FAILS(SyncDirectory(Put("file", "")), ENOTDIR);
}

TEST_F(OstelFileUtils, ATemporaryDirectoryHasANewNameAndExactlyTheMode) {
    const unsigned int before = SetCreationMask(077);
    std::string first = File("prefix");
    std::string second = first;
    EXPECT_TRUE(CreateTemporaryDirectory(first, 0751));
    EXPECT_TRUE(CreateTemporaryDirectory(second, 0700));
    SetCreationMask(before);
    EXPECT_THAT(first, testing::MatchesRegex(File("prefix") + "_[0-9A-Za-z]{6}"));
    EXPECT_NE(first, second);
    EXPECT_TRUE(IsDirectory(first));
    EXPECT_EQ(ModeOf(first), 0751U);
    EXPECT_EQ(ModeOf(second), 0700U);
}

TEST_F(OstelFileUtils, ATemporaryDirectoryLeavesThePathAloneOnFailure) {
    std::string path = File("missing/prefix");
    EXPECT_FAILS(CreateTemporaryDirectory(path, 0700), ENOENT);
    EXPECT_EQ(path, File("missing/prefix"));
}

TEST_F(OstelFileUtils, OverlongAndEmptyPathsAreRefused) {
    const std::string overlong(5000, 'x');
    std::string out;
    EXPECT_FAILS(CreateDirectory(overlong, 0700), ENAMETOOLONG);
    EXPECT_FAILS(CreateDirectoryRecursive(overlong, 0700), ENAMETOOLONG);
    EXPECT_FAILS(ReadFile(overlong, out), ENAMETOOLONG);
    EXPECT_FAILS(WriteFile("", "x", false, false), ENOENT);
    EXPECT_FAILS(CreateDirectoryRecursive("", 0700), ENOENT);
}

TEST_F(OstelFileUtils, NoParentsAreMadeForAnOverlongPath) {
    std::string path = File("parent");
    while (path.size() < 5000) {
        path += "/x";
    }
    EXPECT_FAILS(CreateDirectoryRecursive(path, 0700), ENAMETOOLONG);
    EXPECT_FALSE(IsThere(File("parent")));
}

TEST(OstelFileUtilsPaths, SplitAsPosixDoes) {
    const struct {
        const char* path;
        const char* directory;
        const char* base;
    } cases[] = {
        {"/x/y", "/x", "y"}, {"/x/y/", "/x", "y"}, {"x", ".", "x"}, {"/x", "/", "x"},
        {"/", "/", "/"},     {"", ".", "."},       {".", ".", "."}, {"a//b", "a", "b"},
    };
    for (const auto& one : cases) {
        EXPECT_EQ(GetDirName(one.path), one.directory) << one.path;
        EXPECT_EQ(GetBaseName(one.path), one.base) << one.path;
    }
}

TEST(OstelFileUtilsPaths, AppendAddsASlashAlways) {
    EXPECT_EQ(AppendFilePath("a", "b"), "a/b");
    EXPECT_EQ(AppendFilePath("a/", "/b"), "a///b");
    EXPECT_EQ(AppendFilePath("", ""), "/");
}

TEST(OstelFileUtilsPaths, TheFileNameIsTheLastField) {
    const struct {
        const char* path;
        const char* name;
    } cases[] = {{"/x/y.z", "y.z"}, {"y", "y"}, {"/x/y/", "y"}, {"x//", ""}, {"/", ""}, {"", ""}};
    for (const auto& one : cases) {
        EXPECT_EQ(GetFileNameFromPath(one.path), one.name) << one.path;
    }
}

TEST(OstelFileUtilsPaths, ExtensionsAndBaseNamesNeedAPoint) {
    const struct {
        const char* path;
        const char* extension;
        const char* base;
    } cases[] = {
        {"/x/y.tar.gz", ".gz", "y"},
        {"archive.tar.gz", ".gz", "archive"},
        {".profile", ".profile", ""},
        {"/x/README", "", ""},  // without a point the base name is empty as well
        {"/x.y/README", "", ""},
        {"a.", ".", "a"},
        {"/x/a.b/", ".b", "a"},
        {"...", ".", ""},
        {".", "", ""},
        {"..", "", ""},
        {"/x/..", "", ""},
        {"/", "", ""},
        {"", "", ""},
    };
    for (const auto& one : cases) {
        EXPECT_EQ(GetFileExtension(one.path), one.extension) << one.path;
        EXPECT_EQ(GetFileBaseName(one.path), one.base) << one.path;
    }
}

}  // namespace
