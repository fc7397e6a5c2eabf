#include "XmlModelLoader.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <map>
#include <pugixml.hpp>
#include <set>
#include <sstream>
#include <stdexcept>

#include "SampleValue.h"
#include "zt_logging.h"

namespace {

bool IsLeftOut(const pugi::xml_node& node) {
    const std::string status = node.attribute("status").value();
    return status == "deprecated" || status == "obsoleted" || status == "deleted";
}

class TXmlModelLoader {
public:
    TXmlModelLoader(const std::string& path, TSchema& schema) : m_Path(path), m_Schema(schema) {
        std::ifstream file(path, std::ios::binary);
        std::ostringstream text;
        text << file.rdbuf();
        m_Text = text.str();
    }

    void Load() {
        const pugi::xml_parse_result result = m_Document.load_buffer(m_Text.data(), m_Text.size());
        if (!result) {
            throw std::runtime_error(Place(static_cast<std::size_t>(result.offset)) +
                                     result.description());
        }
        const pugi::xml_node document = m_Document.document_element();
        const std::string name = document.name();
        if (name != "document" && name.substr(name.find(':') + 1) != "document") {
            Fail(document, "<" + name +
                               "> is not a data-model document, which starts with "
                               "<dm:document>");
        }
        for (const pugi::xml_node& type : document.children("dataType")) {
            m_TypeNodes[type.attribute("name").value()] = type;
        }
        if (!document.child("model")) {
            Fail(document, "the document describes no model");
        }
        for (const pugi::xml_node& model : document.children("model")) {
            if (const pugi::xml_node component = model.child("component")) {
                Fail(component,
                     "a <component> is left to be put in; only the flattened form of a model is "
                     "understood");
            }
            for (const pugi::xml_node& object : model.children("object")) {
                ReadObject(object);
            }
        }
    }

private:
    std::string Place(std::size_t offset) const {
        const auto end =
            m_Text.begin() + static_cast<std::ptrdiff_t>(std::min(offset, m_Text.size()));
        return m_Path + ":" + std::to_string(1 + std::count(m_Text.begin(), end, '\n')) + ": ";
    }

    std::string Place(const pugi::xml_node& node) const {
        return Place(static_cast<std::size_t>(std::max<std::ptrdiff_t>(node.offset_debug(), 0)));
    }

    [[noreturn]] void Fail(const pugi::xml_node& node, const std::string& cause) const {
        throw std::runtime_error(Place(node) + cause);
    }

    void Warn(const pugi::xml_node& node, const std::string& cause) const {
        ztLogging_log(ZT_LOG_LEVEL_WARNING, "%s", (Place(node) + cause).c_str());
    }

    std::string Attribute(const pugi::xml_node& node, const char* name) const {
        const pugi::xml_attribute attribute = node.attribute(name);
        if (!attribute || *attribute.value() == '\0') {
            Fail(node, std::string("<") + node.name() + "> has no \"" + name +
                           "\"; only the flattened form of a model is understood");
        }
        return attribute.value();
    }

    std::optional<TParamType::TRangeEnd> Number(const pugi::xml_node& node,
                                                const char* name) const {
        const char* const text = node.attribute(name).value();
        if (*text == '\0') {
            return std::nullopt;
        }
        char* end = nullptr;
        const TParamType::TRangeEnd number = std::strtold(text, &end);
        if (*end != '\0' || !std::isfinite(number)) {
            Fail(node, std::string("\"") + name + "\" is not a number: \"" + text + "\"");
        }
        return number;
    }

    std::optional<std::size_t> Count(const pugi::xml_node& node, const char* name) const {
        const auto number = Number(node, name);
        if (number && (*number < 0 || *number > std::numeric_limits<unsigned int>::max())) {
            Fail(node, std::string("\"") + name + "\" is out of range");
        }
        if (number && *number != std::floor(*number)) {
            Fail(node, std::string("\"") + name + "\" is not a whole number");
        }
        return number ? std::optional<std::size_t>(static_cast<std::size_t>(*number))
                      : std::nullopt;
    }

    bool IsWritable(const pugi::xml_node& node) const {
        static const std::set<std::string> writable = {"readWrite", "writeOnceReadOnly", "create",
                                                       "delete", "createDelete"};
        const std::string access = node.attribute("access").value();
        if (access.empty() || access == "readOnly") {
            return false;
        }
        if (writable.count(access) == 0) {
            Fail(node, "unknown access \"" + access + "\"");
        }
        return true;
    }

    // What is said of a type in elements of one kind.
    std::vector<pugi::xml_node> Facets(const pugi::xml_node& node, const char* kind) const {
        std::vector<pugi::xml_node> facets;
        for (const pugi::xml_node& facet : node.children(kind)) {
            if (facets.size() == MOST_FACETS) {
                Fail(facet,
                     "one type has more than " + std::to_string(MOST_FACETS) + " <" + kind + ">");
            }
            facets.push_back(facet);
        }
        return facets;
    }

    // What a derived type says of a kind replaces what its base says of it.
    void ReadFacets(const pugi::xml_node& node, TParamType& type) const {
        if (node.child("size")) {
            type.sizes.clear();
        }
        for (const pugi::xml_node& size : Facets(node, "size")) {
            type.sizes.push_back({Count(size, "minLength"), Count(size, "maxLength")});
        }
        if (node.child("range")) {
            type.ranges.clear();
        }
        for (const pugi::xml_node& range : Facets(node, "range")) {
            type.ranges.push_back({Number(range, "minInclusive"), Number(range, "maxInclusive")});
        }
        if (node.child("enumeration")) {
            type.enumeration.clear();
        }
        for (const pugi::xml_node& value : Facets(node, "enumeration")) {
            if (!IsLeftOut(value)) {
                type.enumeration.emplace_back(value.attribute("value").value());
            }
        }
        if (node.child("pattern")) {
            type.patterns.clear();
        }
        for (const pugi::xml_node& pattern : Facets(node, "pattern")) {
            ReadPattern(pattern, type);
        }
    }

    void ReadPattern(const pugi::xml_node& node, TParamType& type) const {
        const std::string text = node.attribute("value").value();
        try {
            type.patterns.emplace_back(text);
        } catch (const std::regex_error&) {
            Warn(node, "the pattern is not understood and not applied: " + text);
        }
    }

    void ReadList(const pugi::xml_node& node, TParamType& type) const {
        TParamType::TList list;
        list.items = {Count(node, "minItems"), Count(node, "maxItems")};
        const pugi::xml_node size = node.child("size");
        list.size = {Count(size, "minLength"), Count(size, "maxLength")};
        type.list = list;
    }

    // The type that stands among these children: a base type, a named one, or a list of them.
    TParamType ReadType(const pugi::xml_node& node) {
        TParamType type;
        bool isFound = false;
        for (const pugi::xml_node& child : node.children()) {
            const std::optional<TBaseType> base = ToBaseType(child.name());
            const bool isNamed = std::string(child.name()) == "dataType";
            if (!base && !isNamed) {
                continue;
            }
            if (base) {
                type.base = *base;
            } else {
                type = NamedType(child, Attribute(child, child.attribute("ref") ? "ref" : "base"));
            }
            ReadFacets(child, type);
            isFound = true;
            break;
        }
        if (!isFound) {
            Fail(node, "no type is given");
        }
        if (node.child("list")) {
            ReadList(node.child("list"), type);
        }
        return type;
    }

    const TParamType& NamedType(const pugi::xml_node& user, const std::string& name) {
        const auto known = m_Types.find(name);
        if (known != m_Types.end()) {
            return known->second;
        }
        const auto node = m_TypeNodes.find(name);
        if (node == m_TypeNodes.end()) {
            Fail(user, "unknown data type \"" + name + "\"");
        }
        if (!m_Resolving.insert(name).second) {
            Fail(user, "the data type \"" + name + "\" is based on itself");
        }
        if (m_Resolving.size() > MOST_BASES) {
            Fail(user, "the data type \"" + name + "\" is one of too many in a row");
        }
        TParamType type;
        const std::string base = node->second.attribute("base").value();
        if (base.empty()) {
            type = ReadType(node->second);
        } else {
            type = NamedType(node->second, base);
            ReadFacets(node->second, type);
            if (node->second.child("list")) {
                ReadList(node->second.child("list"), type);
            }
        }
        m_Resolving.erase(name);
        return m_Types.emplace(name, std::move(type)).first->second;
    }

    void ReadObject(const pugi::xml_node& node) {
        const std::string path = Attribute(node, "name");
        if (IsLeftOut(node)) {
            m_LeftOut.push_back(path);
        }
        if (std::any_of(m_LeftOut.begin(), m_LeftOut.end(), [&](const std::string& outer) {
                return path.compare(0, outer.size(), outer) == 0;
            })) {
            return;
        }
        try {
            TObjectDefinition& object = m_Schema.MakeObject(path);
            for (const pugi::xml_node& parameter : node.children("parameter")) {
                if (!IsLeftOut(parameter)) {
                    ReadParameter(parameter, object);
                }
            }
            if (object.isTable) {
                ReadTable(node, object);
            }
        } catch (const TSchemaError& error) {
            Fail(node, path + ": " + error.what());
        }
    }

    void ReadTable(const pugi::xml_node& node, TObjectDefinition& table) const {
        table.writable = IsWritable(node);
        table.entries = node.attribute("numEntriesParameter").value();
        table.minEntries = Count(node, "minEntries").value_or(0);
        const std::string most = node.attribute("maxEntries").value();
        table.maxEntries = most.empty() || most == "unbounded"
                               ? TObjectDefinition::UNBOUNDED
                               : Count(node, "maxEntries").value_or(0);
        if (table.minEntries > std::min<std::size_t>(table.maxEntries, MOST_FIRST_ENTRIES)) {
            Fail(node, "\"minEntries\" is out of range");
        }
        for (const pugi::xml_node& keyNode : node.children("uniqueKey")) {
            std::vector<std::string> key;
            for (const pugi::xml_node& parameter : keyNode.children("parameter")) {
                key.push_back(Attribute(parameter, "ref"));
            }
            // A key of which a part is left out tells no instances from each other.
            const bool isWhole = std::all_of(key.begin(), key.end(), [&](const auto& name) {
                return table.Parameter(name) != TObjectDefinition::NOT_THERE;
            });
            if (isWhole && !key.empty()) {
                table.uniqueKeys.push_back(std::move(key));
            }
        }
    }

    void ReadParameter(const pugi::xml_node& node, TObjectDefinition& object) {
        TParamDefinition parameter;
        parameter.name = Attribute(node, "name");
        if (parameter.name.find_first_of(".*{}") != std::string::npos) {
            Fail(node, "\"" + parameter.name + "\" is not a parameter name");
        }
        parameter.writable = IsWritable(node);
        const pugi::xml_node syntax = node.child("syntax");
        if (!syntax) {
            Fail(node, parameter.name + " has no syntax");
        }
        parameter.type = ReadType(syntax);
        parameter.defaultValue = FirstValue(syntax, parameter.type);
        object.Define(std::move(parameter));
    }

    std::string FirstValue(const pugi::xml_node& syntax, const TParamType& type) const {
        const pugi::xml_attribute given = syntax.child("default").attribute("value");
        if (given && type.Allows(given.value())) {
            return type.Canonical(given.value());
        }
        const std::optional<std::string> sample = SampleValue(type);
        if (!sample) {
            Warn(syntax, "found no value that the type allows; the parameter starts empty");
        }
        return sample.value_or("");
    }

    static constexpr std::size_t MOST_FIRST_ENTRIES = 1000;
    // They are resolved by recursion. The standard's have less than a handful.
    static constexpr std::size_t MOST_BASES = 64;
    // Each parameter of the type has them all. The standard's have some dozens.
    static constexpr std::size_t MOST_FACETS = 1000;

    std::string m_Path;
    std::string m_Text;  // for the lines of messages
    TSchema& m_Schema;
    pugi::xml_document m_Document;
    std::map<std::string, pugi::xml_node> m_TypeNodes;
    std::map<std::string, TParamType> m_Types;
    std::set<std::string> m_Resolving;
    std::vector<std::string> m_LeftOut;
};

}  // namespace

void LoadXmlModel(const std::string& path, TSchema& schema) {
    TXmlModelLoader(path, schema).Load();
}
