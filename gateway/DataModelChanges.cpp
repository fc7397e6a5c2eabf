// Writes, and instances that come and go: staged first, then committed all at once.
#include <algorithm>
#include <limits>

#include "DataModel.h"

namespace {

// What is kept in a map by path and stands below an object.
template <typename TContainer, typename TKeyOf>
void EraseBelow(TContainer& container, const std::string& path, TKeyOf keyOf) {
    auto next = container.lower_bound(path);
    while (next != container.end() && keyOf(*next).compare(0, path.size(), path) == 0) {
        next = container.erase(next);
    }
}

}  // namespace

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
