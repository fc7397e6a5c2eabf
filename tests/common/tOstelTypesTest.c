/* The enumerations from C: this file compiles as C99, and the function is called by a C++ test. */
#include "tOstelTypes.h"

int SumOfTypes(void);

int SumOfTypes(void) {
    tOstelClientId client = OSTEL_DATA_PROBER;
    enum tOstelReturnCode code = RC_FAILURE;
    tOstelPltEventType event = EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT;
    tOstelAppEventType appEvent = APP_EVENT_TYPE_SOFTWARE_UPDATER_DONE;
    tOstelAppClientDeviceState state = CLIENT_DEVICE_BLOCKED_ATTEMPT;
    return (int)client + (int)code + (int)event + (int)appEvent + (int)state;
}
