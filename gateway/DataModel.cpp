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

// What is kept in a map by path and stands below an object.
template <typename TContainer, typename TKeyOf>
void EraseBelow(TContainer& container, const std::string& path, TKeyOf keyOf) {
    auto next = container.lower_bound(path);
    while (next != container.end() && keyOf(*next).compare(0, path.size(), path) == 0) {
        next = container.erase(next);
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

tOstelReturnCode TDataModel::Check(const std::string& name, const std::string& value) const {
    const TPlace place = FindParameter(name, TView::STAGED);
    if (!place) {
        return RC_INVALID_PARAM_NAME;
    }
    if (!place.Definition().writable) {
        return RC_NOT_SUPPORTED;
    }
    return place.Definition().type.Allows(value) ? RC_SUCCESS : RC_INVALID_PARAM_VALUE;
}

bool TDataModel::HasObject(const std::string& path) const {
    return static_cast<bool>(Find(path, TView::STAGED));
}

tOstelReturnCode TDataModel::Set(const TValues& writes) {
    for (const auto& [name, value] : writes) {
        const tOstelReturnCode code = Check(name, value);
        if (code != RC_SUCCESS) {
            return code;
        }
    }
    std::vector<std::pair<std::string, std::optional<std::string>>> before;
    for (const auto& [name, value] : writes) {
        const TPlace place = FindParameter(name, TView::STAGED);
        const auto staged = m_Writes.find(name);
        before.emplace_back(name, staged != m_Writes.end()
                                      ? std::optional<std::string>(staged->second)
                                      : std::nullopt);
        m_Writes[name] = place.Definition().type.Canonical(value);
    }
    const bool unique = std::all_of(writes.begin(), writes.end(),
                                    [&](const auto& write) { return KeysStayUnique(write.first); });
    if (unique) {
        return RC_SUCCESS;
    }
    for (auto old = before.rbegin(); old != before.rend(); ++old) {
        if (old->second) {
            m_Writes[old->first] = *old->second;
        } else {
            m_Writes.erase(old->first);
        }
    }
    return RC_INVALID_PARAM_VALUE;
}

std::vector<std::string> TDataModel::StagedKey(const std::string& path, const TNode& instance,
                                               const std::vector<std::string>& key) const {
    std::vector<std::string> values;
    for (const std::string& name : key) {
        const std::size_t index = instance.definition->Parameter(name);
        const auto staged = m_Writes.find(path + name);
        if (staged != m_Writes.end()) {
            values.push_back(staged->second);
        } else if (index != TObjectDefinition::NOT_THERE) {
            values.push_back(instance.object->values[index]);
        }
    }
    return values;
}

bool TDataModel::KeysStayUnique(const std::string& name) const {
    const std::string path = ParentPath(name);
    const TNode instance = Find(path, TView::STAGED);
    if (!instance.IsInstance()) {
        return true;
    }
    const std::string parameter = name.substr(path.size());
    const std::string tablePath = ParentPath(path);
    for (const auto& key : instance.definition->uniqueKeys) {
        if (std::find(key.begin(), key.end(), parameter) == key.end()) {
            continue;
        }
        const std::vector<std::string> own = StagedKey(path, instance, key);
        // A key that nobody has filled in yet names no instance.
        if (std::all_of(own.begin(), own.end(), [](const auto& value) { return value.empty(); })) {
            continue;
        }
        for (auto& [number, object] : instance.instances->objects) {
            if (&object == instance.object || !object.IsVisible(TView::STAGED)) {
                continue;
            }
            const TNode other{instance.definition, &object, instance.instances};
            if (StagedKey(tablePath + std::to_string(number) + ".", other, key) == own) {
                return false;
            }
        }
    }
    return true;
}

tOstelReturnCode TDataModel::Add(const std::string& table, unsigned int& id) {
    const TNode node = Find(table, TView::STAGED);
    if (!node.IsTable()) {
        return RC_INVALID_PARAM_NAME;
    }
    if (!node.definition->writable) {
        return RC_NOT_SUPPORTED;
    }
    constexpr unsigned int highest = std::numeric_limits<int>::max();
    if (node.instances->Count(TView::STAGED) >= node.definition->maxEntries ||
        node.instances->last >= highest) {
        return RC_BUFFER_OVERFLOW;
    }
    id = node.instances->last + 1;
    node.instances->Make(*node.definition, id).added = true;
    m_Added.insert(table + std::to_string(id) + ".");
    return RC_SUCCESS;
}

tOstelReturnCode TDataModel::Delete(const std::string& instance) {
    const TNode node = Find(instance, TView::STAGED);
    if (!node.IsInstance()) {
        return RC_INVALID_PARAM_NAME;
    }
    if (!node.definition->writable ||
        node.instances->Count(TView::STAGED) <= node.definition->minEntries) {
        return RC_NOT_SUPPORTED;
    }
    const auto self = [](const std::string& path) -> const std::string& { return path; };
    const auto first = [](const auto& write) -> const std::string& { return write.first; };
    EraseBelow(m_Writes, instance, first);
    EraseBelow(m_Added, instance, self);
    EraseBelow(m_Deleted, instance, self);
    if (node.object->added) {
        node.instances->objects.erase(*ToInstanceNumber(LastElement(instance)));
    } else {
        node.object->deleted = true;
        m_Deleted.insert(instance);
    }
    return RC_SUCCESS;
}

TDataModel::TChanges TDataModel::Changes() const {
    TChanges changes;
    for (const auto& [name, value] : m_Writes) {
        const TPlace place = FindParameter(name, TView::STAGED);
        if (place && place.Value() != value) {
            changes.writes.emplace_back(name, value);
        }
    }
    changes.added.assign(m_Added.begin(), m_Added.end());
    changes.deleted.assign(m_Deleted.begin(), m_Deleted.end());
    return changes;
}

TDataModel::TValues TDataModel::Commit() {
    const TChanges changes = Changes();
    TChanged changed;
    for (const auto& [name, value] : changes.writes) {
        const TPlace place = FindParameter(name, TView::STAGED);
        if (place) {
            place.Value() = value;
            changed[name] = value;
        }
    }
    std::set<std::string, TPathLess> tables;
    for (const std::string& path : changes.deleted) {
        tables.insert(ParentPath(path));
        const TNode instance = Find(path, TView::COMMITTED);
        if (instance.IsInstance()) {
            instance.instances->objects.erase(*ToInstanceNumber(LastElement(path)));
        }
    }
    for (const std::string& path : changes.added) {
        tables.insert(ParentPath(path));
        const TNode instance = Find(path, TView::STAGED);
        if (instance.IsInstance()) {
            instance.object->added = false;
        }
    }
    for (const std::string& table : tables) {
        UpdateEntries(table, changed);
    }
    for (const std::string& path : changes.added) {
        TValues values;
        Get(path, values);
        changed.insert(values.begin(), values.end());
    }
    m_Writes.clear();
    m_Added.clear();
    m_Deleted.clear();
    return {changed.begin(), changed.end()};
}

void TDataModel::UpdateEntries(const std::string& tablePath, TChanged& changed) {
    const TNode table = Find(tablePath, TView::COMMITTED);
    if (!table.IsTable()) {
        return;
    }
    const std::string name = ParentPath(tablePath) + table.definition->entries;
    const TPlace entries = FindParameter(name, TView::COMMITTED);
    const std::string count = std::to_string(table.instances->Count(TView::COMMITTED));
    if (entries && entries.Value() != count) {
        entries.Value() = count;
        changed[name] = count;
    }
}
