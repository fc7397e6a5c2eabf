#include "ModelLoader.h"

#include <limits>
#include <map>
#include <stdexcept>

#include "TOstelJsonObject.h"

namespace {

const std::string PLACEHOLDER = "{i}";

[[noreturn]] void Fail(const std::string& place, const std::string& cause) {
    throw std::runtime_error(place + ": " + cause);
}

std::string Text(const TOstelJsonObject& object, const std::string& name,
                 const std::string& place) {
    if (object.GetPropertyType(name) != TOstelJsonObject::JSON_TYPE_STRING) {
        Fail(place, "\"" + name + "\" is missing or not a text");
    }
    return object.GetPropertyValue<std::string>(name, "");
}

std::vector<TOstelJsonObject> Sequence(const TOstelJsonObject& object, const std::string& name,
                                       const std::string& place) {
    std::vector<TOstelJsonObject> elements;
    if (!object.HasProperty(name)) {
        return elements;
    }
    const auto type = object.GetSequenceType(name);
    if (type != TOstelJsonObject::JSON_TYPE_OBJECT && type != TOstelJsonObject::JSON_TYPE_NULL) {
        Fail(place, "\"" + name + "\" is not an array of objects");
    }
    object.GetPropertySequence(name, elements);
    return elements;
}

std::optional<double> Number(const TOstelJsonObject& object, const std::string& name,
                             const std::string& place) {
    if (!object.HasProperty(name)) {
        return std::nullopt;
    }
    const auto type = object.GetPropertyType(name);
    if (type != TOstelJsonObject::JSON_TYPE_INTEGER && type != TOstelJsonObject::JSON_TYPE_REAL) {
        Fail(place, "\"" + name + "\" is not a number");
    }
    return object.GetPropertyValue(name, 0.0);
}

std::optional<std::size_t> Count(const TOstelJsonObject& object, const std::string& name,
                                 const std::string& place) {
    const std::optional<double> number = Number(object, name, place);
    if (!number) {
        return std::nullopt;
    }
    if (*number < 0 || *number > std::numeric_limits<int>::max()) {
        Fail(place, "\"" + name + "\" is out of range");
    }
    return static_cast<std::size_t>(*number);
}

bool IsWritable(const TOstelJsonObject& object, const std::string& place) {
    const std::string access = Text(object, "access", place);
    if (access != "readOnly" && access != "readWrite") {
        Fail(place, "\"access\" is neither readOnly nor readWrite");
    }
    return access == "readWrite";
}

TParamType ReadType(const TOstelJsonObject& object, const std::string& place) {
    TParamType type;
    const std::optional<TBaseType> base = ToBaseType(Text(object, "type", place));
    if (!base) {
        Fail(place, "unknown type \"" + Text(object, "type", place) + "\"");
    }
    type.base = *base;
    type.minimum = Number(object, "minimum", place);
    type.maximum = Number(object, "maximum", place);
    type.minLength = Count(object, "minLength", place);
    type.maxLength = Count(object, "maxLength", place);
    for (unsigned int i = 0; i < object.GetJsonArraySize("enumeration"); ++i) {
        type.enumeration.push_back(object.GetPropertyValue<std::string>("enumeration", "", i));
    }
    if (object.HasProperty("pattern")) {
        try {
            type.pattern.emplace(Text(object, "pattern", place));
        } catch (const std::regex_error& error) {
            Fail(place, std::string("\"pattern\" is not a regular expression: ") + error.what());
        }
    }
    return type;
}

TParamDefinition ReadParameter(const TOstelJsonObject& object, const std::string& place) {
    TParamDefinition definition;
    definition.name = Text(object, "name", place);
    const std::string parameter = place + " " + definition.name;
    if (definition.name.empty() || definition.name.find_first_of(".*") != std::string::npos) {
        Fail(parameter, "not a parameter name");
    }
    definition.writable = IsWritable(object, parameter);
    definition.type = ReadType(object, parameter);
    definition.defaultValue = Text(object, "default", parameter);
    if (!definition.type.Allows(definition.defaultValue)) {
        Fail(parameter, "its type does not allow the default \"" + definition.defaultValue + "\"");
    }
    return definition;
}

class TObjectLoader {
public:
    TObjectLoader(const TOstelJsonObject& object, const std::string& place, TDataModel& model)
        : m_Model(model), m_Path(Text(object, "path", place)), m_Place(place + " " + m_Path) {
        if (m_Path.empty() || m_Path.back() != '.') {
            Fail(m_Place, "a path ends in a point");
        }
        m_Model.AddSchemaPath(m_Path);
        for (const TOstelJsonObject& parameter : Sequence(object, "parameters", m_Place)) {
            m_Definitions.push_back(&m_Model.Define(ReadParameter(parameter, m_Place)));
            m_Model.AddSchemaPath(m_Path + m_Definitions.back()->name);
        }
    }

    void Load(const TOstelJsonObject& object) {
        if (m_Path.find(PLACEHOLDER) == std::string::npos) {
            AddInstance(m_Path, TOstelJsonObject());
            return;
        }
        for (const TOstelJsonObject& instance : Sequence(object, "instances", m_Place)) {
            const std::string path = InstancePath(instance);
            AddInstance(path, instance.GetObjectRef("values"));
        }
    }

private:
    std::string InstancePath(const TOstelJsonObject& instance) const {
        std::vector<int> numbers;
        for (unsigned int i = 0; i < instance.GetJsonArraySize("parent"); ++i) {
            numbers.push_back(instance.GetPropertyValue("parent", 0, i));
        }
        numbers.push_back(instance.GetPropertyValue("id", 0));
        std::string path = m_Path;
        for (const int number : numbers) {
            const std::size_t place = path.find(PLACEHOLDER);
            if (number <= 0 || place == std::string::npos) {
                Fail(m_Place, "an instance has no valid number");
            }
            path.replace(place, PLACEHOLDER.size(), std::to_string(number));
        }
        if (path.find(PLACEHOLDER) != std::string::npos) {
            Fail(m_Place, "an instance lacks the numbers of its parents");
        }
        return path;
    }

    void AddInstance(const std::string& path, const TOstelJsonObject& values) {
        for (const TParamDefinition* definition : m_Definitions) {
            const std::string name = path + definition->name;
            const auto value =
                values.GetPropertyValue<std::string>(definition->name, definition->defaultValue);
            if (!definition->type.Allows(value)) {
                Fail(m_Place, name + " cannot be \"" + value + "\"");
            }
            if (!m_Model.AddParameter(name, *definition, definition->type.Canonical(value))) {
                Fail(m_Place, name + " is there twice");
            }
        }
        for (const std::string& name : values.GetProperties()) {
            if (!Defines(name)) {
                Fail(m_Place, path + name + " has a value but no definition");
            }
        }
    }

    bool Defines(const std::string& name) const {
        for (const TParamDefinition* definition : m_Definitions) {
            if (definition->name == name) {
                return true;
            }
        }
        return false;
    }

    TDataModel& m_Model;
    std::string m_Path;
    std::string m_Place;
    std::vector<const TParamDefinition*> m_Definitions;
};

}  // namespace

void LoadModel(const std::string& path, TDataModel& model) {
    TOstelJsonObject document;
    if (!document.LoadFile(path)) {
        Fail(path, document.GetErrorText());
    }
    if (document.GetSequenceType("objects") != TOstelJsonObject::JSON_TYPE_OBJECT) {
        Fail(path, "\"objects\" is missing or not an array of objects");
    }
    for (const TOstelJsonObject& object : Sequence(document, "objects", path)) {
        TObjectLoader(object, path, model).Load(object);
    }
}
