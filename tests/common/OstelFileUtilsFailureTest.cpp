// What no file system can be made to show, failures above all. The calls that fail on demand take
// the place of the system's own for the library as well, and so stand in a program of their own.
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/statvfs.h>

#include "Allocations.h"
#include "Emulated.h"
#include "FileUtilsTest.h"
#include "OstelFileUtils.h"

using namespace OstelFileUtils;

namespace {

bool s_IsChmodRefused = false;
bool s_DoesCloseFail = false;
int s_OpendirCallsLeft = -1;  // -1: without end
int s_ReadCallsLeft = -1;
int s_EmptyWritesLeft = 0;
bool s_IsUnlinkRefused = false;
int s_RefusedUnlinks = 0;

}  // namespace

extern "C" OSTEL_API int chmod(const char* path, mode_t mode) {
    if (s_IsChmodRefused) {
        errno = EPERM;
        return -1;
    }
    using TChmod = int (*)(const char*, mode_t);
    return reinterpret_cast<TChmod>(dlsym(RTLD_NEXT, "chmod"))(path, mode);
}

extern "C" OSTEL_API int close(int descriptor) {
    static const auto next = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "close"));
    const int result = next(descriptor);
    if (s_DoesCloseFail) {
        errno = EIO;
        return -1;
    }
    return result;
}

extern "C" OSTEL_API ssize_t read(int descriptor, void* bytes, size_t length) {
    if (s_ReadCallsLeft == 0) {
        errno = EIO;
        return -1;
    }
    s_ReadCallsLeft -= s_ReadCallsLeft > 0 ? 1 : 0;
    static const auto next = reinterpret_cast<decltype(&read)>(dlsym(RTLD_NEXT, "read"));
    return next(descriptor, bytes, length);
}

extern "C" OSTEL_API ssize_t write(int descriptor, const void* bytes, size_t length) {
    if (s_EmptyWritesLeft > 0) {
        --s_EmptyWritesLeft;
        return 0;
    }
    static const auto next = reinterpret_cast<decltype(&write)>(dlsym(RTLD_NEXT, "write"));
    return next(descriptor, bytes, length);
}

extern "C" OSTEL_API int unlink(const char* path) noexcept {
    if (s_IsUnlinkRefused) {
        ++s_RefusedUnlinks;
        errno = EPERM;
        return -1;
    }
    using TUnlink = int (*)(const char*);
    return reinterpret_cast<TUnlink>(dlsym(RTLD_NEXT, "unlink"))(path);
}

extern "C" OSTEL_API DIR* opendir(const char* path) {
    if (s_OpendirCallsLeft == 0) {
        errno = EMFILE;
        return nullptr;
    }
    s_OpendirCallsLeft -= s_OpendirCallsLeft > 0 ? 1 : 0;
    using TOpendir = DIR* (*)(const char*);
    return reinterpret_cast<TOpendir>(dlsym(RTLD_NEXT, "opendir"))(path);
}

extern "C" OSTEL_API int statvfs(const char*, struct statvfs* status) noexcept {
    *status = {};
    status->f_bsize = 4096;
    status->f_frsize = 512;
    status->f_blocks = 4000003;
    status->f_bfree = 3000002;
    status->f_bavail = 2000001;
    return 0;
}

namespace {

class FileUtilsFailure : public FileUtilsTest {
protected:
    ~FileUtilsFailure() override {
        Allocations::GoOn();
        s_IsChmodRefused = false;
        s_DoesCloseFail = false;
        s_OpendirCallsLeft = -1;
        s_ReadCallsLeft = -1;
        s_EmptyWritesLeft = 0;
        s_IsUnlinkRefused = false;
    }
};

TEST_F(FileUtilsFailure, AReadThatFailsKeepsWhatWasReadBefore) {
    const std::string file = Put("file", std::string(20000, 'x'));
    std::string text = "before";
    s_ReadCallsLeft = 2;
    EXPECT_FAILS(ReadFile(file, text), EIO);
    EXPECT_EQ(text, std::string(16384, 'x'));
}

TEST_F(FileUtilsFailure, ACopyWhoseSourceFailsKeepsWhatWasCopiedBefore) {
    const std::string file = Put("file", std::string(20000, 'x'));
    s_ReadCallsLeft = 2;
    EXPECT_FAILS(CopyFile(file, File("copy")), EIO);
    EXPECT_EQ(GetSize(File("copy")), 16384U);
}

// As file systems in user space can be made to do; asking again would go on for ever.
TEST_F(FileUtilsFailure, AWriteThatTakesNothingFails) {
    const std::string file = Put("file", "text");
    s_EmptyWritesLeft = 2;
    EXPECT_FAILS(WriteFile(File("new"), "text", false, false), ENOSPC);
    EXPECT_FAILS(CopyFile(file, File("copy")), ENOSPC);
    EXPECT_EQ(s_EmptyWritesLeft, 0);
    EXPECT_EQ(GetSize(File("new")) + GetSize(File("copy")), 0U);
}

TEST_F(FileUtilsFailure, ARemovalStopsAtTheFirstFailure) {
    SKIP_WHERE_EMULATED("gives 32-bit programs the directory positions of 64-bit ones");
    Directory("d");
    for (const char* const name : {"d/a", "d/b", "d/c"}) {
        Put(name, "");
    }
    s_IsUnlinkRefused = true;
    EXPECT_FAILS(RemoveDirectoryRecursive(File("d")), EPERM);
    EXPECT_EQ(s_RefusedUnlinks, 1);
}

TEST_F(FileUtilsFailure, ExhaustedMemoryEndsARead) {
    const std::string file = Put("file", std::string(200000, 'x'));
    const auto descriptor = open("/dev/null", O_RDONLY);
    close(descriptor);
    std::string text;
    Allocations::FailAbove(100000);
    EXPECT_FAILS(ReadFile(file, text), ENOMEM);
    // The lowest number that is free is the same as before: the file is closed.
    EXPECT_EQ(open("/dev/null", O_RDONLY), descriptor);
    close(descriptor);
}

TEST_F(FileUtilsFailure, AReadAsksForTheFilesSizeAtOnce) {
    const std::string file = Put("file", std::string(100000, 'x'));
    std::string text;
    Allocations::FailAbove(110000);  // less than a text that doubles with each chunk would need
    EXPECT_TRUE(ReadFile(file, text));
    EXPECT_EQ(text.size(), 100000U);
}

TEST_F(FileUtilsFailure, MemoryExhaustedWhileReadingKeepsWhatWasRead) {
    // Has no size, so that the text grows with what is read.
    const std::string fifo = File("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const int end = open(fifo.c_str(), O_RDWR);
    ASSERT_EQ(write(end, std::string(60000, 'x').data(), 60000), 60000);
    std::string text;
    Allocations::FailAbove(40000);
    EXPECT_FAILS(ReadFile(fifo, text), ENOMEM);
    close(end);
    EXPECT_EQ(text, std::string(text.size(), 'x'));
    EXPECT_GE(text.size(), 8192U);
}

TEST_F(FileUtilsFailure, WhatComesOfClosingDoesNotMatter) {
    const std::string file = Put("file", "text");
    std::string text;
    s_DoesCloseFail = true;
    EXPECT_TRUE(WriteFile(File("new"), "text", false, true));
    EXPECT_TRUE(ReadFile(file, text));
    EXPECT_TRUE(CopyFile(file, File("copy")));
    EXPECT_FAILS(WriteFile("/dev/full", "text", false, false), ENOSPC);
    EXPECT_FAILS(CopyFile(file, File("missing/copy")), ENOENT);
}

TEST_F(FileUtilsFailure, ATemporaryDirectoryWithoutItsModeIsRemovedAgain) {
    std::string path = File("prefix");
    s_IsChmodRefused = true;
    EXPECT_FAILS(CreateTemporaryDirectory(path, 0700), EPERM);
    EXPECT_EQ(path, File("prefix"));
    EXPECT_TRUE(std::filesystem::is_empty(m_Dir.Path()));
}

TEST_F(FileUtilsFailure, AvailableSpaceIsWhatOrdinaryUsersMayFillInWideNumbers) {
    unsigned long long bytes = 0;
    EXPECT_TRUE(GetAvailableSpace(m_Dir.Path().string(), bytes));
    EXPECT_EQ(bytes, 4096ULL * 2000001ULL);
}

TEST_F(FileUtilsFailure, GetFilesFailsWhenTheDirectoryHasGoneMeanwhile) {
    SKIP_WHERE_EMULATED("gives 32-bit programs the directory positions of 64-bit ones");
    Directory("d");
    Put("d/file", "");
    std::set<std::string> names;
    s_OpendirCallsLeft = 1;  // for the look whether it is empty
    EXPECT_FAILS(GetFiles(File("d/"), names), EMFILE);
    EXPECT_TRUE(names.empty());
}

}  // namespace
