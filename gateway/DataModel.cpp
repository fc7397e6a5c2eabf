#include "DataModel.h"

#include <algorithm>
#include <string_view>

namespace {

// Takes the next element off a path; what a trailing point leaves behind is the empty element.
std::string_view NextElement(std::string_view& path, bool& more) {
    const std::size_t point = path.find('.');
    const std::string_view element = path.substr(0, point);
    more = point != std::string_view::npos;
    path.remove_prefix(more ? point + 1 : path.size());
    return element;
}

bool IsNumber(std::string_view element) {
    return !element.empty() && element[0] != '0' &&
           std::all_of(element.begin(), element.end(), [](char c) { return c >= '0' && c <= '9'; });
}

int CompareElements(std::string_view left, std::string_view right) {
    if (left.empty() || right.empty()) {
        return static_cast<int>(right.empty()) - static_cast<int>(left.empty());
    }
    const bool leftIsNumber = IsNumber(left);
    if (leftIsNumber != IsNumber(right)) {
        return leftIsNumber ? -1 : 1;
    }
    if (leftIsNumber && left.size() != right.size()) {
        return left.size() < right.size() ? -1 : 1;
    }
    return left.compare(right);
}

// Does a pattern, in which "*" stands for any one element, match the path? A pattern that ends in a
// point matches what stands below it.
bool MatchesPattern(std::string_view path, std::string_view pattern) {
    bool morePath = true;
    bool morePattern = true;
    while (morePattern) {
        const std::string_view wanted = NextElement(pattern, morePattern);
        if (!morePattern && wanted.empty()) {
            return morePath;
        }
        if (!morePath) {
            return false;
        }
        const std::string_view element = NextElement(path, morePath);
        if (wanted == "*" ? element.empty() : wanted != element) {
            return false;
        }
    }
    return !morePath;
}

bool IsPartialPath(const std::string& name) {
    return !name.empty() && name.back() == '.';
}

}  // namespace

bool TPathLess::operator()(const std::string& left, const std::string& right) const {
    std::string_view leftPath = left;
    std::string_view rightPath = right;
    bool moreLeft = true;
    bool moreRight = true;
    while (moreLeft && moreRight) {
        const int order =
            CompareElements(NextElement(leftPath, moreLeft), NextElement(rightPath, moreRight));
        if (order != 0) {
            return order < 0;
        }
    }
    return !moreLeft && moreRight;
}

const TParamDefinition& TDataModel::Define(TParamDefinition definition) {
    return m_Definitions.emplace_back(std::move(definition));
}

bool TDataModel::AddParameter(const std::string& name, const TParamDefinition& definition,
                              const std::string& value) {
    return m_Parameters.try_emplace(name, TParameter{&definition, value}).second;
}

void TDataModel::AddSchemaPath(const std::string& path) {
    m_SchemaPaths.insert(path);
}

bool TDataModel::Restore(const std::string& name, const std::string& value) {
    const auto found = m_Parameters.find(name);
    if (found == m_Parameters.end() || !found->second.definition->type.Allows(value)) {
        return false;
    }
    found->second.value = value;
    return true;
}

bool TDataModel::IsKnown(const std::string& name) const {
    return std::any_of(m_SchemaPaths.begin(), m_SchemaPaths.end(),
                       [&](const std::string& path) { return MatchesPattern(path, name); });
}

tOstelReturnCode TDataModel::Get(const std::string& name, TValues& values) const {
    const std::size_t star = name.find('*');
    if (star == std::string::npos && !IsPartialPath(name)) {
        const auto found = m_Parameters.find(name);
        if (found == m_Parameters.end()) {
            return RC_INVALID_PARAM_NAME;
        }
        values.emplace_back(found->first, found->second.value);
        return RC_SUCCESS;
    }
    // Only what stands below the objects named before the first "*" can match.
    const std::string fixed =
        star == std::string::npos ? name : name.substr(0, name.rfind('.', star) + 1);
    bool any = false;
    for (auto next = m_Parameters.lower_bound(fixed);
         next != m_Parameters.end() && next->first.compare(0, fixed.size(), fixed) == 0; ++next) {
        if (star == std::string::npos || MatchesPattern(next->first, name)) {
            values.emplace_back(next->first, next->second.value);
            any = true;
        }
    }
    return any || IsKnown(name) ? RC_SUCCESS : RC_INVALID_PARAM_NAME;
}

tOstelReturnCode TDataModel::Set(const std::string& name, const std::string& value) {
    const auto found = m_Parameters.find(name);
    if (found == m_Parameters.end()) {
        return RC_INVALID_PARAM_NAME;
    }
    const TParamDefinition& definition = *found->second.definition;
    if (!definition.writable) {
        return RC_NOT_SUPPORTED;
    }
    if (!definition.type.Allows(value)) {
        return RC_INVALID_PARAM_VALUE;
    }
    m_Staged[name] = definition.type.Canonical(value);
    return RC_SUCCESS;
}

TDataModel::TValues TDataModel::Changes() const {
    TValues changes;
    for (const auto& [name, value] : m_Staged) {
        if (m_Parameters.find(name)->second.value != value) {
            changes.emplace_back(name, value);
        }
    }
    return changes;
}

void TDataModel::Commit() {
    for (auto& [name, value] : m_Staged) {
        m_Parameters.find(name)->second.value = std::move(value);
    }
    m_Staged.clear();
}
