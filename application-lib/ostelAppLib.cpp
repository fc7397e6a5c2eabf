// The records of the flat interface are converted to the application object's texts and lists and
// back here; everything else is the application object's work. Their memory is given and taken in
// ostelAppLibMemory.cpp.
#include "ostelAppLib.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>
#include <stdexcept>
#include <unordered_map>
#include <utility>

#include "IOstelCpeClientStateObserver.h"
#include "IOstelDataModelChangeObserver.h"
#include "IOstelObserver.h"
#include "OstelDocuments.h"
#include "TOstelApplication.h"
#include "TOstelDataMapper.h"
#include "TOstelIpc.h"
#include "TOstelJsonObject.h"
#include "TOstelLogger.h"
#include "ostelAppLibRecords.h"
#include "zt_logging.h"

using namespace ostel_app_lib;

namespace {

// Forwards the application object's notifications to the three callbacks. The mutex is recursive
// so that a callback may subscribe and unsubscribe.
class TNotifier : public IOstelCpeClientStateObserver,
                  public IOstelDataModelChangeObserver,
                  public IOstelObserver {
public:
    TNotifier()
        : m_DataMapper(TOstelDataMapper::GetInstance()),
          m_Ipc(getOstelIpcInstance()),
          m_Application(TOstelApplication::GetInstance()) {}
    TNotifier(const TNotifier&) = delete;
    TNotifier& operator=(const TNotifier&) = delete;

    TOstelApplication& Application() const { return *m_Application; }
    TOstelIpc& Ipc() const { return *m_Ipc; }

    void Register() {
        m_Application->AddObserver(this);
        m_Application->AddCpeClientStateObserver(this);
        m_Application->AddDataModelChangeObserver(this);
    }

    void Unregister() {
        m_Application->RemoveObserver(this);
        m_Application->RemoveCpeClientStateObserver(this);
        m_Application->RemoveDataModelChangeObserver(this);
    }

    void Subscribe(tOstelAppLibClientDeviceStateCallback clientDeviceState,
                   tOstelAppLibDataModelChangeCallback dataModelChange,
                   tOstelAppLibSoftwareUpdateCallback softwareUpdate) {
        const std::lock_guard<std::recursive_mutex> lock(m_Mutex);
        m_ClientDeviceState = clientDeviceState;
        m_DataModelChange = dataModelChange;
        m_SoftwareUpdate = softwareUpdate;
    }

    void OnCpeClientStateChanged(TOstelCpeClientState state, const std::string& macAddress,
                                 const std::string& hostName) override {
        const std::lock_guard<std::recursive_mutex> lock(m_Mutex);
        if (m_ClientDeviceState == nullptr || state > BLOCKED_ATTEMPT) {
            return;
        }
        m_ClientDeviceState(static_cast<tOstelAppClientDeviceState>(state), macAddress.c_str(),
                            hostName.c_str());
    }

    void OnDataModelParamChanged(const std::string& name, const std::string& value) override {
        const std::lock_guard<std::recursive_mutex> lock(m_Mutex);
        if (m_DataModelChange != nullptr) {
            m_DataModelChange(name.c_str(), value.c_str());
        }
    }

    void OnEvent(const std::string& name, const std::string& data) override {
        const std::lock_guard<std::recursive_mutex> lock(m_Mutex);
        if (m_SoftwareUpdate == nullptr ||
            name != m_DataMapper->MapEnumToString(EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT)) {
            return;
        }
        // Kept although the listener has taken the URL out of the event already: callers have
        // always been given what a second reading of that text yields, the empty text for a plain
        // URL, and ask the data model for the address.
        TOstelJsonObject document;
        document.DecodeFromString(data);
        m_SoftwareUpdate(document.GetPropertyValue<std::string>("URL", "").c_str());
    }

private:
    TOstelDataMapper* m_DataMapper;
    TOstelIpc* m_Ipc;
    TOstelApplication* m_Application;
    std::recursive_mutex m_Mutex;
    tOstelAppLibClientDeviceStateCallback m_ClientDeviceState = nullptr;
    tOstelAppLibDataModelChangeCallback m_DataModelChange = nullptr;
    tOstelAppLibSoftwareUpdateCallback m_SoftwareUpdate = nullptr;
};

// Built when the library is loaded, and with it the mapper, the IPC instance and the application
// object: they are there before any thread of the application can race for them. Never destroyed:
// the worker may still notify it while the process exits.
TNotifier& theNotifier = *new TNotifier;

// Ends the callbacks when the process exits. They are cleared, and the observers are left where
// they are: a callback that ends the process holds the lock under which they could be removed.
const struct TLastUnsubscription {
    ~TLastUnsubscription() { ostelAppLibUnsubscribe(); }
} lastUnsubscription;

// A message of the bus has at most 128 MiB, and an element takes 12 bytes and more of it. A greater
// count is no count, and there is no array of that size to read.
constexpr std::uint32_t MOST_PARAMS = (128U << 20) / 12;

TParams ToList(const tOstelAppLibParamArray& array) {
    if (array.count > MOST_PARAMS) {
        throw std::length_error("No message holds " + std::to_string(array.count) + " parameters");
    }
    TParams list(array.count);
    for (std::size_t i = 0; i < list.size(); ++i) {
        list[i].name = Text(array.params[i].name);
        list[i].value = Text(array.params[i].value);
    }
    return list;
}

using TPairs = std::vector<std::pair<int, int>>;

void TakePairs(tOstelAppLibIndexMap& map, const TPairs& pairs) {
    auto taken = NewArray<tOstelAppLibIndexPair>(pairs.size());
    std::transform(pairs.begin(), pairs.end(), taken.get(), [](const std::pair<int, int>& pair) {
        return tOstelAppLibIndexPair{pair.first, pair.second};
    });
    map.pairs = taken.release();
    map.count = static_cast<std::uint32_t>(pairs.size());
}

tOstelAppLibIndexMapRequest ToRecord(const std::unordered_map<std::string, TPairs>& maps) {
    tOstelAppLibIndexMapRequest record{NewArray<tOstelAppLibIndexMap>(maps.size()).release(), 0};
    try {
        for (const auto& [name, pairs] : maps) {
            TakePairs(record.maps[record.count], pairs);
            SetText(record.maps[record.count++].name, name);
        }
    } catch (const std::bad_alloc&) {
        ostelAppLibReleaseIndexMapRequest(&record);
        throw;
    }
    return record;
}

// A value may fill its buffer to the last byte, as a file does; an application that points at a
// text of its own may leave the size at 0.
std::string LongText(const tOstelAppLibLongParamRequest& request) {
    if (request.size == 0) {
        return request.value;
    }
    const std::size_t length = strnlen(request.value, request.size);
    if (length == request.size) {
        ztLogging_log(ZT_LOG_LEVEL_WARNING, "ostelAppLibSetLongParam: %u bytes without a NUL",
                      static_cast<unsigned int>(request.size));
    }
    return {request.value, length};
}

}  // namespace

tOstelReturnCode ostelAppLibInit(tOstelClientId clientId) {
    return Guarded([&] {
        theNotifier.Register();
        theNotifier.Application().Initialize(clientId);
        return theNotifier.Application().IsInitialized() ? RC_SUCCESS : RC_RUNTIME_ERROR;
    });
}

tOstelReturnCode ostelAppLibTerm(void) {
    return Guarded([] {
        theNotifier.Unregister();
        return RC_SUCCESS;
    });
}

void ostelAppLibSubscribe(tOstelAppLibClientDeviceStateCallback clientDeviceState,
                          tOstelAppLibDataModelChangeCallback dataModelChange,
                          tOstelAppLibSoftwareUpdateCallback softwareUpdate) {
    theNotifier.Subscribe(clientDeviceState, dataModelChange, softwareUpdate);
}

void ostelAppLibUnsubscribe(void) {
    theNotifier.Subscribe(nullptr, nullptr, nullptr);
}

void ostelAppLibSetLogLevelError(void) {
    TOstelLogger::SetLevelError();
}
void ostelAppLibSetLogLevelNotice(void) {
    TOstelLogger::SetLevelNotice();
}
void ostelAppLibSetLogLevelDebug(void) {
    TOstelLogger::SetLevelDebug();
}

tOstelReturnCode ostelAppLibCommit(void) {
    return Guarded([] { return theNotifier.Application().Commit(); });
}

tOstelReturnCode ostelAppLibSetParam(const tOstelAppLibParam* param, bool commit) {
    if (param == nullptr) {
        return RC_INVALID_ARGUMENT;
    }
    return Guarded([&] {
        return theNotifier.Application().SetParam(Text(param->name), Text(param->value), commit);
    });
}

tOstelReturnCode ostelAppLibGetParam(tOstelAppLibParamRequest* request) {
    if (request == nullptr) {
        return RC_INVALID_ARGUMENT;
    }
    return Guarded([&] {
        TParams list;
        const tOstelReturnCode code = theNotifier.Application().GetParam(Text(request->name), list);
        if (code != RC_SUCCESS) {
            return code;
        }
        if (list.size() == 1) {
            SetText(request->value, list.front().value);
            return code;
        }
        Refill(request->array, list);
        request->isArray = true;
        return code;
    });
}

tOstelReturnCode ostelAppLibGetParamArray(tOstelAppLibParamArray* array) {
    if (array == nullptr || array->params == nullptr) {
        return RC_INVALID_ARGUMENT;
    }
    return Guarded([&] {
        TParams list = ToList(*array);
        const tOstelReturnCode code = theNotifier.Application().GetParamArray(list);
        if (code == RC_SUCCESS) {
            Refill(*array, list);
        }
        return code;
    });
}

tOstelReturnCode ostelAppLibSetParamArray(const tOstelAppLibParamArray* array, bool commit) {
    if (array == nullptr || array->params == nullptr) {
        return RC_INVALID_ARGUMENT;
    }
    return Guarded([&] { return theNotifier.Application().SetParamArray(ToList(*array), commit); });
}

tOstelReturnCode ostelAppLibGetObject(tOstelAppLibObjectRequest* request) {
    if (request == nullptr || request->params.params == nullptr) {
        return RC_INVALID_ARGUMENT;
    }
    return Guarded([&] {
        TParams list = ToList(request->params);
        const tOstelReturnCode code =
            theNotifier.Application().GetObject(Text(request->name), list);
        if (code == RC_SUCCESS) {
            Refill(request->params, list);
        }
        return code;
    });
}

tOstelReturnCode ostelAppLibSetObject(const tOstelAppLibObjectRequest* request, bool commit) {
    if (request == nullptr || request->params.params == nullptr) {
        return RC_INVALID_ARGUMENT;
    }
    return Guarded([&] {
        return theNotifier.Application().SetObject(Text(request->name), ToList(request->params),
                                                   commit);
    });
}

tOstelReturnCode ostelAppLibAddObjectInstance(const char* object, uint32_t* instance) {
    if (object == nullptr || instance == nullptr) {
        return RC_INVALID_ARGUMENT;
    }
    return Guarded([&] {
        int id = static_cast<int>(*instance);
        const tOstelReturnCode code = theNotifier.Application().AddObject(object, id);
        *instance = static_cast<uint32_t>(id);
        return code;
    });
}

tOstelReturnCode ostelAppLibDelObjectInstance(const char* instance) {
    if (instance == nullptr) {
        return RC_INVALID_ARGUMENT;
    }
    return Guarded([&] { return theNotifier.Application().RemoveObject(instance); });
}

tOstelReturnCode ostelAppLibGetObjectIds(tOstelAppLibObjectIdsRequest* request) {
    if (request == nullptr) {
        return RC_INVALID_ARGUMENT;
    }
    return Guarded([&] {
        std::vector<int> ids;
        const tOstelReturnCode code =
            theNotifier.Application().GetObjectIds(Text(request->name), ids);
        if (code == RC_SUCCESS) {
            auto copy = NewArray<std::int32_t>(ids.size());
            std::copy(ids.begin(), ids.end(), copy.get());
            Replace(request->ids, request->count, std::move(copy), ids.size());
        }
        return code;
    });
}

tOstelReturnCode ostelAppLibGetIndexMapping(tOstelAppLibIndexMapRequest* request) {
    if (request == nullptr) {
        return RC_INVALID_ARGUMENT;
    }
    return Guarded([&] {
        std::unordered_map<std::string, TPairs> maps;
        const tOstelReturnCode code = theNotifier.Application().GetIndexMap(maps);
        if (code == RC_SUCCESS) {
            // What was there is the caller's: after its release it must not be looked at.
            *request = ToRecord(maps);
        }
        return code;
    });
}

void ostelAppLibSendEvent(const char* name, const char* data) {
    if (name == nullptr || data == nullptr) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s: the event name or data is NULL", __func__);
        return;
    }
    Guarded([&] {
        theNotifier.Application().SendEvent(name, data);
        return RC_SUCCESS;
    });
}

tOstelReturnCode ostelAppLibGetLongParam(tOstelAppLibLongParamRequest* request) {
    if (request == nullptr) {
        return RC_INVALID_ARGUMENT;
    }
    return Guarded([&] {
        TOstelJsonObject document;
        OstelDocuments::Put(document, "NAME", Text(request->name));
        std::string reply;
        const int code =
            theNotifier.Ipc().CallMethod("GET_LONG_PARAM", OstelDocuments::Encode(document), reply);
        if (code != RC_SUCCESS) {
            return static_cast<tOstelReturnCode>(code);
        }
        OstelDocuments::Decode(document, reply);
        // Borrowed from the document: values may have many megabytes.
        const char* const text = document.GetPropertyValue<const char*>("VALUE", "");
        const std::size_t size = std::strlen(text) + 1;
        auto value = NewArray<char>(size);
        std::memcpy(value.get(), text, size);
        // Not released: callers have released, or keep, what was there.
        request->value = value.release();
        request->size = static_cast<std::uint32_t>(size);
        return RC_SUCCESS;
    });
}

tOstelReturnCode ostelAppLibSetLongParam(const tOstelAppLibLongParamRequest* request, bool commit) {
    if (request == nullptr || request->value == nullptr) {
        return RC_INVALID_ARGUMENT;
    }
    return Guarded([&] {
        TOstelJsonObject document;
        OstelDocuments::Put(document, "NAME", Text(request->name));
        OstelDocuments::Put(document, "VALUE", LongText(*request));
        OstelDocuments::Put(document, "COMMIT", json_boolean(commit));
        std::string reply;
        return static_cast<tOstelReturnCode>(theNotifier.Ipc().CallMethod(
            "SET_LONG_PARAM", OstelDocuments::Encode(document), reply));
    });
}
