#include "TOstelDataMapper.h"

#include <iterator>
#include <string_view>

#include "OstelGenericUtils.h"

namespace {

template <typename T>
using TRow = std::pair<T, const char*>;

constexpr TRow<tOstelPltEventType> PLATFORM_EVENTS[] = {
    {EVENT_TYPE_CLIENT_CONNECTED, "EVENT_TYPE_CLIENT_CONNECTED"},
    {EVENT_TYPE_CLIENT_RECONNECTED, "EVENT_TYPE_CLIENT_RECONNECTED"},
    {EVENT_TYPE_CLIENT_DISCONNECTED, "EVENT_TYPE_CLIENT_DISCONNECTED"},
    {EVENT_TYPE_CLIENT_UNAUTH_ATTEMPT, "EVENT_TYPE_CLIENT_UNAUTH_ATTEMPT"},
    {EVENT_TYPE_CLIENT_BLOCKED_ATTEMPT, "EVENT_TYPE_CLIENT_BLOCKED_ATTEMPT"},
    {EVENT_TYPE_PARAM_CHANGED, "EVENT_TYPE_PARAM_CHANGED"},
    {EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT, "EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT"},
};

constexpr TRow<tOstelAppEventType> APPLICATION_EVENTS[] = {
    {APP_EVENT_TYPE_SOFTWARE_UPDATER_DONE, "APP_EVENT_TYPE_SOFTWARE_UPDATER_DONE"},
};

constexpr TRow<tOstelClientId> CLIENT_IDS[] = {
    {OSTEL_MANAGER, "OSTEL_MANAGER"},
    {OSTEL_KTA, "OSTEL_KTA"},
    {OSTEL_MVA, "OSTEL_MVA"},
    {OSTEL_SPEEDTEST, "OSTEL_SPEEDTEST"},
    {OSTEL_DISPATCHER, "OSTEL_DISPATCHER"},
    {OSTEL_APP_SIMULATOR, "OSTEL_APP_SIMULATOR"},
    {OSTEL_SOFTWARE_UPDATER, "OSTEL_SOFTWARE_UPDATER"},
    {OSTEL_QUR_AGENT, "OSTEL_QUR_AGENT"},
    {OSTEL_LOGGING_MANAGER, "OSTEL_LOGGING_MANAGER"},
    {OSTEL_TIRO, "OSTEL_TIRO"},
    {OSTEL_TOPOLOGY, "OSTEL_TOPOLOGY"},
    {OSTEL_REMOTE, "OSTEL_REMOTE"},
    {OSTEL_FENA, "OSTEL_FENA"},
    {OSTEL_SYNC, "OSTEL_SYNC"},
    {OSTEL_HEALTH_MONITOR, "OSTEL_HEALTH_MONITOR"},
    {OSTEL_CLI, "OSTEL_CLI"},
    {OSTEL_LED_CONTROL, "OSTEL_LED_CONTROL"},
    {OSTEL_DATA_PROBER, "OSTEL_DATA_PROBER"},
};

constexpr TRow<tOstelAppClientDeviceState> CLIENT_DEVICE_STATES[] = {
    {CLIENT_DEVICE_CONNECTED, "CLIENT_DEVICE_CONNECTED"},
    {CLIENT_DEVICE_RECONNECTED, "CLIENT_DEVICE_RECONNECTED"},
    {CLIENT_DEVICE_DISCONNECTED, "CLIENT_DEVICE_DISCONNECTED"},
    {CLIENT_DEVICE_UNAUTH_ATTEMPT, "CLIENT_DEVICE_UNAUTH_ATTEMPT"},
    {CLIENT_DEVICE_BLOCKED_ATTEMPT, "CLIENT_DEVICE_BLOCKED_ATTEMPT"},
};

constexpr TRow<tOstelReturnCode> RETURN_CODES[] = {
    {RC_SUCCESS, "RC_SUCCESS"},
    {RC_INVALID_ARGUMENT, "RC_INVALID_ARGUMENT"},
    {RC_BUFFER_OVERFLOW, "RC_BUFFER_OVERFLOW"},
    {RC_RUNTIME_ERROR, "RC_RUNTIME_ERROR"},
    {RC_INVALID_PARAM_NAME, "RC_INVALID_PARAM_NAME"},
    {RC_INVALID_PARAM_VALUE, "RC_INVALID_PARAM_VALUE"},
    {RC_NOT_FOUND, "RC_NOT_FOUND"},
    {RC_NOT_SUPPORTED, "RC_NOT_SUPPORTED"},
    {RC_FAILURE, "RC_FAILURE"},
};

// Irregular on purpose: the names and subtrees are older than the applications' present names,
// and log collectors and data models in the field go by them.
constexpr TRow<tOstelClientId> LOGGER_NAMES[] = {
    {OSTEL_MANAGER, "OSTELMGR"},
    {OSTEL_KTA, "KTA"},
    {OSTEL_MVA, "MVA"},
    {OSTEL_SPEEDTEST, "SPEEDTEST"},
    {OSTEL_DISPATCHER, "PLTSVC"},
    {OSTEL_APP_SIMULATOR, "APPSIM"},
    {OSTEL_SOFTWARE_UPDATER, "SWUPDATER"},
    {OSTEL_QUR_AGENT, "QRM"},
    {OSTEL_LOGGING_MANAGER, "LOGMGR"},
    {OSTEL_TIRO, "TIRO"},
    {OSTEL_TOPOLOGY, "TOPOLOGY"},
    {OSTEL_REMOTE, "OSTELRMT"},
    {OSTEL_FENA, "FENA"},
    {OSTEL_SYNC, "OSTELSYNC"},
    {OSTEL_HEALTH_MONITOR, "HEALTHMON"},
    {OSTEL_CLI, "OSTELCLI"},
    {OSTEL_LED_CONTROL, "LEDCONTROL"},
    {OSTEL_DATA_PROBER, "DATAPROBER"},
};

constexpr TRow<tOstelClientId> APP_DATA_MODELS[] = {
    {OSTEL_MANAGER, "Device.X_KAVEN_COM_Applications.OstelManager."},
    {OSTEL_KTA, "Device.X_KAVEN_COM_Applications.Kta."},
    {OSTEL_MVA, "Device.X_KAVEN_COM_Applications.Mva."},
    {OSTEL_SPEEDTEST, "Device.X_KAVEN_COM_Applications.SpeedTest."},
    {OSTEL_DISPATCHER, "Device.X_KAVEN_COM_Applications.PlatformService."},
    {OSTEL_APP_SIMULATOR, ""},
    {OSTEL_SOFTWARE_UPDATER, "Device.X_KAVEN_COM_Applications.SoftwareUpdater."},
    {OSTEL_QUR_AGENT, "Device.X_KAVEN_COM_Applications.CloudAgent."},
    {OSTEL_LOGGING_MANAGER, ""},
    {OSTEL_TIRO, "Device.X_KAVEN_COM_Applications.Tiro."},
    {OSTEL_TOPOLOGY, "Device.X_KAVEN_COM_Applications.Topology."},
    {OSTEL_REMOTE, ""},
    {OSTEL_FENA, "Device.X_KAVEN_COM_Applications.Fena."},
    {OSTEL_SYNC, ""},
    {OSTEL_HEALTH_MONITOR, "Device.X_KAVEN_COM_Applications.HealthMonitor."},
    {OSTEL_CLI, ""},
    // One parameter's full name, so without a point at its end.
    {OSTEL_LED_CONTROL, "Device.X_KAVEN_COM_General.LED.State"},
    {OSTEL_DATA_PROBER, ""},
};

std::string TypeName(const char* runtimeName) {
    // A leading '*' marks a type that is compared by address; it is not part of the name.
    return OstelGenericUtils::DemangleTypeName(*runtimeName == '*' ? runtimeName + 1 : runtimeName);
}

}  // namespace

TOstelDataMapper::TMappingException::~TMappingException() = default;

TOstelDataMapper::IEnumMapping::~IEnumMapping() = default;

TOstelDataMapper* TOstelDataMapper::GetInstance() {
    static TOstelDataMapper instance;
    return &instance;
}

TOstelDataMapper::TOstelDataMapper() {
    static TEnumMapping<tOstelPltEventType> platformEvents(PLATFORM_EVENTS);
    static TEnumMapping<tOstelAppEventType> applicationEvents(APPLICATION_EVENTS);
    static TEnumMapping<tOstelClientId> clientIds(CLIENT_IDS);
    static TEnumMapping<tOstelAppClientDeviceState> clientDeviceStates(CLIENT_DEVICE_STATES);
    static TEnumMapping<tOstelReturnCode> returnCodes(RETURN_CODES);
    static TEnumMapping<tOstelClientId> loggerNames(LOGGER_NAMES);
    static TEnumMapping<tOstelClientId> appDataModels(APP_DATA_MODELS);
    m_AppDataModels = &appDataModels;
    m_LoggerNames = &loggerNames;
    for (IEnumMapping* mapping : std::initializer_list<IEnumMapping*>{
             &platformEvents, &applicationEvents, &clientIds, &clientDeviceStates, &returnCodes}) {
        m_Registry[mapping->GetTypeName()] = mapping;
    }
}

TOstelDataMapper::~TOstelDataMapper() {
    m_Registry.clear();
}

const char* TOstelDataMapper::MapClientIdToLoggerName(tOstelClientId id) const {
    return m_LoggerNames->GetString(id).c_str();
}

const char* TOstelDataMapper::MapClientIdToAppDataModel(tOstelClientId id) const {
    return m_AppDataModels->GetString(id).c_str();
}

int TOstelDataMapper::MapRcPltToCmn(int platformCode) {
    static constexpr int commonCodes[] = {
        RC_SUCCESS,
        RC_FAILURE,
        RC_RUNTIME_ERROR,
        RC_INVALID_ARGUMENT,
        RC_BUFFER_OVERFLOW,
        RC_INVALID_PARAM_NAME,
        RC_INVALID_PARAM_VALUE,
        RC_NOT_FOUND,
        RC_NOT_SUPPORTED,
    };
    const auto index = static_cast<unsigned int>(platformCode);
    return index < std::size(commonCodes) ? commonCodes[index] : RC_FAILURE;
}

const TOstelDataMapper::IEnumMapping& TOstelDataMapper::FindMapping(const char* typeName) const {
    const auto found = m_Registry.find(std::string_view(typeName));
    if (found == m_Registry.end()) {
        throw TMappingException("[TOstelDataMapper] Can't find mapping for: " + TypeName(typeName));
    }
    if (found->second == nullptr) {
        throw TMappingException("[TOstelDataMapper] Found null pointer to the mapping object for " +
                                TypeName(typeName));
    }
    return *found->second;
}

void TOstelDataMapper::ThrowNoString(const char* typeName, int value) {
    throw TMappingException("[TOstelDataMapper] Can't find string for enum (" + TypeName(typeName) +
                            ") value: " + std::to_string(value));
}

void TOstelDataMapper::ThrowNoValue(const char* typeName, const std::string& text) {
    throw TMappingException("[TOstelDataMapper] Can't find enum (" + TypeName(typeName) +
                            ") value for string: " + text);
}
