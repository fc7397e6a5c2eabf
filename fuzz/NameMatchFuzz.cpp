// Names with "*" against a plain, slow reference.
#include <algorithm>
#include <array>
#include <vector>

#include "Fuzz.h"
#include "OstelNameMatch.h"

namespace {

constexpr std::size_t LONGEST = 24;
constexpr std::size_t MOST_NAMES = 4;

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Whether there is any way to read a "*" as some digits that makes the names equal, told from the
// names' ends.
class TEveryWay {
public:
    TEveryWay(const std::string& left, const std::string& right) : m_Left(left), m_Right(right) {
        for (std::size_t l = left.size() + 1; l-- > 0;) {
            for (std::size_t r = right.size() + 1; r-- > 0;) {
                m_From[l][r] = Tell(l, r);
            }
        }
    }

    bool CanBeEqual() const { return m_From[0][0].equal; }

private:
    // Of the names from two places on.
    struct TKnown {
        bool equal;
        // A "*" that stands just before one of the places takes some of the other name's digits.
        bool leftEats;
        bool rightEats;
    };

    // From what is known behind these places.
    TKnown Tell(std::size_t l, std::size_t r) const {
        const bool inLeft = l < m_Left.size();
        const bool inRight = r < m_Right.size();
        const TKnown nextLeft = inLeft ? m_From[l + 1][r] : TKnown{};
        const TKnown nextRight = inRight ? m_From[l][r + 1] : TKnown{};
        TKnown known{};
        known.leftEats = inRight && IsDigit(m_Right[r]) && (nextRight.equal || nextRight.leftEats);
        known.rightEats = inLeft && IsDigit(m_Left[l]) && (nextLeft.equal || nextLeft.rightEats);
        const bool same =
            inLeft && inRight && m_Left[l] == m_Right[r] && m_From[l + 1][r + 1].equal;
        const bool byLeft = inLeft && m_Left[l] == '*' && nextLeft.leftEats;
        const bool byRight = inRight && m_Right[r] == '*' && nextRight.rightEats;
        known.equal = same || byLeft || byRight || (!inLeft && !inRight);
        return known;
    }

    using TRow = std::array<TKnown, LONGEST + 1>;

    const std::string& m_Left;
    const std::string& m_Right;
    std::array<TRow, LONGEST + 1> m_From;
};

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
    Fuzz::Require(left != right || match, "a name matches itself");
    const bool canBeEqual = TEveryWay(left, right).CanBeEqual();
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
            // The sides do not matter, so once is enough.
            if (&name <= &names[i]) {
                Compare(name, names[i]);
            }
            const bool match = OstelNameMatch::Match(names[i], name);
            Fuzz::Require(match == OstelNameMatch::Match(name, names[i]),
                          "the sides do not matter");
            if (match) {
                expected.push_back(i);
            }
        }
        std::vector<std::size_t> found = index.Find(name);
        std::sort(found.begin(), found.end());
        Fuzz::Require(found == expected, "the index finds what matches");
    }
    return 0;
}
