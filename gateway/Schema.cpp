#include "Schema.h"

#include "Path.h"

namespace {

template <typename TIndex>
std::size_t Lookup(const TIndex& index, std::string_view name) {
    const auto found = index.find(name);
    return found != index.end() ? found->second : TObjectDefinition::NOT_THERE;
}

// Trees are walked by recursion. The deepest of the standard's have about a dozen elements.
constexpr std::size_t DEEPEST = 64;

bool IsName(std::string_view element) {
    return !element.empty() && element.find_first_of("*{}") == std::string_view::npos &&
           !ToInstanceNumber(element);
}

}  // namespace

std::size_t TObjectDefinition::Parameter(std::string_view wanted) const {
    return Lookup(m_ParameterIndex, wanted);
}

std::size_t TObjectDefinition::Child(std::string_view wanted) const {
    return Lookup(m_ChildIndex, wanted);
}

void TObjectDefinition::Define(TParamDefinition definition) {
    if (Child(definition.name) != NOT_THERE) {
        throw TSchemaError("there is an object of this name");
    }
    const std::size_t there = Parameter(definition.name);
    if (there != NOT_THERE) {
        parameters[there] = std::move(definition);
        return;
    }
    m_ParameterIndex.emplace(definition.name, parameters.size());
    parameters.push_back(std::move(definition));
}

TObjectDefinition& TObjectDefinition::MakeChild(const std::string& childName, bool asTable) {
    const std::size_t there = Child(childName);
    if (there != NOT_THERE) {
        if (children[there]->isTable != asTable) {
            throw TSchemaError("\"" + childName + "\" is a table here and an object there");
        }
        return *children[there];
    }
    if (Parameter(childName) != NOT_THERE) {
        throw TSchemaError("\"" + childName + "\" is a parameter already");
    }
    m_ChildIndex.emplace(childName, children.size());
    TObjectDefinition& child = *children.emplace_back(std::make_unique<TObjectDefinition>());
    child.name = childName;
    child.isTable = asTable;
    return child;
}

TObjectDefinition& TSchema::MakeObject(const std::string& path) {
    const TPath parsed(path);
    if (!parsed.isObject) {
        throw TSchemaError("a path ends in a point");
    }
    if (parsed.elements.size() > DEEPEST) {
        throw TSchemaError("a path has at most " + std::to_string(DEEPEST) + " elements");
    }
    TObjectDefinition* object = &m_Root;
    for (std::size_t i = 0; i < parsed.elements.size(); ++i) {
        const std::string_view element = parsed.elements[i];
        if (!IsName(element)) {
            throw TSchemaError("\"" + std::string(element) + "\" is not an object's name");
        }
        const bool isTable = i + 1 < parsed.elements.size() && parsed.elements[i + 1] == "{i}";
        object = &object->MakeChild(std::string(element), isTable);
        i += isTable ? 1 : 0;
    }
    return *object;
}
