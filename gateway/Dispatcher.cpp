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

// What does not fit into a message of the bus would be lost on its way.
constexpr std::size_t LARGEST_REPLY = 32 * 1024 * 1024 - 8192;

}  // namespace

TDispatcher::TDispatcher(TDataModel& model, TStore& store, TSend send)
    : m_Model(model), m_Store(store), m_Send(std::move(send)) {}

const std::map<std::string, TDispatcher::TRequest>& TDispatcher::Requests() {
    static const std::map<std::string, TRequest> requests = {
        {"GET_PARAM", &TDispatcher::GetParam},
        {"SET_PARAM", &TDispatcher::SetParam},
        {"GET_PARAM_ARRAY", &TDispatcher::GetParamArray},
        {"SET_PARAM_ARRAY", &TDispatcher::SetParamArray},
        {"GET_LONG_PARAM", &TDispatcher::GetLongParam},
        {"SET_LONG_PARAM", &TDispatcher::SetParam},
        {"GET_OBJECT", &TDispatcher::GetObject},
        {"SET_OBJECT", &TDispatcher::SetObject},
        {"GET_OBJECT_INSTANCES", &TDispatcher::GetObjectInstances},
        {"GET_OBJECT_TREE", &TDispatcher::GetObjectTree},
        {"ADD_OBJECT_INSTANCE", &TDispatcher::AddObjectInstance},
        {"DELETE_OBJECT_INSTANCE", &TDispatcher::DeleteObjectInstance},
        {"GET_INDEX_MAP", &TDispatcher::GetIndexMap},
        {"COMMIT", &TDispatcher::Commit},
    };
    return requests;
}

void TDispatcher::Register(TOstelIpc& ipc) {
    for (const auto& request : Requests()) {
        ipc.AddMethodHandler(request.first, this);
    }
}

void TDispatcher::SetOnChange(TOnChange onChange) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_OnChange = std::move(onChange);
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
    if (reply.size() > LARGEST_REPLY) {
        reply = "{}";
        code = RC_BUFFER_OVERFLOW;
    }
    if (code == RC_BUFFER_OVERFLOW) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s: there is no room for %s", type.c_str(),
                      type == "ADD_OBJECT_INSTANCE" ? "another instance" : "the answer");
    }
    return code;
}

tOstelReturnCode TDispatcher::Commit(const TOstelJsonObject&, TOstelJsonObject&) {
    return static_cast<tOstelReturnCode>(CommitStaged() ? PLATFORM_SUCCESS : PLATFORM_FAILURE);
}

bool TDispatcher::CommitStaged() {
    try {
        m_Store.Save(m_Model.Changes());
    } catch (const std::runtime_error& error) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "The commit is not stored: %s", error.what());
        return false;
    }
    const TDataModel::TValues changes = m_Model.Commit();
    const std::string& event =
        TOstelDataMapper::GetInstance()->MapEnumToString(EVENT_TYPE_PARAM_CHANGED);
    for (const auto& [name, value] : changes) {
        TOstelJsonObject data;
        data.SetPropertyValue("DATA_MODEL_NAME", name);
        data.SetPropertyValue("DATA_MODEL_VALUE", value);
        m_Send(event, data.EncodeToString(-1));
        if (m_OnChange) {
            m_OnChange(name, value);
        }
    }
    return true;
}
