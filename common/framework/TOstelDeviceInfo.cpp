#include "TOstelDeviceInfo.h"

#include "OstelGenericUtils.h"
#include "TOstelApplication.h"
#include "zt_logging.h"

std::map<TOstelDeviceInfo::TInfoItemType, TOstelDeviceInfo::TInfoItemData>
    TOstelDeviceInfo::mDataMap = {
        {ADDITIONAL_SOFTWARE_VERSION, {"Device.DeviceInfo.AdditionalSoftwareVersion", "", false}},
        {CM_ADDRESS, {"Device.DeviceInfo.X_KAVEN_COM_CMAddress", "", true}},
        {DEVICE_CONDITION, {"Device.DeviceInfo.X_KAVEN_COM_DeviceCondition", "", true}},
        {DEVICE_ID_PROP1_HASH, {"Device.DeviceInfo.X_KAVEN_COM_DeviceIdProp1Hash", "", false}},
        {SYSTEM_DEVICE_MODE, {"Device.X_KAVEN_COM_General.SystemState.DeviceMode", "", false}},
        {FIRST_USE_DATE, {"Device.DeviceInfo.FirstUseDate", "", false}},
        {HARDWARE_VERSION, {"Device.DeviceInfo.HardwareVersion", "", false}},
        {MANAGED_DEVICE, {"Device.DeviceInfo.X_KAVEN_COM_ManagedDevice", "", false}},
        {MANUFACTURER, {"Device.DeviceInfo.Manufacturer", "", false}},
        {MODEL_NAME, {"Device.DeviceInfo.ModelName", "", false}},
        {CONTROL_DEVICE_MODE,
         {"Device.X_KAVEN_COM_General.DeviceMode_Control.DeviceMode", "", false}},
        {MANUFACTURER_OUI, {"Device.DeviceInfo.ManufacturerOUI", "", false}},
        {PERSISTENT_PATH, {"Device.X_KAVEN_COM_General.Storage.PersistentPath", "", false}},
        {PRODUCT_CLASS, {"Device.DeviceInfo.ProductClass", "", false}},
        {PROFILE_SYNCED, {"Device.X_KAVEN_COM_General.SystemState.ProfileSynced", "", true}},
        {SERIAL_NUMBER, {"Device.DeviceInfo.SerialNumber", "", false}},
        {UPDATE_LAST_CHECK_TIME,
         {"Device.X_KAVEN_COM_General.SoftwareUpdate.UpdateLastCheckTime", "", true}},
        {UPDATE_COMPLETION_PERCENTAGE,
         {"Device.X_KAVEN_COM_General.SoftwareUpdate.UpdateCompletionPercentage", "", true}},
        {UPDATE_STATUS, {"Device.X_KAVEN_COM_General.SoftwareUpdate.UpdateStatus", "", true}},
        {UPDATE_URL, {"Device.X_KAVEN_COM_General.SoftwareUpdate.UpdateURL", "", true}},
        {UPDATE_VERSION, {"Device.X_KAVEN_COM_General.SoftwareUpdate.UpdateVersion", "", true}},
        {SOFTWARE_VERSION, {"Device.DeviceInfo.SoftwareVersion", "", false}},
        {TEMPORARY_PATH, {"Device.X_KAVEN_COM_General.Storage.TemporaryPath", "", false}},
        {UP_TIME, {"Device.DeviceInfo.UpTime", "", true}},
        {WAN_ADDRESS, {"Device.DeviceInfo.X_KAVEN_COM_WANAddress", "", true}},
        {WAN_MAC, {"Device.DeviceInfo.X_KAVEN_COM_WANMAC", "", false}},
};

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
