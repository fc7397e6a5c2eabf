#include "Dispatcher.h"

#include <stdexcept>
#include <utility>

#include "TOstelDataMapper.h"
#include "zt_logging.h"

namespace {

// COMMIT alone is answered in the platform's own codes, which applications map back.
constexpr int PLATFORM_SUCCESS = 0;
constexpr int PLATFORM_FAILURE = 1;
constexpr int PLATFORM_INVALID_ARGUMENT = 3;

bool HasText(const TOstelJsonObject& request, const std::string& name) {
    return request.GetPropertyType(name) == TOstelJsonObject::JSON_TYPE_STRING;
}

bool HasBool(const TOstelJsonObject& request, const std::string& name) {
    return request.GetPropertyType(name) == TOstelJsonObject::JSON_TYPE_BOOLEAN;
}

std::string Text(const TOstelJsonObject& request, const std::string& name) {
    return request.GetPropertyValue<std::string>(name, "");
}

void PutParams(TOstelJsonObject& reply, const TDataModel::TValues& values) {
    void* array = reply.NewJsonArray();
    for (const auto& [name, value] : values) {
        TOstelJsonObject param;
        param.SetPropertyValue("NAME", name);
        param.SetPropertyValue("VALUE", value);
        reply.AppendJsonArray(&array, param.ToJson(param));
    }
    reply.SetJsonObject("PARAMS", array);
}

}  // namespace

TDispatcher::TDispatcher(TDataModel& model, TStore& store, TSend send)
    : m_Model(model), m_Store(store), m_Send(std::move(send)) {}

const std::map<std::string, TDispatcher::TRequest>& TDispatcher::Requests() {
    static const std::map<std::string, TRequest> requests = {
        {"GET_PARAM", &TDispatcher::GetParam},
        {"SET_PARAM", &TDispatcher::SetParam},
        {"COMMIT", &TDispatcher::Commit},
    };
    return requests;
}

void TDispatcher::Register(TOstelIpc& ipc) {
    for (const auto& request : Requests()) {
        ipc.AddMethodHandler(request.first, this);
    }
}

int TDispatcher::OnMethodCall(const std::string& type, const std::string& request,
                              std::string& reply) {
    const auto found = Requests().find(type);
    if (found == Requests().end()) {
        return RC_NOT_SUPPORTED;
    }
    TOstelJsonObject requestDocument;
    TOstelJsonObject replyDocument;
    int code = type == "COMMIT" ? PLATFORM_INVALID_ARGUMENT : RC_INVALID_ARGUMENT;
    if (requestDocument.DecodeFromString(request)) {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        code = (this->*found->second)(requestDocument, replyDocument);
    }
    reply = replyDocument.EncodeToString(-1);
    return code;
}

tOstelReturnCode TDispatcher::GetParam(const TOstelJsonObject& request, TOstelJsonObject& reply) {
    if (!HasText(request, "NAME")) {
        return RC_INVALID_ARGUMENT;
    }
    TDataModel::TValues values;
    const tOstelReturnCode code = m_Model.Get(Text(request, "NAME"), values);
    PutParams(reply, values);
    return code;
}

tOstelReturnCode TDispatcher::SetParam(const TOstelJsonObject& request, TOstelJsonObject&) {
    if (!HasText(request, "NAME") || !HasText(request, "VALUE") || !HasBool(request, "COMMIT")) {
        return RC_INVALID_ARGUMENT;
    }
    const tOstelReturnCode code = m_Model.Set(Text(request, "NAME"), Text(request, "VALUE"));
    if (code != RC_SUCCESS || !request.GetPropertyValue("COMMIT", false)) {
        return code;
    }
    return CommitStaged() ? RC_SUCCESS : RC_FAILURE;
}

tOstelReturnCode TDispatcher::Commit(const TOstelJsonObject&, TOstelJsonObject&) {
    return static_cast<tOstelReturnCode>(CommitStaged() ? PLATFORM_SUCCESS : PLATFORM_FAILURE);
}

bool TDispatcher::CommitStaged() {
    const TDataModel::TValues changes = m_Model.Changes();
    try {
        m_Store.Save(changes);
    } catch (const std::runtime_error& error) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s", error.what());
        return false;
    }
    m_Model.Commit();
    const std::string& event =
        TOstelDataMapper::GetInstance()->MapEnumToString(EVENT_TYPE_PARAM_CHANGED);
    for (const auto& [name, value] : changes) {
        TOstelJsonObject data;
        data.SetPropertyValue("DATA_MODEL_NAME", name);
        data.SetPropertyValue("DATA_MODEL_VALUE", value);
        m_Send(event, data.EncodeToString(-1));
    }
    return true;
}
