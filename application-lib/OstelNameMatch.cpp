// Two names can match only if they have the same shape: the name with every run of digits and "*"
// made into one "*", which opens the run. And a name with "*" can match one without only if their
// other runs are the same. So names without "*" are kept by themselves, and the others by what is
// left of them when the runs with a "*" are opened. However many names differ in their numbers
// alone, a parameter costs a few look-ups and is held against names that fit.
#include "OstelNameMatch.h"

#include <algorithm>

namespace OstelNameMatch {

namespace {

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// The length of the run of digits and "*" at `start`.
std::size_t RunLength(const std::string& name, std::size_t start) {
    std::size_t end = start;
    while (end < name.size() && (IsDigit(name[end]) || name[end] == '*')) {
        ++end;
    }
    return end - start;
}

// The name with one "*" in place of each of its runs that is to be opened; without `openRuns`, of
// all of them.
std::string Open(const std::string& name, const std::vector<bool>* openRuns) {
    std::string opened;
    opened.reserve(name.size());
    std::size_t number = 0;
    for (std::size_t i = 0; i < name.size();) {
        const std::size_t length = RunLength(name, i);
        if (length == 0) {
            opened += name[i++];
            continue;
        }
        if (openRuns == nullptr || (*openRuns)[number]) {
            opened += '*';
        } else {
            opened.append(name, i, length);
        }
        ++number;
        i += length;
    }
    return opened;
}

std::string Shape(const std::string& name) {
    return Open(name, nullptr);
}

// Which of the name's runs have a "*" in them.
std::vector<bool> RunsWithWildcard(const std::string& name) {
    std::vector<bool> runs;
    for (std::size_t i = 0; i < name.size(); ++i) {
        const std::size_t length = RunLength(name, i);
        if (length > 0) {
            const char* const run = name.data() + i;
            runs.push_back(std::find(run, run + length, '*') != run + length);
            i += length;
        }
    }
    return runs;
}

// Steps over the digits at `position`; false when there are none.
bool SkipDigits(const std::string& name, std::size_t& position) {
    const std::size_t start = position;
    while (position < name.size() && IsDigit(name[position])) {
        ++position;
    }
    return position > start;
}

}  // namespace

bool HasWildcard(const std::string& name) {
    return name.find('*') != std::string::npos;
}

bool Match(const std::string& left, const std::string& right) {
    std::size_t l = 0;
    std::size_t r = 0;
    while (l < left.size() && r < right.size()) {
        if (left[l] == right[r]) {
            ++l;
            ++r;
        } else if (left[l] == '*' && SkipDigits(right, r)) {
            ++l;
        } else if (right[r] == '*' && SkipDigits(left, l)) {
            ++r;
        } else {
            return false;
        }
    }
    return l == left.size() && r == right.size();
}

TIndex::TIndex(const std::vector<std::string>& names) : m_Names(names) {
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (HasWildcard(names[i])) {
            const std::vector<bool> openRuns = RunsWithWildcard(names[i]);
            if (std::find(m_OpenRuns.begin(), m_OpenRuns.end(), openRuns) == m_OpenRuns.end()) {
                m_OpenRuns.push_back(openRuns);
            }
            m_Wildcards[Open(names[i], &openRuns)].push_back(i);
        } else {
            m_Exact[names[i]].push_back(i);
        }
    }
}

void TIndex::Append(const TPositions& candidates, const std::string& key, const std::string& name,
                    std::vector<std::size_t>& found) const {
    const auto fitting = candidates.find(key);
    if (fitting == candidates.end()) {
        return;
    }
    for (const std::size_t position : fitting->second) {
        if (Match(m_Names[position], name)) {
            found.push_back(position);
        }
    }
}

std::vector<std::size_t> TIndex::Find(const std::string& name) {
    std::vector<std::size_t> found;
    if (!HasWildcard(name)) {
        const auto same = m_Exact.find(name);
        if (same != m_Exact.end()) {
            found = same->second;
        }
        const std::size_t runs = m_OpenRuns.empty() ? 0 : RunsWithWildcard(name).size();
        for (const std::vector<bool>& openRuns : m_OpenRuns) {
            if (openRuns.size() == runs) {
                Append(m_Wildcards, Open(name, &openRuns), name, found);
            }
        }
        return found;
    }
    if (m_AllShapes.empty()) {
        for (std::size_t i = 0; i < m_Names.size(); ++i) {
            m_AllShapes[Shape(m_Names[i])].push_back(i);
        }
    }
    Append(m_AllShapes, Shape(name), name, found);
    return found;
}

}  // namespace OstelNameMatch
