#include "ModelLoader.h"

#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <limits>
#include <set>
#include <stdexcept>

#include "TOstelJsonObject.h"
#include "XmlModelLoader.h"

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

std::vector<std::string> Texts(const TOstelJsonObject& object, const std::string& name,
                               const std::string& place) {
    std::vector<std::string> texts;
    if (!object.HasProperty(name)) {
        return texts;
    }
    const auto type = object.GetSequenceType(name);
    if (type != TOstelJsonObject::JSON_TYPE_STRING && type != TOstelJsonObject::JSON_TYPE_NULL) {
        Fail(place, "\"" + name + "\" is not an array of texts");
    }
    for (unsigned int i = 0; i < object.GetJsonArraySize(name); ++i) {
        texts.push_back(object.GetPropertyValue<std::string>(name, "", i));
    }
    return texts;
}

std::optional<TParamType::TRangeEnd> Number(const TOstelJsonObject& object, const std::string& name,
                                            const std::string& place) {
    if (!object.HasProperty(name)) {
        return std::nullopt;
    }
    const auto type = object.GetPropertyType(name);
    if (type != TOstelJsonObject::JSON_TYPE_INTEGER && type != TOstelJsonObject::JSON_TYPE_REAL) {
        Fail(place, "\"" + name + "\" is not a number");
    }
    if (type == TOstelJsonObject::JSON_TYPE_INTEGER) {
        return static_cast<TParamType::TRangeEnd>(object.GetPropertyValue(name, 0LL));
    }
    return object.GetPropertyValue(name, 0.0);
}

std::optional<std::size_t> Count(const TOstelJsonObject& object, const std::string& name,
                                 const std::string& place) {
    const auto number = Number(object, name, place);
    if (!number) {
        return std::nullopt;
    }
    if (*number < 0 || *number > std::numeric_limits<int>::max()) {
        Fail(place, "\"" + name + "\" is out of range");
    }
    const auto count = static_cast<std::size_t>(*number);
    if (static_cast<TParamType::TRangeEnd>(count) != *number) {
        Fail(place, "\"" + name + "\" is not a whole number");
    }
    return count;
}

// 0 for what is none: too large a number would be cut to that of another instance.
int InstanceNumber(const TOstelJsonObject& object, const std::string& name,
                   unsigned int index = TOstelJsonObject::WHOLE_PROPERTY) {
    const long long number = object.GetPropertyValue(name, 0LL, index);
    return number > 0 && number <= std::numeric_limits<int>::max() ? static_cast<int>(number) : 0;
}

bool IsWritable(const TOstelJsonObject& object, const std::string& place) {
    const std::string access = Text(object, "access", place);
    if (access != "readOnly" && access != "readWrite") {
        Fail(place, "\"access\" is neither readOnly nor readWrite");
    }
    return access == "readWrite";
}

template <typename T>
void AddLimits(std::vector<TParamType::TLimits<T>>& all, const std::optional<T>& minimum,
               const std::optional<T>& maximum) {
    if (minimum || maximum) {
        all.push_back({minimum, maximum});
    }
}

TParamType ReadType(const TOstelJsonObject& object, const std::string& place) {
    TParamType type;
    const std::optional<TBaseType> base = ToBaseType(Text(object, "type", place));
    if (!base) {
        Fail(place, "unknown type \"" + Text(object, "type", place) + "\"");
    }
    type.base = *base;
    AddLimits(type.ranges, Number(object, "minimum", place), Number(object, "maximum", place));
    AddLimits(type.sizes, Count(object, "minLength", place), Count(object, "maxLength", place));
    type.enumeration = Texts(object, "enumeration", place);
    if (object.HasProperty("pattern")) {
        try {
            type.patterns.emplace_back(Text(object, "pattern", place));
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
    definition.defaultValue = definition.type.Canonical(definition.defaultValue);
    return definition;
}

// What only a table has.
void ReadTable(const TOstelJsonObject& object, const std::string& place, TObjectDefinition& table) {
    if (object.HasProperty("access")) {
        table.writable = IsWritable(object, place);
    }
    if (object.HasProperty("entries")) {
        table.entries = Text(object, "entries", place);
    }
    table.minEntries = Count(object, "minEntries", place).value_or(table.minEntries);
    table.maxEntries = Count(object, "maxEntries", place).value_or(table.maxEntries);
    if (table.minEntries > table.maxEntries) {
        Fail(place, "\"minEntries\" is above \"maxEntries\"");
    }
    for (const TOstelJsonObject& key : Sequence(object, "uniqueKeys", place)) {
        table.uniqueKeys.push_back(Texts(key, "parameters", place));
        for (const std::string& name : table.uniqueKeys.back()) {
            if (table.Parameter(name) == TObjectDefinition::NOT_THERE) {
                Fail(place, "a unique key names no parameter: \"" + name + "\"");
            }
        }
    }
    for (const TOstelJsonObject& pair : Sequence(object, "indexMap", place)) {
        const int number = InstanceNumber(pair, "app");
        const int platform = InstanceNumber(pair, "platform");
        if (number == 0 || platform == 0) {
            Fail(place, "an entry of the index map has no valid number");
        }
        table.indexMap[static_cast<unsigned int>(number)] = static_cast<unsigned int>(platform);
    }
}

std::string InstancePath(const TOstelJsonObject& instance, const std::string& schemaPath,
                         const std::string& place) {
    std::vector<int> numbers;
    for (unsigned int i = 0; i < instance.GetJsonArraySize("parent"); ++i) {
        numbers.push_back(InstanceNumber(instance, "parent", i));
    }
    numbers.push_back(InstanceNumber(instance, "id"));
    std::string path = schemaPath;
    for (const int number : numbers) {
        const std::size_t position = path.find(PLACEHOLDER);
        if (number == 0 || position == std::string::npos) {
            Fail(place, "an instance has no valid number");
        }
        path.replace(position, PLACEHOLDER.size(), std::to_string(number));
    }
    if (path.find(PLACEHOLDER) != std::string::npos) {
        Fail(place, "an instance lacks the numbers of its parents");
    }
    return path;
}

TSchema::TSeed ReadInstance(const TOstelJsonObject& instance, const std::string& schemaPath,
                            const std::string& place) {
    TSchema::TSeed seed{place, InstancePath(instance, schemaPath, place), {}};
    if (!instance.HasProperty("values")) {
        return seed;
    }
    if (instance.GetPropertyType("values") != TOstelJsonObject::JSON_TYPE_OBJECT) {
        Fail(place, "\"values\" is not an object");
    }
    const TOstelJsonObject values = instance.GetObjectRef("values");
    for (const std::string& name : values.GetProperties()) {
        seed.values.emplace_back(name, Text(values, name, place + " " + seed.path));
    }
    return seed;
}

// `path` is the file's. A parameter may take the place of another file's, not of this one's.
void ReadObject(const TOstelJsonObject& object, const std::string& path,
                std::set<std::string>& defined, TSchema& schema) {
    const std::string schemaPath = Text(object, "path", path);
    const std::string place = path + " " + schemaPath;
    try {
        TObjectDefinition& definition = schema.MakeObject(schemaPath);
        for (const TOstelJsonObject& parameter : Sequence(object, "parameters", place)) {
            TParamDefinition read = ReadParameter(parameter, place);
            if (!defined.insert(schemaPath + read.name).second) {
                Fail(place, schemaPath + read.name + " is there twice");
            }
            definition.Define(std::move(read));
        }
        if (definition.isTable) {
            ReadTable(object, place, definition);
        }
    } catch (const TSchemaError& error) {
        Fail(place, error.what());
    }
    for (const TOstelJsonObject& instance : Sequence(object, "instances", place)) {
        schema.Seeds().push_back(ReadInstance(instance, schemaPath, place));
    }
}

void LoadJson(const std::string& path, TSchema& schema) {
    TOstelJsonObject document;
    if (!document.LoadFile(path)) {
        Fail(path, document.GetErrorText());
    }
    if (document.GetSequenceType("objects") != TOstelJsonObject::JSON_TYPE_OBJECT) {
        Fail(path, "\"objects\" is missing or not an array of objects");
    }
    std::set<std::string> defined;
    for (const TOstelJsonObject& object : Sequence(document, "objects", path)) {
        ReadObject(object, path, defined, schema);
    }
}

// The readers' own messages count lines, of which a file that is not there has none.
std::ifstream Open(const std::string& path) {
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        Fail(path, std::strerror(errno != 0 ? errno : EIO));
    }
    return file;
}

bool IsXml(const std::string& path) {
    std::ifstream file = Open(path);
    char first = ' ';
    // A byte order mark may stand before the first character.
    while (file.get(first) && (std::isspace(static_cast<unsigned char>(first)) != 0 ||
                               static_cast<unsigned char>(first) >= 0x80U)) {
    }
    if (file.bad()) {
        Fail(path, std::strerror(errno));
    }
    return file && first == '<';
}

}  // namespace

void LoadModel(const std::string& path, TSchema& schema) {
    if (IsXml(path)) {
        LoadXmlModel(path, schema);
    } else {
        LoadJson(path, schema);
    }
}
