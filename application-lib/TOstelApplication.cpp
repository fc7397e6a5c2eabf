// The life of the application object, and single parameters. Arrays and objects are in
// TOstelApplicationObjects.cpp, events and observers in TOstelApplicationEvents.cpp.
#include "TOstelApplication.h"

#include <openssl/ssl.h>

#include <mutex>
#include <stdexcept>

#include "OstelDocuments.h"
#include "TOstelApplicationHandlers.h"
#include "TOstelDataMapper.h"
#include "TOstelLogger.h"

using OstelDocuments::Attempt;
using OstelDocuments::Decode;
using OstelDocuments::Encode;
using OstelDocuments::Put;

namespace {

const char* const DEFAULT_CERTIFICATE_DIRECTORY = "/usr/certs/";
const char* const IS_APP_ACTIVE = "IS_APP_ACTIVE";

}  // namespace

TOstelApplication* TOstelApplication::GetInstance() {
    static TOstelApplication instance;
    return &instance;
}

TOstelApplication::TOstelApplication()
    : m_Initialized(false),
      m_Logger(TOstelLogger::GetInstance()),
      m_CertificateDirectory(DEFAULT_CERTIFICATE_DIRECTORY),
      m_TlsContext(nullptr) {
    try {
        static TAppStateChangeHandler appStateChangeHandler(this);
        AddEventHandler(TOstelIpc::ON_APP_CONNECTED_EVENT, appStateChangeHandler);
        AddEventHandler(TOstelIpc::ON_APP_DISCONNECTED_EVENT, appStateChangeHandler);
        static TRemoteDataModelChangeHandler remoteDataModelChangeHandler(this);
        AddEventHandler("REMOTE_DATA_MODEL_CHANGED", remoteDataModelChangeHandler);
        m_Ipc->AddEventLstener(this, "");
    } catch (const std::runtime_error& error) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s", error.what());
    }
}

TOstelApplication::~TOstelApplication() {
    m_Ipc->RemoveEventLstener(this, "");
    // The IPC instance and its workers outlive this object. An initialisation that failed half-way
    // may have left the handler, too.
    m_Ipc->RemoveMethodHandler(IS_APP_ACTIVE);
    SSL_CTX_free(m_TlsContext);
}

void TOstelApplication::Initialize(tOstelClientId client) {
    // Two threads may come here with their first calls.
    static std::mutex mutex;
    const std::lock_guard<std::mutex> lock(mutex);
    if (m_Initialized) {
        return;
    }
    try {
        m_Logger->Init(client);
        AddDataModelChangeObserver(m_Logger);
        m_Ipc->Init(m_DataMapper->MapEnumToString(client));
        m_Ipc->SetMethodServerId("*", m_DataMapper->MapEnumToString(OSTEL_DISPATCHER));
        m_Ipc->AddMethodHandler(IS_APP_ACTIVE, this);
        m_Ipc->Run();
        m_Initialized = true;
    } catch (const std::runtime_error& error) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s", error.what());
    }
}

std::string TOstelApplication::GetVersion() {
    return OSTEL_VERSION;
}

int TOstelApplication::OnMethodCall(const std::string& method, const std::string&, std::string&) {
    return method == IS_APP_ACTIVE ? 0 : -1;
}

tOstelReturnCode TOstelApplication::Call(const std::string& type, const TOstelJsonObject& request,
                                         std::string& reply) {
    return static_cast<tOstelReturnCode>(m_Ipc->CallMethod(type, Encode(request), reply));
}

tOstelReturnCode TOstelApplication::Call(const std::string& type, const TOstelJsonObject& request) {
    std::string ignored;
    return Call(type, request, ignored);
}

tOstelReturnCode TOstelApplication::GetParam(const std::string& name,
                                             std::vector<TOstelAppParam>& params) {
    return Attempt([&] {
        TOstelJsonObject document;
        Put(document, "NAME", name);
        std::string reply;
        const tOstelReturnCode code = Call("GET_PARAM", document, reply);
        if (code == RC_SUCCESS) {
            Decode(document, reply);
            PopulateParamArray(document, params);
        }
        return code;
    });
}

tOstelReturnCode TOstelApplication::GetParam(const std::string& name, std::string& value) {
    std::vector<TOstelAppParam> params;
    const tOstelReturnCode code = GetParam(name, params);
    if (code == RC_SUCCESS && !params.empty()) {
        value = std::move(params.front().value);
    }
    return code;
}

tOstelReturnCode TOstelApplication::GetParam(const std::string& name, TOstelJsonObject& result) {
    return Attempt([&] {
        TOstelJsonObject document;
        Put(document, "NAME", name);
        std::string reply;
        const tOstelReturnCode code = Call("GET_PARAM", document, reply);
        if (code != RC_SUCCESS) {
            return code;
        }
        Decode(document, reply);
        // The document ends here, so the array can change hands instead of being copied.
        auto* const params = static_cast<json_t*>(
            document.GetJsonObject("PARAMS", TOstelJsonObject::WHOLE_PROPERTY));
        void* const array = json_is_array(params) ? json_incref(params) : result.NewJsonArray();
        if (array == nullptr || result.SetJsonObject("PARAMS", array) != 0) {
            throw std::runtime_error("The result cannot take the parameters");
        }
        return code;
    });
}

tOstelReturnCode TOstelApplication::SetParam(const std::string& name, const std::string& value,
                                             bool commit) {
    return Attempt([&] {
        TOstelJsonObject request;
        Put(request, "NAME", name);
        Put(request, "VALUE", value);
        Put(request, "COMMIT", json_boolean(commit));
        return Call("SET_PARAM", request);
    });
}

tOstelReturnCode TOstelApplication::Commit() {
    return Attempt([&] {
        // Alone among the requests, this one is answered in the platform's own codes.
        return static_cast<tOstelReturnCode>(
            TOstelDataMapper::MapRcPltToCmn(Call("COMMIT", TOstelJsonObject())));
    });
}

std::string TOstelApplication::GetUnitSerialNumber() {
    static std::mutex mutex;
    const std::lock_guard<std::mutex> lock(mutex);
    if (m_UnitSerialNumber.empty() &&
        GetParam("Device.DeviceInfo.SerialNumber", m_UnitSerialNumber) != RC_SUCCESS) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s could not fetch local Serial Number",
                      "GetUnitSerialNumber");
    }
    return m_UnitSerialNumber;
}
