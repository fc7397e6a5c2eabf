// Requests to another unit. They answer a null record with RC_FAILURE, unlike the local ones:
// requests to other units know no code but this and RC_SUCCESS.
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "TOstelApplication.h"
#include "ostelAppLib.h"
#include "ostelAppLibRecords.h"
#include "zt_logging.h"

using namespace ostel_app_lib;

namespace {

TOstelApplication& Application() {
    return *TOstelApplication::GetInstance();
}

tOstelReturnCode RefuseNull(const char* function) {
    ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s: the request is NULL", function);
    return RC_FAILURE;
}

}  // namespace

tOstelReturnCode ostelAppLibGetParamRemote(tOstelAppLibParamRequest* request) {
    if (request == nullptr) {
        return RefuseNull(__func__);
    }
    return Guarded([&] {
        TParams list;
        const tOstelReturnCode code =
            Application().GetParamRemote(Text(request->remote), Text(request->name), list);
        if (code != RC_SUCCESS) {
            return code;
        }
        // Not as for a local request: the single parameter's name comes too, and nothing at all is
        // no array. Callers tell the two apart by it.
        if (list.size() == 1) {
            SetText(request->name, list.front().name);
            SetText(request->value, list.front().value);
        } else if (list.size() > 1) {
            Refill(request->array, list);
            request->isArray = true;
        }
        return code;
    });
}

tOstelReturnCode ostelAppLibSetParamRemote(const tOstelAppLibParamRequest* request, bool commit) {
    if (request == nullptr) {
        return RefuseNull(__func__);
    }
    return Guarded([&] {
        return Application().SetParamRemote(Text(request->remote), Text(request->name),
                                            Text(request->value), commit);
    });
}

tOstelReturnCode ostelAppLibCommitRemote(const char* remote) {
    if (remote == nullptr) {
        return RefuseNull(__func__);
    }
    return Guarded([&] { return Application().CommitRemote(remote); });
}

tOstelReturnCode ostelAppLibGetFileRemote(tOstelAppLibLongParamRequest* request) {
    if (request == nullptr) {
        return RefuseNull(__func__);
    }
    return Guarded([&] {
        std::vector<char> bytes;
        const tOstelReturnCode code =
            Application().GetFileRemote(Text(request->remote), Text(request->name), bytes);
        if (code == RC_SUCCESS) {
            auto value = NewBuffer(bytes.size());
            std::copy(bytes.begin(), bytes.end(), value.get());
            Replace(request->value, request->size, std::move(value), bytes.size());
        }
        return code;
    });
}
