#include "SubscribedNames.h"

#include <algorithm>
#include <numeric>
#include <string_view>

#include "Path.h"

TSubscribedNames::TByName& TSubscribedNames::MapOf(const std::string& name) {
    return name.find('*') != std::string::npos ? m_Patterns : m_Names;
}

std::size_t TSubscribedNames::Count(const TByName& names) {
    return std::accumulate(
        names.begin(), names.end(), std::size_t{0},
        [](std::size_t sum, const auto& name) { return sum + name.second.size(); });
}

std::optional<std::vector<std::string>> TSubscribedNames::Add(
    const std::string& serialNumber, const std::vector<std::string>& names) {
    std::set<std::string> added;
    for (const std::string& name : names) {
        const TByName& known = MapOf(name);
        const auto subscribed = known.find(name);
        if (subscribed == known.end() || subscribed->second.count(serialNumber) == 0) {
            added.insert(name);
        }
    }
    const auto patterns = static_cast<std::size_t>(
        std::count_if(added.begin(), added.end(),
                      [this](const std::string& name) { return &MapOf(name) == &m_Patterns; }));
    if (Count(m_Patterns) + patterns > MOST_PATTERNS ||
        Count(m_Names) + added.size() - patterns > MOST_NAMES) {
        return std::nullopt;
    }
    for (const std::string& name : added) {
        MapOf(name)[name].insert(serialNumber);
    }
    return std::vector<std::string>(added.begin(), added.end());
}

void TSubscribedNames::Remove(const std::string& serialNumber,
                              const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        TByName& known = MapOf(name);
        const auto subscribed = known.find(name);
        if (subscribed == known.end()) {
            continue;
        }
        subscribed->second.erase(serialNumber);
        if (subscribed->second.empty()) {
            known.erase(subscribed);
        }
    }
}

// By looking up the parameter and the partial paths above it, however many names there are.
bool TSubscribedNames::Cover(const std::string& parameter) const {
    const std::string_view name = parameter;
    for (std::size_t end = name.find('.'); end != std::string_view::npos;
         end = name.find('.', end + 1)) {
        if (m_Names.find(name.substr(0, end + 1)) != m_Names.end()) {
            return true;
        }
    }
    return m_Names.find(name) != m_Names.end() ||
           std::any_of(m_Patterns.begin(), m_Patterns.end(),
                       [name](const auto& pattern) { return Covers(pattern.first, name); });
}
