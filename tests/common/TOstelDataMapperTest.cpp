#include "TOstelDataMapper.h"

#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

#include "Allocations.h"
#include "BinaryLayout.h"

enum tUnregistered { UNREGISTERED = 1, UNREGISTERED_TOO = 2 };

using TTable = TOstelDataMapper::TEnumMapping<tUnregistered>;
using TRegistry = std::map<std::string, TOstelDataMapper::IEnumMapping*, std::less<>>;

struct TRegistryPlace {
    friend std::size_t OffsetOf(TRegistryPlace);
};
struct TAppDataModelsPlace {
    friend std::size_t OffsetOf(TAppDataModelsPlace);
};
struct TLoggerNamesPlace {
    friend std::size_t OffsetOf(TLoggerNamesPlace);
};
struct TStringsPlace {
    friend std::size_t OffsetOf(TStringsPlace);
};
struct TValuesPlace {
    friend std::size_t OffsetOf(TValuesPlace);
};

template struct MemberOffset<TRegistryPlace, &TOstelDataMapper::m_Registry>;
template struct MemberOffset<TAppDataModelsPlace, &TOstelDataMapper::m_AppDataModels>;
template struct MemberOffset<TLoggerNamesPlace, &TOstelDataMapper::m_LoggerNames>;
template struct MemberOffset<TStringsPlace, &TTable::m_Strings>;
template struct MemberOffset<TValuesPlace, &TTable::m_Values>;

// Calls the mapper's own way to complain, which alone is given run-time names by others.
void ThrowNoString(const char* typeName, int value);

template <void (*Function)(const char*, int)>
struct TThrowNoString {
    friend void ThrowNoString(const char* typeName, int value) { Function(typeName, value); }
};

template struct TThrowNoString<&TOstelDataMapper::ThrowNoString>;

namespace {

TOstelDataMapper& Mapper() {
    return *TOstelDataMapper::GetInstance();
}

template <typename Call>
std::string MessageOf(Call call) {
    try {
        call();
    } catch (const TOstelDataMapper::TMappingException& error) {
        return error.what();
    }
    return "nothing was thrown";
}

template <typename T>
void ExpectNames(const std::vector<std::pair<int, std::string>>& rows) {
    for (const auto& [value, name] : rows) {
        EXPECT_EQ(Mapper().MapEnumToString(static_cast<T>(value)), name);
        EXPECT_EQ(static_cast<int>(Mapper().MapStringToEnum<T>(name)), value);
    }
}

TEST(TOstelDataMapper, NamesEveryPlatformEvent) {
    ExpectNames<tOstelPltEventType>({{0, "EVENT_TYPE_CLIENT_CONNECTED"},
                                     {1, "EVENT_TYPE_CLIENT_RECONNECTED"},
                                     {2, "EVENT_TYPE_CLIENT_DISCONNECTED"},
                                     {3, "EVENT_TYPE_CLIENT_UNAUTH_ATTEMPT"},
                                     {4, "EVENT_TYPE_CLIENT_BLOCKED_ATTEMPT"},
                                     {5, "EVENT_TYPE_PARAM_CHANGED"},
                                     {6, "EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT"}});
}

TEST(TOstelDataMapper, NamesEveryApplicationEvent) {
    ExpectNames<tOstelAppEventType>({{0, "APP_EVENT_TYPE_SOFTWARE_UPDATER_DONE"}});
}

TEST(TOstelDataMapper, NamesEveryClientDeviceState) {
    ExpectNames<tOstelAppClientDeviceState>({{0, "CLIENT_DEVICE_CONNECTED"},
                                             {1, "CLIENT_DEVICE_RECONNECTED"},
                                             {2, "CLIENT_DEVICE_DISCONNECTED"},
                                             {3, "CLIENT_DEVICE_UNAUTH_ATTEMPT"},
                                             {4, "CLIENT_DEVICE_BLOCKED_ATTEMPT"}});
}

TEST(TOstelDataMapper, NamesEveryReturnCode) {
    ExpectNames<tOstelReturnCode>({{0, "RC_SUCCESS"},
                                   {1, "RC_INVALID_ARGUMENT"},
                                   {2, "RC_BUFFER_OVERFLOW"},
                                   {3, "RC_RUNTIME_ERROR"},
                                   {4, "RC_INVALID_PARAM_NAME"},
                                   {5, "RC_INVALID_PARAM_VALUE"},
                                   {6, "RC_NOT_FOUND"},
                                   {7, "RC_NOT_SUPPORTED"},
                                   {-1, "RC_FAILURE"}});
}

struct TClient {
    const char* name;
    const char* loggerName;
    const char* dataModel;
};

const TClient CLIENTS[] = {
    {"OSTEL_MANAGER", "OSTELMGR", "Device.X_KAVEN_COM_Applications.OstelManager."},
    {"OSTEL_KTA", "KTA", "Device.X_KAVEN_COM_Applications.Kta."},
    {"OSTEL_MVA", "MVA", "Device.X_KAVEN_COM_Applications.Mva."},
    {"OSTEL_SPEEDTEST", "SPEEDTEST", "Device.X_KAVEN_COM_Applications.SpeedTest."},
    {"OSTEL_DISPATCHER", "PLTSVC", "Device.X_KAVEN_COM_Applications.PlatformService."},
    {"OSTEL_APP_SIMULATOR", "APPSIM", ""},
    {"OSTEL_SOFTWARE_UPDATER", "SWUPDATER", "Device.X_KAVEN_COM_Applications.SoftwareUpdater."},
    {"OSTEL_QUR_AGENT", "QRM", "Device.X_KAVEN_COM_Applications.CloudAgent."},
    {"OSTEL_LOGGING_MANAGER", "LOGMGR", ""},
    {"OSTEL_TIRO", "TIRO", "Device.X_KAVEN_COM_Applications.Tiro."},
    {"OSTEL_TOPOLOGY", "TOPOLOGY", "Device.X_KAVEN_COM_Applications.Topology."},
    {"OSTEL_REMOTE", "OSTELRMT", ""},
    {"OSTEL_FENA", "FENA", "Device.X_KAVEN_COM_Applications.Fena."},
    {"OSTEL_SYNC", "OSTELSYNC", ""},
    {"OSTEL_HEALTH_MONITOR", "HEALTHMON", "Device.X_KAVEN_COM_Applications.HealthMonitor."},
    {"OSTEL_CLI", "OSTELCLI", ""},
    {"OSTEL_LED_CONTROL", "LEDCONTROL", "Device.X_KAVEN_COM_General.LED.State"},
    {"OSTEL_DATA_PROBER", "DATAPROBER", ""},
};

TEST(TOstelDataMapper, KnowsEveryClient) {
    for (int id = 0; id < 18; ++id) {
        const auto client = static_cast<tOstelClientId>(id);
        EXPECT_EQ(Mapper().MapEnumToString(client), CLIENTS[id].name);
        EXPECT_EQ(Mapper().MapStringToEnum<tOstelClientId>(CLIENTS[id].name), client);
        EXPECT_STREQ(Mapper().MapClientIdToLoggerName(client), CLIENTS[id].loggerName);
        EXPECT_STREQ(Mapper().MapClientIdToAppDataModel(client), CLIENTS[id].dataModel);
    }
}

TEST(TOstelDataMapper, HandsOutTheSameTextEachTime) {
    EXPECT_EQ(&Mapper().MapEnumToString(RC_SUCCESS), &Mapper().MapEnumToString(RC_SUCCESS));
    EXPECT_EQ(Mapper().MapClientIdToLoggerName(OSTEL_KTA),
              Mapper().MapClientIdToLoggerName(OSTEL_KTA));
}

TEST(TOstelDataMapper, ThrowsForAnUnknownValue) {
    EXPECT_EQ(MessageOf([] { Mapper().MapEnumToString(static_cast<tOstelReturnCode>(8)); }),
              "[TOstelDataMapper] Can't find string for enum (tOstelReturnCode) value: 8");
    EXPECT_EQ(MessageOf([] { Mapper().MapEnumToString(static_cast<tOstelReturnCode>(-2)); }),
              "[TOstelDataMapper] Can't find string for enum (tOstelReturnCode) value: -2");
}

TEST(TOstelDataMapper, ThrowsForAnUnknownName) {
    EXPECT_EQ(
        MessageOf([] { Mapper().MapStringToEnum<tOstelPltEventType>("event_type_param_changed"); }),
        "[TOstelDataMapper] Can't find enum (tOstelPltEventType) value for string: "
        "event_type_param_changed");
    EXPECT_EQ(MessageOf([] { Mapper().MapStringToEnum<tOstelReturnCode>(""); }),
              "[TOstelDataMapper] Can't find enum (tOstelReturnCode) value for string: ");
}

TEST(TOstelDataMapper, ThrowsForAnUnknownClient) {
    const std::string text =
        "[TOstelDataMapper] Can't find string for enum (tOstelClientId) value: 18";
    EXPECT_EQ(MessageOf([] { Mapper().MapClientIdToLoggerName(static_cast<tOstelClientId>(18)); }),
              text);
    EXPECT_EQ(
        MessageOf([] { Mapper().MapClientIdToAppDataModel(static_cast<tOstelClientId>(18)); }),
        text);
}

TEST(TOstelDataMapper, ThrowsForAnUnregisteredEnumeration) {
    EXPECT_EQ(MessageOf([] { Mapper().MapEnumToString(UNREGISTERED); }),
              "[TOstelDataMapper] Can't find mapping for: tUnregistered");
    EXPECT_EQ(MessageOf([] { Mapper().MapStringToEnum<tUnregistered>("x"); }),
              "[TOstelDataMapper] Can't find mapping for: tUnregistered");
}

TEST(TOstelDataMapper, ThrowsForARegisteredNothing) {
    void* const place = reinterpret_cast<char*>(&Mapper()) + OffsetOf(TRegistryPlace());
    auto& registry = *static_cast<TRegistry*>(place);
    const auto entry = registry.emplace(typeid(tUnregistered).name(), nullptr).first;
    const std::string message = MessageOf([] { Mapper().MapEnumToString(UNREGISTERED); });
    registry.erase(entry);
    EXPECT_EQ(message,
              "[TOstelDataMapper] Found null pointer to the mapping object for tUnregistered");
}

TEST(TOstelDataMapper, LeavesTheMarkInFrontOfARuntimeNameOut) {
    EXPECT_EQ(MessageOf([] { ThrowNoString("*13tUnregistered", 3); }),
              "[TOstelDataMapper] Can't find string for enum (tUnregistered) value: 3");
}

TEST(TOstelDataMapper, LooksUpWithoutAllocating) {
    const std::string name = "EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT";
    const std::size_t before = Allocations::Count();
    Mapper().MapEnumToString(EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT);
    Mapper().MapStringToEnum<tOstelPltEventType>(name);
    Mapper().MapClientIdToLoggerName(OSTEL_MANAGER);
    Mapper().MapClientIdToAppDataModel(OSTEL_MANAGER);
    EXPECT_EQ(Allocations::Count(), before);
    const std::string counted(100, 'x');
    EXPECT_EQ(Allocations::Count(), before + 1);
}

TEST(TOstelDataMapper, ThrowsRuntimeErrors) {
    EXPECT_THROW(Mapper().MapStringToEnum<tOstelReturnCode>("x"), std::runtime_error);
}

TEST(TOstelDataMapper, TranslatesPlatformCodes) {
    const int common[] = {0, -1, 3, 1, 2, 4, 5, 6, 7};
    for (int code = 0; code <= 8; ++code) {
        EXPECT_EQ(TOstelDataMapper::MapRcPltToCmn(code), common[code]) << code;
    }
    for (const int code : {9, 10, -1, -5, 0x7FFFFFFF, -0x7FFFFFFF - 1}) {
        EXPECT_EQ(TOstelDataMapper::MapRcPltToCmn(code), -1) << code;
    }
}

TEST(TOstelDataMapper, KeepsTheFirstOfRepeatedKeys) {
    const TTable mapping{
        {UNREGISTERED, "first"}, {UNREGISTERED, "second"}, {UNREGISTERED_TOO, "first"}};
    EXPECT_EQ(mapping.GetString(UNREGISTERED), "first");
    EXPECT_EQ(mapping.GetString(UNREGISTERED_TOO), "first");
    EXPECT_EQ(mapping.GetValue("first"), UNREGISTERED);
    EXPECT_EQ(mapping.GetValue("second"), UNREGISTERED);
    EXPECT_EQ(mapping.GetTypeName(), typeid(tUnregistered).name());
}

TEST(TOstelDataMapper, IsOneForAllThreads) {
    std::vector<TOstelDataMapper*> seen(8);
    std::vector<std::thread> threads;
    for (auto& one : seen) {
        threads.emplace_back([&one] { one = TOstelDataMapper::GetInstance(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const TOstelDataMapper* one : seen) {
        EXPECT_EQ(one, TOstelDataMapper::GetInstance());
    }
}

TEST(TOstelDataMapper, HasItsTypeNameOperationBehindTheDestructors) {
    EXPECT_EQ(BinaryLayout::SlotOf(&TOstelDataMapper::IEnumMapping::GetTypeName), 2U);
}

TEST(TOstelDataMapper, KeepsTheOrderOfItsMembers) {
    constexpr std::size_t word = sizeof(void*);
    EXPECT_EQ(OffsetOf(TRegistryPlace()), word);
    EXPECT_EQ(OffsetOf(TAppDataModelsPlace()), word + sizeof(TRegistry));
    EXPECT_EQ(OffsetOf(TLoggerNamesPlace()), 2 * word + sizeof(TRegistry));
    EXPECT_EQ(sizeof(TOstelDataMapper), 3 * word + sizeof(TRegistry));
    EXPECT_EQ(OffsetOf(TStringsPlace()), word);
    EXPECT_EQ(OffsetOf(TValuesPlace()), word + sizeof(std::map<tUnregistered, std::string>));
}

#ifdef __i386__
static_assert(sizeof(TOstelDataMapper) == 36, "virtual table, registry and two tables");
#endif

}  // namespace
