// Names with one wildcard, as applications register them for their own tables.
#include <algorithm>
#include <utility>

#include "ostelAppLib.h"

bool patternMatch(std::string pattern, std::string name, int* index) {
    const std::size_t star = pattern.find('*');
    const std::string segmentAndSuffix = name.size() > star ? name.substr(star) : std::string();
    // Throws when the name has no point there, and for a pattern without "*".
    const std::string suffix = name.substr(name.find('.', star));
    const std::string patternSuffix = pattern.substr(star + 1);
    name.resize(std::min(star, name.size()));
    pattern.resize(star);
    if (pattern != name || patternSuffix != suffix) {
        return false;
    }
    if (index != nullptr) {
        *index = std::stoi(segmentAndSuffix.substr(0, segmentAndSuffix.size() - suffix.size()));
    }
    return true;
}

void getWildcardIndices(std::string pattern, std::vector<std::string> names,
                        std::vector<int>& indices) {
    const std::string wanted = std::move(pattern);
    for (std::string& name : names) {
        int index = 0;
        if (patternMatch(wanted, std::move(name), &index)) {
            indices.push_back(index);
        }
    }
}
