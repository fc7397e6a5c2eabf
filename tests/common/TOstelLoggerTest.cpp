#include "TOstelLogger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <new>
#include <string>

#include "Allocations.h"
#include "BinaryLayout.h"
#include "FixedTime.h"
#include "RecordingLog.h"

struct TMapperPlace {
    friend std::size_t OffsetOf(TMapperPlace);
};
struct TPrefixPlace {
    friend std::size_t OffsetOf(TPrefixPlace);
};
struct TMessagePlace {
    friend std::size_t OffsetOf(TMessagePlace);
};
struct TStartPlace {
    friend std::size_t OffsetOf(TStartPlace);
};
struct TEndPlace {
    friend std::size_t OffsetOf(TEndPlace);
};

template struct MemberOffset<TMapperPlace, &TOstelLogger::m_DataMapper>;
template struct MemberOffset<TPrefixPlace, &TOstelLogger::m_AppDataModel>;
template struct MemberOffset<TMessagePlace, &TOstelLogger::TExecutionTime::m_Message>;
template struct MemberOffset<TStartPlace, &TOstelLogger::TExecutionTime::m_Start>;
template struct MemberOffset<TEndPlace, &TOstelLogger::TExecutionTime::m_End>;

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

TEST(TOstelLogger, PassesOnWhatIsNoRuntimeError) {
    void* const prefix = reinterpret_cast<char*>(&Logger()) + OffsetOf(TPrefixPlace());
    std::string().swap(*static_cast<std::string*>(prefix));
    Allocations::FailOneAfter(0);
    EXPECT_THROW(Logger().Init(OSTEL_MANAGER), std::bad_alloc);
    EXPECT_THAT(RecordingLog::Calls(), IsEmpty());
    EXPECT_THAT(RecordingLog::Lines(), IsEmpty());
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
    Logger().OnDataModelParamChanged("Device.X_KAVEN_COM_Applications.Kta.Logging.Level", "6");
    EXPECT_EQ(Syncs(), 1);
}

TEST(TOstelLogger, NeverSyncsBeforeInitNorForAClientWithoutSubtree) {
    const std::string parameter = "Logging.Level";
    Logger().OnDataModelParamChanged(parameter, "6");
    for (const tOstelClientId id : {OSTEL_APP_SIMULATOR, OSTEL_LOGGING_MANAGER, OSTEL_REMOTE,
                                    OSTEL_SYNC, OSTEL_CLI, OSTEL_DATA_PROBER}) {
        Logger().Init(id);
        Logger().OnDataModelParamChanged(parameter, "6");
        Logger().OnDataModelParamChanged("Device.X_KAVEN_COM_Applications.Kta." + parameter, "6");
        EXPECT_EQ(Syncs(), 0) << id;
    }
}

// Kept: this client's prefix is a parameter's full name, and nothing puts a point behind it.
TEST(TOstelLogger, AddsNoPointToThePrefixOfTheLedControl) {
    Logger().Init(OSTEL_LED_CONTROL);
    Logger().OnDataModelParamChanged("Device.X_KAVEN_COM_General.LED.State.Logging.Level", "6");
    Logger().OnDataModelParamChanged("Device.X_KAVEN_COM_General.LED.State", "6");
    EXPECT_EQ(Syncs(), 0);
    Logger().OnDataModelParamChanged("Device.X_KAVEN_COM_General.LED.StateLogging.Level", "6");
    EXPECT_EQ(Syncs(), 1);
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

// By the wall clock, as the other times in the log: a clock that was set shows here, too.
TEST(TExecutionTime, LogsHowLongItsScopeTookByTheWallClock) {
    const struct {
        std::time_t seconds;
        long nanoseconds;
        const char* text;
    } ends[] = {{1000, 2500000, "2.500"},
                {1000, 0, "0.000"},
                {1000, 1499, "0.001"},
                {1061, 5, "61000.000"},
                {999, 0, "-1000.000"}};
    for (const auto& end : ends) {
        RecordingLog::Clear();
        FixedTime::StopAt(1000);
        {
            const TOstelLogger::TExecutionTime time("common/framework/X.cpp", 12, "Work");
            FixedTime::StopAt(end.seconds, end.nanoseconds);
        }
        FixedTime::GoOn();
        const auto lines = RecordingLog::Lines();
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_EQ(lines[0].level, 6);
        EXPECT_EQ(lines[0].format, "[common/framework/X.cpp:12][Work]: Execution time = %.3f ms");
        EXPECT_EQ(lines[0].text, "[common/framework/X.cpp:12][Work]: Execution time = " +
                                     std::string(end.text) + " ms");
    }
}

TEST(TExecutionTime, CutsItsPrefixAt511Characters) {
    { const TOstelLogger::TExecutionTime time(std::string(600, 'f').c_str(), 1, "Work"); }
    EXPECT_EQ(RecordingLog::Lines().at(0).format,
              "[" + std::string(510, 'f') + "Execution time = %.3f ms");
}

TEST(TExecutionTime, EndsTheProcessWhenItsEndFails) {
    EXPECT_EXIT(
        {
            const TOstelLogger::TExecutionTime time(std::string(600, 'f').c_str(), 1, "Work");
            Allocations::FailOneAfter(0);
        },
        testing::KilledBySignal(SIGABRT), "");
    EXPECT_THAT(RecordingLog::Lines(), IsEmpty());
}

TEST(TOstelLogger, HasItsNotificationBehindTheDestructors) {
    EXPECT_EQ(BinaryLayout::SlotOf(&TOstelLogger::OnDataModelParamChanged), 2U);
    EXPECT_EQ(BinaryLayout::SlotOf(&IOstelDataModelChangeObserver::OnDataModelParamChanged), 2U);
}

TEST(TOstelLogger, KeepsTheOrderOfItsMembers) {
    EXPECT_EQ(OffsetOf(TMapperPlace()), sizeof(void*));
    EXPECT_EQ(OffsetOf(TPrefixPlace()), 2 * sizeof(void*));
    EXPECT_EQ(sizeof(TOstelLogger), 2 * sizeof(void*) + sizeof(std::string));
}

TEST(TExecutionTime, KeepsTheOrderOfItsMembers) {
    EXPECT_EQ(OffsetOf(TMessagePlace()), 0U);
    EXPECT_EQ(OffsetOf(TStartPlace()), sizeof(std::string));
    EXPECT_EQ(OffsetOf(TEndPlace()), sizeof(std::string) + 8);
    EXPECT_EQ(sizeof(TOstelLogger::TExecutionTime), sizeof(std::string) + 16);
}

}  // namespace
