// The smallest application: it starts and reads one parameter.
#include <string>

#include "DirtyMemory.h"
#include "TOstelApplication.h"

int main() {
    TOstelApplication& application = *TOstelApplication::GetInstance();
    application.Initialize(OSTEL_APP_SIMULATOR);
    std::string value;
    if (application.GetParam("Device.DeviceInfo.SerialNumber", value) != RC_SUCCESS ||
        value.empty()) {
        return 1;
    }
    ReportDirtyMemoryAndWait();
}
