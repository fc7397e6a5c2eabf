#include "TOstelLogger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <regex>
#include <thread>

#include "BinaryLayout.h"
#include "RecordingLog.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TOstelLogger& Logger() {
    return *TOstelLogger::GetInstance();
}

long Syncs() {
    const auto calls = RecordingLog::Calls();
    return std::count(calls.begin(), calls.end(), "logSync");
}

TEST(TOstelLogger, DoesNotCallTheLibraryWhenItIsBuilt) {
    EXPECT_EQ(TOstelLogger::GetInstance(), TOstelLogger::GetInstance());
    EXPECT_THAT(RecordingLog::Calls(), IsEmpty());
}

TEST(TOstelLogger, StartsTheLibraryUnderTheClientsName) {
    Logger().Init(OSTEL_QUR_AGENT);
    EXPECT_THAT(RecordingLog::Calls(), ElementsAre("logInit QRM"));
    EXPECT_THAT(RecordingLog::Lines(), IsEmpty());
}

TEST(TOstelLogger, LogsAnUnknownClientAndStaysAsItWas) {
    Logger().Init(OSTEL_MANAGER);
    Logger().Init(static_cast<tOstelClientId>(99));
    EXPECT_THAT(RecordingLog::Calls(), ElementsAre("logInit OSTELMGR"));
    EXPECT_THAT(RecordingLog::Texts(2),
                ElementsAre("[TOstelDataMapper] Can't find string for enum (tOstelClientId) value: "
                            "99"));
    EXPECT_EQ(RecordingLog::Lines().front().format, "%s");
    Logger().OnDataModelParamChanged("Device.X_KAVEN_COM_Applications.OstelManager.Logging.Level",
                                     "");
    EXPECT_EQ(Syncs(), 1);
}

TEST(TOstelLogger, SyncsOnceForEachOfItsThreeParameters) {
    Logger().Init(OSTEL_MANAGER);
    const std::string prefix = "Device.X_KAVEN_COM_Applications.OstelManager.";
    Logger().OnDataModelParamChanged(prefix + "Logging.Level", "6");
    EXPECT_EQ(Syncs(), 1);
    Logger().OnDataModelParamChanged(prefix + "Logging.Destination", "2");
    EXPECT_EQ(Syncs(), 2);
    Logger().OnDataModelParamChanged(prefix + "Logging.DestinationLevel", "2");
    EXPECT_EQ(Syncs(), 3);
}

TEST(TOstelLogger, IgnoresOtherParameters) {
    Logger().Init(OSTEL_MANAGER);
    const std::string prefix = "Device.X_KAVEN_COM_Applications.OstelManager.";
    for (const std::string& name :
         {prefix + "Logging.LevelX", prefix + "Logging.", prefix, prefix + "logging.level",
          std::string("Device.X_KAVEN_COM_Applications.Kta.Logging.Level"), std::string(),
          std::string("Logging.Level")}) {
        Logger().OnDataModelParamChanged(name, "1");
    }
    EXPECT_EQ(Syncs(), 0);
}

TEST(TOstelLogger, MeasuresTheSuffixFromTheStartOfTheName) {
    Logger().Init(OSTEL_KTA);
    Logger().OnDataModelParamChanged("X.Device.X_KAVEN_COM_Applications.Kta.Logging.Level", "6");
    EXPECT_EQ(Syncs(), 0);
    // As long as the prefix, then the parameter, then the prefix somewhere: it counts.
    Logger().OnDataModelParamChanged("Device.X_KAVEN_COM_Applications.Kta.Logging.Level", "6");
    EXPECT_EQ(Syncs(), 1);
}

TEST(TOstelLogger, NeverSyncsForAClientWithoutSubtree) {
    Logger().OnDataModelParamChanged("Logging.Level", "6");
    Logger().Init(OSTEL_CLI);
    Logger().OnDataModelParamChanged("Logging.Level", "6");
    Logger().OnDataModelParamChanged("Device.X_KAVEN_COM_Applications.Kta.Logging.Level", "6");
    EXPECT_EQ(Syncs(), 0);
}

TEST(TOstelLogger, SettersPassOnTheLibrarysResult) {
    RecordingLog::ReturnFromSetters(7);
    EXPECT_EQ(TOstelLogger::SetLevelError(), 7);
    EXPECT_EQ(TOstelLogger::SetLevelNotice(), 7);
    EXPECT_EQ(TOstelLogger::SetLevelDebug(), 7);
    EXPECT_EQ(TOstelLogger::SetDestinationStdout(), 7);
    EXPECT_EQ(TOstelLogger::SetDestinationSysLog(), 7);
    EXPECT_EQ(TOstelLogger::SetDestinationFile(), 7);
    EXPECT_THAT(RecordingLog::Calls(),
                ElementsAre("setLogLevel 2", "setLogLevel 4", "setLogLevel 6",
                            "setLogDestination 2", "setLogDestination 4", "setLogDestination 8"));
}

TEST(TOstelLogger, TermsTheLibraryAtExitEvenWithoutInit) {
    EXPECT_EXIT(
        {
            RecordingLog::EchoCalls();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "^logTerm\n$");
}

TEST(TExecutionTime, LogsHowLongItsScopeTook) {
    {
        const TOstelLogger::TExecutionTime time("common/framework/X.cpp", 12, "Work");
        std::this_thread::sleep_for(std::chrono::microseconds(2500));
    }
    const auto lines = RecordingLog::Lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].level, 6);
    EXPECT_EQ(lines[0].format, "[common/framework/X.cpp:12][Work]: Execution time = %.3f ms");
    std::smatch match;
    ASSERT_TRUE(std::regex_match(lines[0].text, match,
                                 std::regex(R"(.*: Execution time = ([0-9]+\.[0-9]{3}) ms)")))
        << lines[0].text;
    EXPECT_GE(std::stod(match[1]), 2.5);
    EXPECT_LT(std::stod(match[1]), 2000.0);
}

TEST(TExecutionTime, CutsItsPrefixAt511Characters) {
    { const TOstelLogger::TExecutionTime time(std::string(600, 'f').c_str(), 1, "Work"); }
    EXPECT_EQ(RecordingLog::Lines().at(0).format,
              "[" + std::string(510, 'f') + "Execution time = %.3f ms");
}

TEST(TOstelLogger, HasItsNotificationBehindTheDestructors) {
    EXPECT_EQ(BinaryLayout::SlotOf(&TOstelLogger::OnDataModelParamChanged), 2U);
    EXPECT_EQ(BinaryLayout::SlotOf(&IOstelDataModelChangeObserver::OnDataModelParamChanged), 2U);
}

#ifdef __i386__
static_assert(sizeof(TOstelLogger) == 4 + 4 + sizeof(std::string), "mapper, then prefix");
static_assert(sizeof(TOstelLogger::TExecutionTime) == sizeof(std::string) + 8 + 8,
              "message, start, end");
#endif

}  // namespace
