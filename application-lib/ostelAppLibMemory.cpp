// The memory behind the records of the flat interface: each array or buffer is allocated and
// released by this library, which may have another allocator than its caller.
#include "ostelAppLib.h"
#include "ostelAppLibRecords.h"

using namespace ostel_app_lib;

void ostelAppLibAllocateParamArray(tOstelAppLibParamArray* array, uint32_t count) {
    if (array != nullptr) {
        Allocate(array->params, array->count, count);
    }
}

void ostelAppLibReleaseParamArray(tOstelAppLibParamArray* array) {
    if (array != nullptr) {
        Release(array->params, array->count);
    }
}

void ostelAppLibAllocateParamArrayRequest(tOstelAppLibParamArray* array, uint32_t count) {
    ostelAppLibAllocateParamArray(array, count);
}

void ostelAppLibReleaseParamArrayRequest(tOstelAppLibParamArray* array) {
    ostelAppLibReleaseParamArray(array);
}

void ostelAppLibReleaseParamRequest(tOstelAppLibParamRequest* request) {
    if (request != nullptr) {
        ostelAppLibReleaseParamArray(&request->array);
        request->isArray = false;
    }
}

void ostelAppLibAllocateLongParamRequest(tOstelAppLibLongParamRequest* request, uint32_t size) {
    if (request != nullptr) {
        Allocate(request->value, request->size, size, NewBuffer);
    }
}

void ostelAppLibReleaseLongParamRequest(tOstelAppLibLongParamRequest* request) {
    if (request != nullptr) {
        Release(request->value, request->size);
    }
}

void ostelAppLibReleaseLongParamRemote(tOstelAppLibLongParamRequest* request) {
    ostelAppLibReleaseLongParamRequest(request);
}

void ostelAppLibAllocateObjectRequest(tOstelAppLibObjectRequest* request, uint32_t count) {
    if (request != nullptr) {
        ostelAppLibAllocateParamArray(&request->params, count);
    }
}

void ostelAppLibReleaseObjectRequest(tOstelAppLibObjectRequest* request) {
    if (request != nullptr) {
        ostelAppLibReleaseParamArray(&request->params);
    }
}

void ostelAppLibAllocateObjectIdsRequest(tOstelAppLibObjectIdsRequest* request, uint32_t count) {
    if (request != nullptr) {
        Allocate(request->ids, request->count, count);
    }
}

void ostelAppLibReleaseObjectIdsRequest(tOstelAppLibObjectIdsRequest* request) {
    if (request != nullptr) {
        Release(request->ids, request->count);
    }
}

void ostelAppLibReleaseIndexMapRequest(tOstelAppLibIndexMapRequest* request) {
    if (request == nullptr || request->maps == nullptr) {
        return;
    }
    for (std::uint32_t i = 0; i < request->count; ++i) {
        delete[] request->maps[i].pairs;
    }
    delete[] request->maps;
}
