// The requests on whole objects, on instances and their numbers.
#include "Dispatcher.h"
#include "RequestFields.h"

namespace {

// A name may be given relative to the object, or in full.
std::string Below(const std::string& root, const std::string& name) {
    return name.compare(0, root.size(), root) == 0 ? name : root + name;
}

bool IsObject(const std::string& path) {
    return !path.empty() && path.back() == '.';
}

template <typename TElements>
void PutArray(TOstelJsonObject& reply, const std::string& name, const TElements& elements) {
    void* array = reply.NewJsonArray();
    for (const auto& element : elements) {
        reply.AppendJsonArray(&array, reply.ToJson(element));
    }
    reply.SetJsonObject(name, array);
}

}  // namespace

// Without names the object as a whole is meant.
tOstelReturnCode TDispatcher::GetObject(const TOstelJsonObject& request, TOstelJsonObject& reply) {
    const auto root = TextField(request, "ROOT");
    auto names = NamesField(request);
    if (!root || !names) {
        return RC_INVALID_ARGUMENT;
    }
    if (!IsObject(*root)) {
        return RC_INVALID_PARAM_NAME;
    }
    for (std::string& name : *names) {
        name = Below(*root, name);
    }
    if (names->empty()) {
        names->push_back(*root);
    }
    return Read(*names, reply);
}

tOstelReturnCode TDispatcher::SetObject(const TOstelJsonObject& request, TOstelJsonObject&) {
    const auto root = TextField(request, "ROOT");
    auto writes = WritesField(request);
    const auto commit = BoolField(request, "COMMIT");
    if (!root || !writes || !commit) {
        return RC_INVALID_ARGUMENT;
    }
    if (!m_Model.HasObject(*root)) {
        return RC_INVALID_PARAM_NAME;
    }
    for (auto& write : *writes) {
        write.first = Below(*root, write.first);
    }
    return Write(*writes, *commit);
}

tOstelReturnCode TDispatcher::GetObjectInstances(const TOstelJsonObject& request,
                                                 TOstelJsonObject& reply) {
    const auto table = TextField(request, "OBJ");
    if (!table) {
        return RC_INVALID_ARGUMENT;
    }
    std::vector<unsigned int> ids;
    const tOstelReturnCode code = m_Model.GetInstances(*table, ids);
    PutArray(reply, "IDS", ids);
    return code;
}

tOstelReturnCode TDispatcher::GetObjectTree(const TOstelJsonObject& request,
                                            TOstelJsonObject& reply) {
    const auto object = TextField(request, "OBJ");
    if (!object) {
        return RC_INVALID_ARGUMENT;
    }
    std::vector<std::string> names;
    const tOstelReturnCode code = m_Model.GetTree(*object, names);
    if (code != RC_SUCCESS) {
        // Such as all that there was room for, before it was too much.
        names.clear();
    }
    PutArray(reply, "PARAMS", names);
    return code;
}

tOstelReturnCode TDispatcher::AddObjectInstance(const TOstelJsonObject& request,
                                                TOstelJsonObject& reply) {
    const auto table = TextField(request, "OBJ");
    if (!table) {
        return RC_INVALID_ARGUMENT;
    }
    unsigned int id = 0;
    const tOstelReturnCode code = m_Model.Add(*table, id);
    if (code == RC_SUCCESS) {
        reply.SetPropertyValue("ID", id);
    }
    return code;
}

tOstelReturnCode TDispatcher::DeleteObjectInstance(const TOstelJsonObject& request,
                                                   TOstelJsonObject&) {
    const auto instance = TextField(request, "OBJ");
    return instance ? m_Model.Delete(*instance) : RC_INVALID_ARGUMENT;
}

tOstelReturnCode TDispatcher::GetIndexMap(const TOstelJsonObject&, TOstelJsonObject& reply) {
    TDataModel::TIndexMap indexMap;
    const tOstelReturnCode code = m_Model.GetIndexMap(indexMap);
    if (code != RC_SUCCESS) {
        indexMap.clear();
    }
    std::vector<TOstelJsonObject> tables;
    for (const auto& [path, pairs] : indexMap) {
        std::vector<TOstelJsonObject> map;
        for (const auto& [number, platform] : pairs) {
            TOstelJsonObject& entry = map.emplace_back();
            entry.SetPropertyValue("APP_INDEX", number);
            entry.SetPropertyValue("PLATFORM_INDEX", platform);
        }
        TOstelJsonObject& table = tables.emplace_back();
        table.SetPropertyValue("NAME", path);
        table.SetPropertySequence("INDEX_MAP", map);
    }
    reply.SetPropertySequence("DATA_MODELS", tables);
    return code;
}
