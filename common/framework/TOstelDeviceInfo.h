#ifndef T_OSTEL_DEVICE_INFO_H
#define T_OSTEL_DEVICE_INFO_H

#include <map>
#include <mutex>
#include <string>

#include "OstelApi.h"

class TOstelApplication;

// Facts about the device, read from the data model through the process's application object, which
// must be initialised before. What cannot change while the device runs is read once and kept.
//
//     std::string serialNumber;
//     if (!TOstelDeviceInfo::GetInstance()->GetInfo(TOstelDeviceInfo::SERIAL_NUMBER, serialNumber))
//     {
//         return;  // the log tells why
//     }
//
// Process-wide; may be called from any thread. One caller is served at a time, so that a slow read
// holds up the others. The order of the members is part of the binary interface.
class OSTEL_API TOstelDeviceInfo {
public:
    enum TInfoItemType : int {
        ADDITIONAL_SOFTWARE_VERSION = 0,
        CM_ADDRESS = 1,
        DEVICE_CONDITION = 2,
        DEVICE_ID_PROP1_HASH = 3,
        SYSTEM_DEVICE_MODE = 4,  // as the system's state has it; see CONTROL_DEVICE_MODE
        FIRST_USE_DATE = 5,
        HARDWARE_VERSION = 6,
        MANAGED_DEVICE = 7,
        MANUFACTURER = 8,
        MODEL_NAME = 9,
        CONTROL_DEVICE_MODE = 10,  // as the control of the mode has it; see SYSTEM_DEVICE_MODE
        MANUFACTURER_OUI = 11,
        PERSISTENT_PATH = 12,
        PRODUCT_CLASS = 13,
        PROFILE_SYNCED = 14,
        SERIAL_NUMBER = 15,
        UPDATE_LAST_CHECK_TIME = 16,
        UPDATE_COMPLETION_PERCENTAGE = 17,
        UPDATE_STATUS = 18,
        UPDATE_URL = 19,
        UPDATE_VERSION = 20,
        SOFTWARE_VERSION = 21,
        TEMPORARY_PATH = 22,
        UP_TIME = 23,
        WAN_ADDRESS = 24,
        WAN_MAC = 25,
    };

    struct TInfoItemData {
        std::string path;
        std::string value;  // empty until it was read
        bool isVolatile = false;
    };

    static TOstelDeviceInfo* GetInstance();

    TOstelDeviceInfo(const TOstelDeviceInfo&) = delete;
    TOstelDeviceInfo& operator=(const TOstelDeviceInfo&) = delete;

    // False when the read failed, which is logged; `value` is untouched then.
    bool GetInfo(TInfoItemType item, std::string& value);
    // These fail for a text of another kind, too: OstelGenericUtils::StringToBoolean leaves `value`
    // alone then, StringToInteger stores what it could read.
    bool GetInfo(TInfoItemType item, bool& value);
    bool GetInfo(TInfoItemType item, int& value);

private:
    TOstelDeviceInfo();

    static std::map<TInfoItemType, TInfoItemData> mDataMap;  // guarded by m_Mutex

    TOstelApplication* m_Application;
    std::mutex m_Mutex;
};

#endif
