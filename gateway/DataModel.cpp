// How the data model is built and restored, and what is read of it. What is written to it is in
// DataModelChanges.cpp.
#include "DataModel.h"

#include <algorithm>
#include <stdexcept>

#include "TreeReader.h"

namespace {

// Tables inside of tables multiply: what a few lines of a model ask for may fit into no memory.
constexpr std::size_t LARGEST_TREE = 10'000'000;
// What an instance takes in an index map at least.
constexpr std::size_t INDEX_PAIR_SIZE = sizeof(R"({"APP_INDEX":1,"PLATFORM_INDEX":1},)") - 1;

// How many objects and parameters come with the instance at this path.
std::size_t SizeAt(const std::string& path, const TObjectDefinition& root, std::size_t fill) {
    const TObjectDefinition* definition = &root;
    bool isNumber = false;
    for (const std::string_view element : TPath(path).elements) {
        const std::size_t child = definition->Child(element);
        if (isNumber) {
            isNumber = false;
        } else if (child != TObjectDefinition::NOT_THERE) {
            definition = definition->children[child].get();
            isNumber = definition->isTable;
        }
    }
    return TObject::Size(*definition, fill, LARGEST_TREE);
}

void CheckSize(const TSchema& schema, std::size_t fill) {
    // An application may add an instance to a table that has none.
    const std::size_t each = std::max<std::size_t>(fill, 1);
    std::size_t size = TObject::Size(schema.Root(), each, LARGEST_TREE);
    for (const TSchema::TSeed& seed : schema.Seeds()) {
        size = std::min(LARGEST_TREE, size + SizeAt(seed.path, schema.Root(), each));
    }
    if (size == LARGEST_TREE) {
        throw std::runtime_error("the model asks for too many instances: there is room for " +
                                 std::to_string(LARGEST_TREE) + " objects and parameters");
    }
}

}  // namespace

TDataModel::TDataModel(TSchema schema, std::size_t fill)
    : m_Schema(std::move(schema)), m_Root(std::make_unique<TInstances>()) {
    CheckSize(m_Schema, fill);
    TObject& root = m_Root->objects.emplace(0, TObject::Make(m_Schema.Root())).first->second;
    // An outer instance is planted before what stands inside of it.
    std::vector<TSchema::TSeed> seeds = std::move(m_Schema.Seeds());
    std::stable_sort(seeds.begin(), seeds.end(), [](const auto& left, const auto& right) {
        return TPathLess()(left.path, right.path);
    });
    for (const TSchema::TSeed& seed : seeds) {
        Plant(seed);
    }
    root.Fill(m_Schema.Root(), fill);
    root.CountEntries(m_Schema.Root());
}

// A seed is an instance of a table, or an object inside of an instance that is there already.
TDataModel::TNode TDataModel::Place(const std::string& path) {
    const auto number = ToInstanceNumber(LastElement(path));
    if (!number) {
        return Find(path, TView::COMMITTED);
    }
    TNode node = Find(ParentPath(path), TView::COMMITTED);
    if (!node.IsTable()) {
        return {};
    }
    node.object = &node.instances->Make(*node.definition, *number);
    return node;
}

void TDataModel::Plant(const TSchema::TSeed& seed) {
    const TNode node = Place(seed.path);
    if (node.object == nullptr) {
        throw std::runtime_error(seed.place + ": there is no place for the instance " + seed.path);
    }
    for (const auto& [name, value] : seed.values) {
        const std::size_t index = node.definition->Parameter(name);
        if (index == TObjectDefinition::NOT_THERE) {
            throw std::runtime_error(seed.place + ": " + seed.path + name +
                                     " has a value but no definition");
        }
        const TParamType& type = node.definition->parameters[index].type;
        if (!type.Allows(value)) {
            throw std::runtime_error(seed.place + ": " + seed.path + name + " cannot be \"" +
                                     value + "\"");
        }
        node.object->values[index] = type.Canonical(value);
    }
}

bool TDataModel::RestoreInstance(const std::string& path, bool present) {
    const std::string tablePath = ParentPath(path);
    const TNode table = Find(tablePath, TView::COMMITTED);
    const auto number = ToInstanceNumber(LastElement(path));
    if (!table.IsTable() || !number) {
        return false;
    }
    if (present) {
        table.instances->Make(*table.definition, *number);
    } else {
        table.instances->objects.erase(*number);
        table.instances->last = std::max(table.instances->last, *number);
    }
    TChanged changed;
    UpdateEntries(tablePath, changed);
    return true;
}

bool TDataModel::RestoreValue(const std::string& name, const std::string& value) {
    const TPlace place = FindParameter(name, TView::COMMITTED);
    if (!place || !place.Definition().type.Allows(value)) {
        return false;
    }
    place.Value() = value;
    return true;
}

std::size_t TDataModel::Size() const {
    return m_Root->objects.at(0).CountParameters();
}

TDataModel::TNode TDataModel::Child(const TNode& parent, std::string_view name) {
    const std::size_t child = parent.definition->Child(name);
    if (child == TObjectDefinition::NOT_THERE) {
        return {};
    }
    const TObjectDefinition& definition = *parent.definition->children[child];
    TInstances& instances = parent.object->children[child];
    return {&definition, definition.isTable ? nullptr : &instances.objects.at(0), &instances};
}

TDataModel::TNode TDataModel::Instance(const TNode& table, std::string_view element, TView view) {
    const auto number = ToInstanceNumber(element);
    auto& objects = table.instances->objects;
    const auto found = number ? objects.find(*number) : objects.end();
    if (found == objects.end() || !found->second.IsVisible(view)) {
        return {};
    }
    return {table.definition, &found->second, table.instances};
}

TDataModel::TNode TDataModel::Find(const std::string& path, TView view) const {
    const TPath parsed(path);
    if (!parsed.isObject) {
        return {};
    }
    TNode node{&m_Schema.Root(), &m_Root->objects.at(0), m_Root.get()};
    for (const std::string_view element : parsed.elements) {
        node = node.IsTable() ? Instance(node, element, view) : Child(node, element);
        if (!node) {
            return {};
        }
    }
    return node;
}

TDataModel::TPlace TDataModel::FindParameter(const std::string& name, TView view) const {
    const std::size_t point = name.rfind('.');
    if (point == std::string::npos) {
        return {};
    }
    const TNode node = Find(name.substr(0, point + 1), view);
    if (node.object == nullptr) {
        return {};
    }
    const std::size_t index = node.definition->Parameter(std::string_view(name).substr(point + 1));
    return index != TObjectDefinition::NOT_THERE ? TPlace{node.definition, node.object, index}
                                                 : TPlace{};
}

tOstelReturnCode TDataModel::Get(const std::string& name, TValues& values) const {
    return Get(std::vector<std::string>{name}, values);
}

tOstelReturnCode TDataModel::Get(const std::vector<std::string>& names, TValues& values) const {
    const auto take = [&](const std::string& path, const std::string& value) {
        values.emplace_back(path, value);
    };
    std::size_t size = 0;
    for (const std::string& name : names) {
        TTreeReader reader(name, take, nullptr, size);
        const tOstelReturnCode code = reader.Read(m_Schema.Root(), m_Root->objects.at(0));
        if (code != RC_SUCCESS) {
            return code;
        }
        size = reader.Size();
    }
    return RC_SUCCESS;
}

tOstelReturnCode TDataModel::GetTree(const std::string& object,
                                     std::vector<std::string>& names) const {
    if (!Find(object, TView::COMMITTED)) {
        return RC_INVALID_PARAM_NAME;
    }
    const auto takeParameter = [&](const std::string& path, const std::string&) {
        names.push_back(path);
    };
    const auto takeObject = [&](const std::string& path) {
        names.push_back(path);
        return path.size();
    };
    return TTreeReader(object, takeParameter, takeObject)
        .Read(m_Schema.Root(), m_Root->objects.at(0));
}

tOstelReturnCode TDataModel::GetInstances(const std::string& table,
                                          std::vector<unsigned int>& ids) const {
    const TNode node = Find(table, TView::COMMITTED);
    if (!node.IsTable()) {
        return RC_INVALID_PARAM_NAME;
    }
    for (const auto& [number, object] : node.instances->objects) {
        if (object.IsVisible(TView::COMMITTED)) {
            ids.push_back(number);
        }
    }
    return RC_SUCCESS;
}

tOstelReturnCode TDataModel::GetIndexMap(TIndexMap& map) const {
    const auto takeObject = [&](const std::string& path) -> std::size_t {
        const TNode table = Find(path, TView::COMMITTED);
        if (!table.IsTable() || table.definition->indexMap.empty()) {
            return 0;
        }
        auto& pairs = map.emplace_back(path, TIndexMap::value_type::second_type()).second;
        for (const auto& [number, object] : table.instances->objects) {
            if (object.IsVisible(TView::COMMITTED)) {
                const auto mapped = table.definition->indexMap.find(number);
                // What the platform did not number itself has its number from the application.
                pairs.emplace_back(
                    number, mapped != table.definition->indexMap.end() ? mapped->second : number);
            }
        }
        return path.size() + pairs.size() * INDEX_PAIR_SIZE;
    };
    TTreeReader reader("*.", nullptr, takeObject);
    // A model without objects has no such name, and nothing to map.
    return reader.Read(m_Schema.Root(), m_Root->objects.at(0)) == RC_BUFFER_OVERFLOW
               ? RC_BUFFER_OVERFLOW
               : RC_SUCCESS;
}
