#include "TOstelDeviceInfo.h"

#include "OstelGenericUtils.h"
#include "TOstelApplication.h"
#include "zt_logging.h"

namespace {

struct TItem {
    const char* path;
    TOstelDeviceInfo::TInfoItemType item;
    bool isVolatile;
};

constexpr TItem ITEMS[] = {
    {"Device.DeviceInfo.AdditionalSoftwareVersion", TOstelDeviceInfo::ADDITIONAL_SOFTWARE_VERSION,
     false},
    {"Device.DeviceInfo.X_KAVEN_COM_CMAddress", TOstelDeviceInfo::CM_ADDRESS, true},
    {"Device.DeviceInfo.X_KAVEN_COM_DeviceCondition", TOstelDeviceInfo::DEVICE_CONDITION, true},
    {"Device.DeviceInfo.X_KAVEN_COM_DeviceIdProp1Hash", TOstelDeviceInfo::DEVICE_ID_PROP1_HASH,
     false},
    {"Device.X_KAVEN_COM_General.SystemState.DeviceMode", TOstelDeviceInfo::SYSTEM_DEVICE_MODE,
     false},
    {"Device.DeviceInfo.FirstUseDate", TOstelDeviceInfo::FIRST_USE_DATE, false},
    {"Device.DeviceInfo.HardwareVersion", TOstelDeviceInfo::HARDWARE_VERSION, false},
    {"Device.DeviceInfo.X_KAVEN_COM_ManagedDevice", TOstelDeviceInfo::MANAGED_DEVICE, false},
    {"Device.DeviceInfo.Manufacturer", TOstelDeviceInfo::MANUFACTURER, false},
    {"Device.DeviceInfo.ModelName", TOstelDeviceInfo::MODEL_NAME, false},
    {"Device.X_KAVEN_COM_General.DeviceMode_Control.DeviceMode",
     TOstelDeviceInfo::CONTROL_DEVICE_MODE, false},
    {"Device.DeviceInfo.ManufacturerOUI", TOstelDeviceInfo::MANUFACTURER_OUI, false},
    {"Device.X_KAVEN_COM_General.Storage.PersistentPath", TOstelDeviceInfo::PERSISTENT_PATH, false},
    {"Device.DeviceInfo.ProductClass", TOstelDeviceInfo::PRODUCT_CLASS, false},
    {"Device.X_KAVEN_COM_General.SystemState.ProfileSynced", TOstelDeviceInfo::PROFILE_SYNCED,
     true},
    {"Device.DeviceInfo.SerialNumber", TOstelDeviceInfo::SERIAL_NUMBER, false},
    {"Device.X_KAVEN_COM_General.SoftwareUpdate.UpdateLastCheckTime",
     TOstelDeviceInfo::UPDATE_LAST_CHECK_TIME, true},
    {"Device.X_KAVEN_COM_General.SoftwareUpdate.UpdateCompletionPercentage",
     TOstelDeviceInfo::UPDATE_COMPLETION_PERCENTAGE, true},
    {"Device.X_KAVEN_COM_General.SoftwareUpdate.UpdateStatus", TOstelDeviceInfo::UPDATE_STATUS,
     true},
    {"Device.X_KAVEN_COM_General.SoftwareUpdate.UpdateURL", TOstelDeviceInfo::UPDATE_URL, true},
    {"Device.X_KAVEN_COM_General.SoftwareUpdate.UpdateVersion", TOstelDeviceInfo::UPDATE_VERSION,
     true},
    {"Device.DeviceInfo.SoftwareVersion", TOstelDeviceInfo::SOFTWARE_VERSION, false},
    {"Device.X_KAVEN_COM_General.Storage.TemporaryPath", TOstelDeviceInfo::TEMPORARY_PATH, false},
    {"Device.DeviceInfo.UpTime", TOstelDeviceInfo::UP_TIME, true},
    {"Device.DeviceInfo.X_KAVEN_COM_WANAddress", TOstelDeviceInfo::WAN_ADDRESS, true},
    {"Device.DeviceInfo.X_KAVEN_COM_WANMAC", TOstelDeviceInfo::WAN_MAC, false},
};

}  // namespace

std::map<TOstelDeviceInfo::TInfoItemType, TOstelDeviceInfo::TInfoItemData>
    TOstelDeviceInfo::mDataMap = [] {
        decltype(mDataMap) data;
        for (const TItem& item : ITEMS) {
            data[item.item] = {item.path, "", item.isVolatile};
        }
        return data;
    }();

TOstelDeviceInfo* TOstelDeviceInfo::GetInstance() {
    static TOstelDeviceInfo instance;
    return &instance;
}

TOstelDeviceInfo::TOstelDeviceInfo() : m_Application(TOstelApplication::GetInstance()) {}

bool TOstelDeviceInfo::GetInfo(TInfoItemType item, std::string& value) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    TInfoItemData& data = mDataMap[item];
    if (data.value.empty() || data.isVolatile) {
        if (m_Application->GetParam(data.path, data.value) != RC_SUCCESS) {
            // Not this class's name: it is the tag that readers of the log search for.
            ztLogging_log(ZT_LOG_LEVEL_ERROR, "[TOstelPlatformInfo] Can't get info item (%s).",
                          data.path.c_str());
            return false;
        }
    }
    value = data.value;
    return true;
}

bool TOstelDeviceInfo::GetInfo(TInfoItemType item, bool& value) {
    std::string text;
    return GetInfo(item, text) && OstelGenericUtils::StringToBoolean(text, value);
}

bool TOstelDeviceInfo::GetInfo(TInfoItemType item, int& value) {
    std::string text;
    return GetInfo(item, text) && OstelGenericUtils::StringToInteger(text, value);
}
