/* The same library from C99: reads a port mapping's table, adds an entry to it, and takes the entry
 * away again. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "ostelAppLib.h"

#define TABLE "Device.NAT.PortMapping."

static int Fail(const char* what, tOstelReturnCode code) {
    fprintf(stderr, "%s: code %d\n", what, (int)code);
    return EXIT_FAILURE;
}

static tOstelReturnCode PrintInstances(void) {
    tOstelAppLibObjectIdsRequest request = {TABLE, NULL, 0}; /* records start zeroed */
    tOstelReturnCode code = ostelAppLibGetObjectIds(&request);
    uint32_t i;
    printf("%s has", TABLE);
    for (i = 0; code == RC_SUCCESS && i < request.count; ++i) {
        printf(" %d", (int)request.ids[i]);
    }
    printf("\n");
    ostelAppLibReleaseObjectIdsRequest(&request);
    return code;
}

static tOstelReturnCode Describe(const char* instance, const char* description) {
    tOstelAppLibParam param;
    memset(&param, 0, sizeof param);
    snprintf(param.name, sizeof param.name, "%sDescription", instance);
    snprintf(param.value, sizeof param.value, "%s", description);
    return ostelAppLibSetParam(&param, true); /* commits what was staged, the new instance too */
}

int main(void) {
    char instance[64];
    uint32_t id = 0;
    tOstelReturnCode code = ostelAppLibInit(OSTEL_APP_SIMULATOR);
    if (code != RC_SUCCESS) {
        return Fail("no bus", code);
    }
    code = ostelAppLibAddObjectInstance(TABLE, &id);
    if (code != RC_SUCCESS) {
        return Fail(TABLE, code);
    }
    snprintf(instance, sizeof instance, TABLE "%u.", (unsigned)id);
    code = Describe(instance, "made by flat_client");
    if (code == RC_SUCCESS) {
        code = PrintInstances();
    }
    if (code == RC_SUCCESS) {
        code = ostelAppLibDelObjectInstance(instance);
    }
    if (code == RC_SUCCESS) {
        code = ostelAppLibCommit();
    }
    if (code == RC_SUCCESS) {
        code = PrintInstances();
    }
    ostelAppLibTerm();
    return code == RC_SUCCESS ? EXIT_SUCCESS : Fail(instance, code);
}
