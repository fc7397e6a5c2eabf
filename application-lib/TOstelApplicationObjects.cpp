// Parameter arrays, objects and index maps.
#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>

#include "OstelDocuments.h"
#include "OstelNameMatch.h"
#include "TOstelApplication.h"

using OstelDocuments::AppendNamed;
using OstelDocuments::Attempt;
using OstelDocuments::CopyText;
using OstelDocuments::Decode;
using OstelDocuments::ForEach;
using OstelDocuments::Integer;
using OstelDocuments::NewText;
using OstelDocuments::Put;
using OstelDocuments::TOwnedJson;

namespace {

using TParams = std::vector<TOstelApplication::TOstelAppParam>;

// "PARAMS" of a request, new: the names, and for one that writes the values. The elements are made
// in their array: a copy of each would be most of a large request's cost.
json_t* NewParams(const TParams& params, bool hasValues) {
    TOwnedJson array(json_array(), &json_decref);
    for (const auto& param : params) {
        json_t* const element = AppendNamed(array.get(), param.name);
        if (hasValues && json_object_set_new(element, "VALUE", NewText(param.value)) != 0) {
            throw std::bad_alloc();
        }
    }
    return array.release();
}

bool IsPlain(char c) {
    return c >= ' ' && c <= '~' && c != '"' && c != '\\';
}

void AppendText(std::string& json, const std::string& text) {
    if (std::all_of(text.begin(), text.end(), &IsPlain)) {
        json += '"';
        json += text;
        json += '"';
        return;
    }
    const TOwnedJson value(NewText(text), &json_decref);
    const std::unique_ptr<char, decltype(&std::free)> encoded(
        json_dumps(value.get(), JSON_COMPACT | JSON_ENCODE_ANY), &std::free);
    if (!encoded) {
        throw std::bad_alloc();
    }
    json += encoded.get();
}

// The document of the names alone as a text. An array of many thousand names is asked for at once,
// and making a tree of values only to write it down would take as long as reading the reply.
std::string EncodeNames(const TParams& params) {
    std::string json = R"({"PARAMS":[)";
    for (const auto& param : params) {
        json += R"({"NAME":)";
        AppendText(json, param.name);
        json += "},";
    }
    if (!params.empty()) {
        json.pop_back();
    }
    return json + "]}";
}

}  // namespace

void TOstelApplication::PopulateParamArray(const TOstelJsonObject& reply,
                                           std::vector<TOstelAppParam>& params) {
    params.resize(reply.GetJsonArraySize("PARAMS"));
    auto param = params.begin();
    ForEach(reply, "PARAMS", [&](const json_t* element) {
        CopyText(element, "NAME", param->name);
        CopyText(element, "VALUE", param->value);
        ++param;
    });
}

void TOstelApplication::ParamArrayToJson(const std::vector<TOstelAppParam>& params,
                                         TOstelJsonObject& json) {
    // Not Put: a document that holds no value stays as it is.
    json.SetJsonObject("PARAMS", NewParams(params, true));
}

tOstelReturnCode TOstelApplication::GetParamArray(std::vector<TOstelAppParam>& params) {
    return Attempt([&] {
        std::string reply;
        const auto code = static_cast<tOstelReturnCode>(
            m_Ipc->CallMethod("GET_PARAM_ARRAY", EncodeNames(params), reply));
        if (code == RC_SUCCESS) {
            TOstelJsonObject document;
            Decode(document, reply);
            PopulateParamArray(document, params);
        }
        return code;
    });
}

tOstelReturnCode TOstelApplication::GetParamArray(
    const std::vector<std::string>& names,
    std::vector<std::vector<std::pair<std::string, std::string>>>& results) {
    std::vector<TOstelAppParam> params(names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        params[i].name = names[i];
    }
    const tOstelReturnCode code = GetParamArray(params);
    if (code != RC_SUCCESS) {
        return code;
    }
    results.resize(names.size());
    OstelNameMatch::TIndex index(names);
    for (const TOstelAppParam& param : params) {
        for (const std::size_t position : index.Find(param.name)) {
            results[position].emplace_back(param.name, param.value);
        }
    }
    return RC_SUCCESS;
}

tOstelReturnCode TOstelApplication::SetParamArray(const std::vector<TOstelAppParam>& params,
                                                  bool commit) {
    return Attempt([&] {
        TOstelJsonObject request;
        Put(request, "PARAMS", NewParams(params, true));
        Put(request, "COMMIT", json_boolean(commit));
        return Call("SET_PARAM_ARRAY", request);
    });
}

tOstelReturnCode TOstelApplication::GetObject(const std::string& root,
                                              std::vector<TOstelAppParam>& params) {
    return Attempt([&] {
        TOstelJsonObject document;
        Put(document, "PARAMS", NewParams(params, false));
        Put(document, "ROOT", root);
        std::string reply;
        const tOstelReturnCode code = Call("GET_OBJECT", document, reply);
        if (code == RC_SUCCESS) {
            Decode(document, reply);
            PopulateParamArray(document, params);
        }
        return code;
    });
}

tOstelReturnCode TOstelApplication::SetObject(const std::string& root,
                                              const std::vector<TOstelAppParam>& params,
                                              bool commit) {
    return Attempt([&] {
        TOstelJsonObject request;
        Put(request, "PARAMS", NewParams(params, true));
        Put(request, "ROOT", root);
        Put(request, "COMMIT", json_boolean(commit));
        return Call("SET_OBJECT", request);
    });
}

tOstelReturnCode TOstelApplication::GetObjectIds(const std::string& object, std::vector<int>& ids) {
    return Attempt([&] {
        TOstelJsonObject document;
        Put(document, "OBJ", object);
        std::string reply;
        const tOstelReturnCode code = Call("GET_OBJECT_INSTANCES", document, reply);
        if (code == RC_SUCCESS) {
            Decode(document, reply);
            ForEach(document, "IDS", [&](const json_t* id) { ids.push_back(Integer(id)); });
        }
        return code;
    });
}

tOstelReturnCode TOstelApplication::GetObjectTree(const std::string& object,
                                                  std::vector<std::string>& names) {
    return Attempt([&] {
        TOstelJsonObject document;
        Put(document, "OBJ", object);
        std::string reply;
        const tOstelReturnCode code = Call("GET_OBJECT_TREE", document, reply);
        if (code == RC_SUCCESS) {
            Decode(document, reply);
            ForEach(document, "PARAMS", [&](const json_t* name) {
                names.emplace_back(json_is_string(name) ? json_string_value(name) : "");
            });
        }
        return code;
    });
}

tOstelReturnCode TOstelApplication::AddObject(const std::string& object, int& id) {
    return Attempt([&] {
        TOstelJsonObject document;
        Put(document, "OBJ", object);
        std::string reply;
        const tOstelReturnCode code = Call("ADD_OBJECT_INSTANCE", document, reply);
        if (code == RC_SUCCESS) {
            Decode(document, reply);
            id = document.GetPropertyValue("ID", 0);
        }
        return code;
    });
}

tOstelReturnCode TOstelApplication::RemoveObject(const std::string& instance) {
    return Attempt([&] {
        TOstelJsonObject request;
        Put(request, "OBJ", instance);
        return Call("DELETE_OBJECT_INSTANCE", request);
    });
}

tOstelReturnCode TOstelApplication::GetIndexMap(
    std::unordered_map<std::string, std::vector<std::pair<int, int>>>& map) {
    return Attempt([&] {
        std::string reply;
        const tOstelReturnCode code = Call("GET_INDEX_MAP", TOstelJsonObject(), reply);
        if (code != RC_SUCCESS) {
            return code;
        }
        TOstelJsonObject document;
        Decode(document, reply);
        ForEach(document, "DATA_MODELS", [&](const json_t* dataModel) {
            std::string name;
            CopyText(dataModel, "NAME", name);
            std::vector<std::pair<int, int>> pairs;
            const json_t* const entries = json_object_get(dataModel, "INDEX_MAP");
            for (std::size_t i = 0; i < json_array_size(entries); ++i) {
                const json_t* const entry = json_array_get(entries, i);
                pairs.emplace_back(Integer(json_object_get(entry, "APP_INDEX")),
                                   Integer(json_object_get(entry, "PLATFORM_INDEX")));
            }
            map[name] = std::move(pairs);
        });
        return code;
    });
}
