#ifndef FILE_UTILS_TEST_H
#define FILE_UTILS_TEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "OrdinaryUser.h"
#include "RecordingLog.h"
#include "TempDir.h"

// A temporary directory that every user may use, and the system's own view of what is in it.
class FileUtilsTest : public testing::Test {
protected:
    FileUtilsTest() { chmod(m_Dir.Path().c_str(), 0777); }
    ~FileUtilsTest() override {
        EXPECT_THAT(RecordingLog::Lines(), testing::IsEmpty()) << "results and errno tell it all";
    }

    std::string File(const std::string& name) const { return m_Dir.File(name); }

    // Makes a file; the path.
    std::string Put(const std::string& name, const std::string& content) const {
        std::ofstream(File(name), std::ios::binary) << content;
        return File(name);
    }

    std::string Directory(const std::string& name) const {
        std::filesystem::create_directories(File(name));
        return File(name);
    }

    std::string Link(const std::string& target, const std::string& name) const {
        std::filesystem::create_symlink(target, File(name));
        return File(name);
    }

    static std::string Content(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    static bool IsThere(const std::string& path) {
        return std::filesystem::exists(std::filesystem::symlink_status(path));
    }

    static unsigned int ModeOf(const std::string& path) {
        struct stat status = {};
        EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
        return status.st_mode & 07777U;
    }

    TempDir m_Dir;
};

// The call fails, with that cause left behind.
#define EXPECT_FAILS(call, cause) \
    do {                          \
        errno = 0;                \
        EXPECT_FALSE(call);       \
        EXPECT_EQ(errno, cause);  \
    } while (false)

#endif
