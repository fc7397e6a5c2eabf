#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "LogEnds.h"
#include "TempDir.h"
#include "zt_logging.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class ZtLoggingSettings : public testing::Test {
protected:
    void SetUp() override {
        for (const char* const variable :
             {"ZT_LOGGING_LEVEL", "ZT_LOGGING_DESTINATION", "ZT_LOGGING_FILE"}) {
            unsetenv(variable);
        }
        setenv("ZT_LOGGING_SETTINGS", m_Settings.c_str(), 1);
        Settings("");
    }

    void Settings(const std::string& text) const {
        std::ofstream(m_Settings, std::ios::binary) << text;
    }

    // What reaches standard output when one line of each level is logged.
    std::vector<std::string> LevelsWritten() const {
        const LogEnds::TStandardOutput out;
        for (int level = 2; level <= 6; ++level) {
            ztLogging_log(level, "level %d", level);
        }
        std::vector<std::string> levels;
        for (const std::string& line : out.Writes()) {
            levels.push_back(line.substr(line.size() - 2, 1));
        }
        return levels;
    }

    const TempDir m_Dir;
    const std::string m_Settings = m_Dir.File("settings");
};

}  // namespace

TEST_F(ZtLoggingSettings, DefaultIsNoticesToTheSystemLogAndNothingToStandardOutput) {
    unsetenv("ZT_LOGGING_SETTINGS");
    EXPECT_THAT(LevelsWritten(), IsEmpty());
    EXPECT_THAT(LogEnds::SystemLog(), SizeIs(3));
}

TEST_F(ZtLoggingSettings, FileIsReadWhenTheFirstLineIsLogged) {
    Settings("level = 3\ndestination = 2\n");
    EXPECT_THAT(LevelsWritten(), ElementsAre("2", "3"));
}

TEST_F(ZtLoggingSettings, FileMayHaveCommentsBlanksAndNoLastLineFeed) {
    Settings("# levels\n\n  \t\n\tlevel=5\r\n  # more\ndestination =\t2");
    EXPECT_THAT(LevelsWritten(), ElementsAre("2", "3", "4", "5"));
}

TEST_F(ZtLoggingSettings, EnvironmentGoesOverTheFile) {
    Settings("level = 3\ndestination = 4\nfile = /nonexistent/log\n");
    setenv("ZT_LOGGING_LEVEL", "2", 1);
    setenv("ZT_LOGGING_DESTINATION", "10", 1);
    setenv("ZT_LOGGING_FILE", m_Dir.File("log").c_str(), 1);
    EXPECT_THAT(LevelsWritten(), ElementsAre("2"));
    EXPECT_THAT(LogEnds::FileLines(m_Dir.File("log")), ElementsAre(HasSubstr("level 2")));
    EXPECT_THAT(LogEnds::SystemLog(), IsEmpty());
}

TEST_F(ZtLoggingSettings, EmptyVariableCountsAsUnset) {
    Settings("level = 2\ndestination = 2\n");
    setenv("ZT_LOGGING_LEVEL", "", 1);
    setenv("ZT_LOGGING_DESTINATION", "", 1);
    const LogEnds::TStandardError err;
    EXPECT_THAT(LevelsWritten(), ElementsAre("2"));
    EXPECT_EQ("", err.Text());
}

TEST_F(ZtLoggingSettings, FileIsReadAgainOnSyncOnly) {
    Settings("level = 2\ndestination = 2\n");
    EXPECT_THAT(LevelsWritten(), ElementsAre("2"));
    Settings("level = 3\ndestination = 2\n");
    EXPECT_EQ(0, ztLogging_logInit("KTA"));
    EXPECT_THAT(LevelsWritten(), ElementsAre("2"));
    EXPECT_EQ(0, ztLogging_logSync());
    EXPECT_THAT(LevelsWritten(), ElementsAre("2", "3"));
}

TEST_F(ZtLoggingSettings, WhatTheFileNoLongerNamesIsTheDefaultAgain) {
    Settings("level = 2\ndestination = 2\n");
    EXPECT_THAT(LevelsWritten(), ElementsAre("2"));
    Settings("destination = 2\n");
    EXPECT_EQ(0, ztLogging_logSync());
    EXPECT_THAT(LevelsWritten(), ElementsAre("2", "3", "4"));
}

TEST_F(ZtLoggingSettings, SettersHoldUntilTheNextSync) {
    Settings("level = 2\ndestination = 2\n");
    EXPECT_EQ(0, ztLogging_setLogLevel(3));
    EXPECT_EQ(0, ztLogging_logInit("KTA"));
    EXPECT_THAT(LevelsWritten(), ElementsAre("2", "3"));
    EXPECT_EQ(0, ztLogging_logSync());
    EXPECT_THAT(LevelsWritten(), ElementsAre("2"));
}

TEST_F(ZtLoggingSettings, SyncOpensAFileThatWasMovedAway) {
    const std::string path = m_Dir.File("log");
    Settings("destination = 8\nfile = " + path + "\n");
    ztLogging_log(ZT_LOG_LEVEL_ERROR, "old");
    std::filesystem::rename(path, path + ".1");
    EXPECT_EQ(0, ztLogging_logSync());
    ztLogging_log(ZT_LOG_LEVEL_ERROR, "new");
    EXPECT_THAT(LogEnds::FileLines(path + ".1"), ElementsAre(HasSubstr("old")));
    EXPECT_THAT(LogEnds::FileLines(path), ElementsAre(HasSubstr("new")));
}

TEST_F(ZtLoggingSettings, DamagedFileIsReportedWithItsLineAndChangesNothing) {
    struct TCase {
        std::string text;
        int line;
    };
    Settings("level = 3\ndestination = 2\n");
    ASSERT_THAT(LevelsWritten(), ElementsAre("2", "3"));
    const std::vector<TCase> cases = {{"level = 2\nnonsense\n", 2},
                                      {"level = high\n", 1},
                                      {"level = 8\n", 1},
                                      {"level = -1\n", 1},
                                      {"level = 2 3\n", 1},
                                      {"level =\n", 1},
                                      {"level = 99999999999999999999\n", 1},
                                      {"#\ndestination = 1\n", 2},
                                      {"destination = 18\n", 1},
                                      {"colour = 2\n", 1},
                                      {"= 2\n", 1},
                                      {std::string("level = 2\0\n", 11), 1},
                                      {std::string("file = a\0b\n", 11), 1},
                                      {std::string(1 << 20, '\xff'), 1}};
    for (const TCase& one : cases) {
        Settings(one.text);
        const LogEnds::TStandardError err;
        EXPECT_EQ(-1, ztLogging_logSync());
        EXPECT_EQ("zt_logging: " + m_Settings + ":" + std::to_string(one.line) +
                      ": not a setting; the settings stay as they were\n",
                  err.Text());
        EXPECT_THAT(LevelsWritten(), ElementsAre("2", "3"));
    }
}

TEST_F(ZtLoggingSettings, FileThatCannotBeReadIsReportedAndChangesNothing) {
    Settings("level = 3\ndestination = 2\n");
    ASSERT_THAT(LevelsWritten(), ElementsAre("2", "3"));
    for (const std::string& path : {m_Dir.File("missing"), m_Dir.Path().string()}) {
        setenv("ZT_LOGGING_SETTINGS", path.c_str(), 1);
        const LogEnds::TStandardError err;
        EXPECT_EQ(-1, ztLogging_logSync());
        EXPECT_EQ("zt_logging: " + path + ": cannot be read; the settings stay as they were\n",
                  err.Text());
        EXPECT_THAT(LevelsWritten(), ElementsAre("2", "3"));
    }
}

TEST_F(ZtLoggingSettings, LogFileThatCannotBeOpenedChangesNothing) {
    Settings("level = 3\ndestination = 2\n");
    ASSERT_THAT(LevelsWritten(), ElementsAre("2", "3"));
    Settings("level = 6\ndestination = 8\nfile = /nonexistent/log\n");
    const LogEnds::TStandardError err;
    EXPECT_EQ(-1, ztLogging_logSync());
    EXPECT_EQ("zt_logging: cannot write the log file /nonexistent/log: No such file or directory\n",
              err.Text());
    EXPECT_THAT(LevelsWritten(), ElementsAre("2", "3"));
}

TEST_F(ZtLoggingSettings, WrongVariableIsReportedAndChangesNothing) {
    Settings("level = 3\ndestination = 2\n");
    ASSERT_THAT(LevelsWritten(), ElementsAre("2", "3"));
    setenv("ZT_LOGGING_LEVEL", "loud", 1);
    const LogEnds::TStandardError err;
    EXPECT_EQ(-1, ztLogging_logSync());
    EXPECT_EQ("zt_logging: ZT_LOGGING_LEVEL=loud: not a setting; the settings stay as they were\n",
              err.Text());
    EXPECT_THAT(LevelsWritten(), ElementsAre("2", "3"));
}
