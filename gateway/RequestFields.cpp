#include "RequestFields.h"

#include "tOstelTypes.h"

namespace {

// The elements of "PARAMS"; nothing when it is not an array of objects. An empty array is one.
std::optional<std::vector<TOstelJsonObject>> Params(const TOstelJsonObject& request) {
    const auto type = request.GetSequenceType("PARAMS");
    if (type != TOstelJsonObject::JSON_TYPE_OBJECT && type != TOstelJsonObject::JSON_TYPE_NULL) {
        return std::nullopt;
    }
    std::vector<TOstelJsonObject> params;
    request.GetPropertySequence("PARAMS", params);
    return params;
}

}  // namespace

std::optional<std::string> TextField(const TOstelJsonObject& request, const std::string& name) {
    if (request.GetPropertyType(name) != TOstelJsonObject::JSON_TYPE_STRING) {
        return std::nullopt;
    }
    return request.GetPropertyValue<std::string>(name, "");
}

std::optional<bool> BoolField(const TOstelJsonObject& request, const std::string& name) {
    if (request.GetPropertyType(name) != TOstelJsonObject::JSON_TYPE_BOOLEAN) {
        return std::nullopt;
    }
    return request.GetPropertyValue(name, false);
}

std::optional<std::vector<std::string>> NamesField(const TOstelJsonObject& request) {
    const auto params = Params(request);
    std::vector<std::string> names;
    for (std::size_t i = 0; params && i < params->size(); ++i) {
        const auto name = TextField((*params)[i], "NAME");
        if (!name) {
            return std::nullopt;
        }
        names.push_back(*name);
    }
    return params ? std::optional<std::vector<std::string>>(std::move(names)) : std::nullopt;
}

std::optional<TDataModel::TValues> WritesField(const TOstelJsonObject& request) {
    const auto params = Params(request);
    TDataModel::TValues writes;
    for (std::size_t i = 0; params && i < params->size(); ++i) {
        const auto name = TextField((*params)[i], "NAME");
        const auto value = TextField((*params)[i], "VALUE");
        if (!name || !value) {
            return std::nullopt;
        }
        writes.emplace_back(*name, *value);
    }
    return params ? std::optional<TDataModel::TValues>(std::move(writes)) : std::nullopt;
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
