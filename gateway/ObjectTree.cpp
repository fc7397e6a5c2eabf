#include "ObjectTree.h"

#include <algorithm>

namespace {

// The parameter that counts the instances of a table stands beside the table.
void CountInstances(TObject& object, const TObjectDefinition& definition, std::size_t child) {
    const TObjectDefinition& table = *definition.children[child];
    const std::size_t entries = definition.Parameter(table.entries);
    if (table.isTable && entries != TObjectDefinition::NOT_THERE) {
        object.values[entries] = std::to_string(object.children[child].Count(TView::COMMITTED));
    }
}

}  // namespace

TObject TObject::Make(const TObjectDefinition& definition) {
    TObject object;
    object.values.reserve(definition.parameters.size());
    for (const TParamDefinition& parameter : definition.parameters) {
        object.values.push_back(parameter.defaultValue);
    }
    object.children.resize(definition.children.size());
    for (std::size_t i = 0; i < definition.children.size(); ++i) {
        const TObjectDefinition& child = *definition.children[i];
        TInstances& instances = object.children[i];
        if (!child.isTable) {
            instances.objects.emplace(0, Make(child));
        }
        while (child.isTable && instances.objects.size() < child.minEntries) {
            instances.Make(child, instances.last + 1);
        }
        CountInstances(object, definition, i);
    }
    return object;
}

std::size_t TObject::Size(const TObjectDefinition& definition, std::size_t fill, std::size_t most) {
    std::size_t size = 1 + definition.parameters.size();
    for (const auto& child : definition.children) {
        const std::size_t instances =
            child->isTable ? std::max(child->minEntries, std::min(fill, child->maxEntries)) : 1;
        const std::size_t each = Size(*child, fill, most);
        if (instances > 0 && each >= most / instances) {
            return most;
        }
        // Not at the end, where the sum of many tables would have begun at 0 again.
        size = std::min(most, size + instances * each);
    }
    return std::min(size, most);
}

void TObject::Fill(const TObjectDefinition& definition, std::size_t fill) {
    for (std::size_t i = 0; i < children.size(); ++i) {
        const TObjectDefinition& child = *definition.children[i];
        TInstances& instances = children[i];
        while (child.isTable && instances.objects.size() < std::min(fill, child.maxEntries)) {
            instances.Make(child, instances.last + 1);
        }
        for (auto& instance : instances.objects) {
            instance.second.Fill(child, fill);
        }
    }
}

void TObject::CountEntries(const TObjectDefinition& definition) {
    for (std::size_t i = 0; i < children.size(); ++i) {
        CountInstances(*this, definition, i);
        for (auto& instance : children[i].objects) {
            instance.second.CountEntries(*definition.children[i]);
        }
    }
}

std::size_t TObject::CountParameters() const {
    std::size_t count = values.size();
    for (const TInstances& instances : children) {
        for (const auto& instance : instances.objects) {
            count += instance.second.CountParameters();
        }
    }
    return count;
}

TObject& TInstances::Make(const TObjectDefinition& table, unsigned int number) {
    last = std::max(last, number);
    const auto there = objects.find(number);
    return there != objects.end() ? there->second
                                  : objects.emplace(number, TObject::Make(table)).first->second;
}

std::size_t TInstances::Count(TView view) const {
    return static_cast<std::size_t>(
        std::count_if(objects.begin(), objects.end(),
                      [view](const auto& entry) { return entry.second.IsVisible(view); }));
}
