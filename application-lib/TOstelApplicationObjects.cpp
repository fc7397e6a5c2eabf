// Parameter arrays, objects and index maps.
#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>

#include "OstelDocuments.h"
#include "OstelNameMatch.h"
#include "TOstelApplication.h"

using OstelDocuments::Attempt;
using OstelDocuments::CopyText;
using OstelDocuments::Decode;
using OstelDocuments::ForEach;
using OstelDocuments::Integer;

namespace {

using TParams = std::vector<TOstelApplication::TOstelAppParam>;

// Null, as a value of its own, for what is no text that a document can hold.
json_t* NewText(const std::string& text) {
    json_t* const json = json_stringn(text.data(), text.size());
    return json != nullptr ? json : json_null();
}

using TOwnedJson = std::unique_ptr<json_t, decltype(&json_decref)>;

bool SetText(json_t* element, const char* name, const std::string& text) {
    return json_object_set_new(element, name, NewText(text)) == 0;
}

// The elements are made in their array: a copy of each would be most of a large request's cost. A
// request in which one is missing would be granted, and only a part of it be done.
template <typename Fill>
void ParamsToJson(const TParams& params, TOstelJsonObject& json, Fill fill) {
    TOwnedJson array(json_array(), &json_decref);
    for (const auto& param : params) {
        json_t* const element = json_object();
        const bool isFilled = fill(element, param);
        if (json_array_append_new(array.get(), element) != 0 || !isFilled) {
            throw std::bad_alloc();
        }
    }
    json.SetJsonObject("PARAMS", array.release());
}

// "PARAMS" of a request that asks for values: the names alone.
void NamesToJson(const TParams& params, TOstelJsonObject& json) {
    ParamsToJson(params, json, [](json_t* element, const auto& param) {
        return SetText(element, "NAME", param.name);
    });
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
    json += encoded ? encoded.get() : "null";
}

// The document of NamesToJson as a text. An array of many thousand names is asked for at once, and
// making a tree of values only to write it down would take as long as reading the reply.
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
    ParamsToJson(params, json, [](json_t* element, const auto& param) {
        return SetText(element, "NAME", param.name) && SetText(element, "VALUE", param.value);
    });
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
        ParamArrayToJson(params, request);
        request.SetPropertyValue("COMMIT", commit);
        return Call("SET_PARAM_ARRAY", request);
    });
}

tOstelReturnCode TOstelApplication::GetObject(const std::string& root,
                                              std::vector<TOstelAppParam>& params) {
    return Attempt([&] {
        TOstelJsonObject document;
        NamesToJson(params, document);
        document.SetPropertyValue("ROOT", root);
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
        ParamArrayToJson(params, request);
        request.SetPropertyValue("ROOT", root);
        request.SetPropertyValue("COMMIT", commit);
        return Call("SET_OBJECT", request);
    });
}

tOstelReturnCode TOstelApplication::GetObjectIds(const std::string& object, std::vector<int>& ids) {
    return Attempt([&] {
        TOstelJsonObject document;
        document.SetPropertyValue("OBJ", object);
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
        document.SetPropertyValue("OBJ", object);
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
        document.SetPropertyValue("OBJ", object);
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
        request.SetPropertyValue("OBJ", instance);
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
