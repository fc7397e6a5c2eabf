#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "CliFixture.h"
#include "TempDir.h"

namespace {

using testing::HasSubstr;

const std::string BACKUP = "Device.X_KAVEN_COM_General.Storage.ConfigBackup";

std::string Contents(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

class LongValue : public Ostelcli {
protected:
    std::string File(const std::string& contents) {
        std::ofstream(m_Dir.File("value"), std::ios::binary) << contents;
        return m_Dir.File("value");
    }

    TempDir m_Dir;
};

TEST_F(LongValue, GoesFromFileToFile) {
    const std::string value = "line 1\nline 2\n" + std::string(8 * 1024 * 1024, 'v');
    EXPECT_EQ(Cli({"long", "set", BACKUP, File(value)}).status, 0);
    EXPECT_EQ(Cli({"long", "get", BACKUP, m_Dir.File("out")}).status, 0);
    EXPECT_TRUE(Contents(m_Dir.File("out")) == value);
}

TEST_F(LongValue, GoesFromStandardInputToStandardOutput) {
    EXPECT_EQ(Cli({"long", "set", BACKUP}, "from a pipe").status, 0);
    EXPECT_EQ(Cli({"long", "get", BACKUP}).output, "from a pipe");
    EXPECT_EQ(Cli({"long", "set", BACKUP, "-", "--no-commit"}, "later").status, 0);
    EXPECT_EQ(Cli({"long", "get", BACKUP, "-"}).output, "from a pipe");
    EXPECT_EQ(Cli({"commit"}).status, 0);
    EXPECT_EQ(Cli({"--json", "long", "get", BACKUP}).output, "{\"VALUE\":\"later\"}\n");
    EXPECT_EQ(Cli({"long", "set", BACKUP}, "").status, 0);
    EXPECT_EQ(Cli({"long", "get", BACKUP}).output, "");
}

TEST_F(LongValue, SaysWhatWentWrong) {
    EXPECT_EQ(Cli({"long", "get", "Device.Nothing"}).status, 4);
    EXPECT_EQ(Cli({"long", "get", std::string(256, 'x')}).status, 1);
    EXPECT_EQ(Cli({"long", "set", std::string(256, 'x')}, "v").status, 1);
    EXPECT_EQ(Cli({"long", "set", "Device.DeviceInfo.SerialNumber"}, "v").status, 7);
    EXPECT_EQ(Cli({"long", "set", BACKUP}, "\xFF").status, 1);
    const TFinished missing = Cli({"long", "set", BACKUP, m_Dir.File("missing")});
    EXPECT_EQ(missing.status, 66);
    EXPECT_EQ(missing.errors,
              "ostelcli: " + m_Dir.File("missing") + ": No such file or directory\n");
    const TFinished directory = Cli({"long", "set", BACKUP, m_Dir.Path().string()});
    EXPECT_EQ(directory.status, 66);
    EXPECT_THAT(directory.errors, HasSubstr("Is a directory"));
    EXPECT_EQ(Cli({"long", "set", BACKUP, File(std::string("a\0b", 3))}).status, 65);
    const TFinished unwritable = Cli({"long", "get", BACKUP, "/nonexistent/file"});
    EXPECT_EQ(unwritable.status, 74);
    EXPECT_THAT(unwritable.errors, HasSubstr("/nonexistent/file: No such file or directory"));
}

TEST_F(LongValue, TakesNoStandardInputThatCannotBeReadForAnEmptyOne) {
    EXPECT_EQ(Cli({"long", "set", BACKUP}, "kept").status, 0);
    for (const char* input : {"< /", "<&-"}) {
        const TFinished set =
            RunProgram({"sh", "-c", std::string(OSTELCLI) + " long set " + BACKUP + " " + input});
        EXPECT_EQ(set.status, 66) << input;
        EXPECT_EQ(set.errors, "ostelcli: standard input cannot be read\n") << input;
    }
    EXPECT_EQ(Cli({"long", "get", BACKUP}).output, "kept");
}

TEST_F(LongValue, TellsOfAFullDisk) {
    EXPECT_EQ(Cli({"long", "set", BACKUP}, std::string(100000, 'v')).status, 0);
    const TFinished full = Cli({"long", "get", BACKUP, "/dev/full"});
    EXPECT_EQ(full.status, 74);
    EXPECT_THAT(full.errors, HasSubstr("No space left on device"));
}

}  // namespace
