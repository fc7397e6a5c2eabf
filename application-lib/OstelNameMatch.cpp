// Two names can match only if they have the same shape: the name with every run of digits and "*"
// made into one "*". Names are kept in tables by themselves or by their shape, so that a large
// reply costs one or two look-ups for each parameter and only names of one shape are compared.
#include "OstelNameMatch.h"

namespace OstelNameMatch {

namespace {

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

std::string Shape(const std::string& name) {
    std::string shape;
    shape.reserve(name.size());
    for (const char c : name) {
        if (!IsDigit(c) && c != '*') {
            shape += c;
        } else if (shape.empty() || shape.back() != '*') {
            shape += '*';
        }
    }
    return shape;
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
            m_WildcardShapes[Shape(names[i])].push_back(i);
        } else {
            m_Exact[names[i]].push_back(i);
        }
    }
}

void TIndex::Append(const TPositions& byShape, const std::string& name,
                    std::vector<std::size_t>& found) const {
    const auto candidates = byShape.find(Shape(name));
    if (candidates == byShape.end()) {
        return;
    }
    for (const std::size_t position : candidates->second) {
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
        if (!m_WildcardShapes.empty()) {
            Append(m_WildcardShapes, name, found);
        }
        return found;
    }
    if (m_AllShapes.empty()) {
        for (std::size_t i = 0; i < m_Names.size(); ++i) {
            m_AllShapes[Shape(m_Names[i])].push_back(i);
        }
    }
    Append(m_AllShapes, name, found);
    return found;
}

}  // namespace OstelNameMatch
