/* The flat interface from C99: records, callbacks and functions as a C application uses them. */
#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include "ostelAppLib.h"

int RunFlatClient(void (*tellOfAChange)(void), char* report, size_t size);

static char lastChange[600];

static void OnChange(const char* name, const char* value) {
    snprintf(lastChange, sizeof lastChange, "%s=%s", name, value);
}

int RunFlatClient(void (*tellOfAChange)(void), char* report, size_t size) {
    tOstelAppLibParamRequest request;
    tOstelAppLibParam param;
    memset(&request, 0, sizeof request);
    memset(&param, 0, sizeof param);
    if (ostelAppLibInit(OSTEL_KTA) != RC_SUCCESS) {
        return 1;
    }
    ostelAppLibSubscribe(NULL, OnChange, NULL);
    tellOfAChange();
    strcpy(request.name, "Device.One");
    if (ostelAppLibGetParam(&request) != RC_SUCCESS) {
        return 2;
    }
    strcpy(param.name, "Device.One");
    strcpy(param.value, "2");
    if (ostelAppLibSetParam(&param, true) != RC_SUCCESS) {
        return 3;
    }
    snprintf(report, size, "%s, %s", request.value, lastChange);
    ostelAppLibReleaseParamRequest(&request);
    ostelAppLibUnsubscribe();
    return ostelAppLibTerm() == RC_SUCCESS ? 0 : 4;
}
