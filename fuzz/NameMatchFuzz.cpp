// Names with "*" against a plain, slow reference.
#include <vector>

#include "Fuzz.h"
#include "OstelNameMatch.h"

namespace {

constexpr std::size_t LONGEST = 64;
constexpr std::size_t MOST_NAMES = 4;

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Whether there is any way to read a "*" as some digits that makes the names equal.
bool CanBeEqual(const std::string& left, std::size_t l, const std::string& right, std::size_t r) {
    if (l == left.size() && r == right.size()) {
        return true;
    }
    if (l < left.size() && r < right.size() && left[l] == right[r] &&
        CanBeEqual(left, l + 1, right, r + 1)) {
        return true;
    }
    if (l < left.size() && left[l] == '*') {
        for (std::size_t end = r; end < right.size() && IsDigit(right[end]); ++end) {
            if (CanBeEqual(left, l + 1, right, end + 1)) {
                return true;
            }
        }
    }
    if (r < right.size() && right[r] == '*') {
        for (std::size_t end = l; end < left.size() && IsDigit(left[end]); ++end) {
            if (CanBeEqual(left, end + 1, right, r + 1)) {
                return true;
            }
        }
    }
    return false;
}

// Only then there is but one way to read each "*".
bool StarsStandAlone(const std::string& name) {
    for (std::size_t i = 1; i < name.size(); ++i) {
        const auto isOpen = [&](char c) { return IsDigit(c) || c == '*'; };
        if ((name[i - 1] == '*' && isOpen(name[i])) || (name[i] == '*' && isOpen(name[i - 1]))) {
            return false;
        }
    }
    return true;
}

void Compare(const std::string& left, const std::string& right) {
    const bool match = OstelNameMatch::Match(left, right);
    Fuzz::Require(match == OstelNameMatch::Match(right, left), "the sides do not matter");
    Fuzz::Require(left != right || match, "a name matches itself");
    const bool canBeEqual = CanBeEqual(left, 0, right, 0);
    Fuzz::Require(canBeEqual || !match, "what matches can be equal");
    Fuzz::Require(match || !canBeEqual || !StarsStandAlone(left) || !StarsStandAlone(right),
                  "what can be equal matches");
}

std::vector<std::string> Names(Fuzz::TCursor& cursor) {
    std::vector<std::string> names;
    while (!cursor.AtEnd() && names.size() < MOST_NAMES) {
        names.push_back(cursor.Line().substr(0, LONGEST));
    }
    return names;
}

}  // namespace

// Names, one a line.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Fuzz::TCursor cursor(Fuzz::ToText(data, size));
    const std::vector<std::string> names = Names(cursor);
    OstelNameMatch::TIndex index(names);
    for (const std::string& name : names) {
        std::vector<std::size_t> expected;
        for (std::size_t i = 0; i < names.size(); ++i) {
            Compare(name, names[i]);
            if (OstelNameMatch::Match(names[i], name)) {
                expected.push_back(i);
            }
        }
        std::vector<std::size_t> found = index.Find(name);
        std::sort(found.begin(), found.end());
        Fuzz::Require(found == expected, "the index finds what matches");
    }
    return 0;
}
