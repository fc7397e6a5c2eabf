#include "SampleValue.h"

#include <algorithm>
#include <cmath>
#include <string_view>
#include <vector>

namespace {

// Longer ones are not looked for: a model may ask for texts that fit into no memory.
constexpr std::size_t LONGEST = std::size_t{64} * 1024;

// Writes a text that a regular expression matches: the first of alternatives, the fewest of
// repetitions. It knows what data models use; what it does not know gives a text that does not
// match, which the caller notices.
class TPatternWriter {
public:
    explicit TPatternWriter(std::string_view pattern) : m_Rest(pattern) {}

    std::string Write() { return Alternatives(); }

private:
    char Next() {
        const char next = m_Rest.empty() ? '\0' : m_Rest.front();
        m_Rest.remove_prefix(m_Rest.empty() ? 0 : 1);
        return next;
    }

    std::string Alternatives() {
        std::string first = Sequence();
        while (!m_Rest.empty() && m_Rest.front() == '|') {
            Next();
            Sequence();
        }
        return first;
    }

    std::string Sequence() {
        std::string text;
        while (!m_Rest.empty() && m_Rest.front() != '|' && m_Rest.front() != ')') {
            const std::string atom = Atom();
            const std::size_t times = Repetitions();
            for (std::size_t i = 0; i < times; ++i) {
                text += atom;
            }
        }
        return text;
    }

    std::string Atom() {
        const char next = Next();
        if (next == '(') {
            if (m_Rest.substr(0, 2) == "?:") {
                m_Rest.remove_prefix(2);
            }
            std::string inner = Alternatives();
            Next();
            return inner;
        }
        if (next == '[') {
            return {Class()};
        }
        if (next == '\\') {
            return {Escaped(Next())};
        }
        return next == '^' || next == '$' ? std::string()
                                          : std::string(1, next == '.' ? 'x' : next);
    }

    static char Escaped(char letter) {
        switch (letter) {
            case 'd':
                return '0';
            case 'w':
                return 'x';
            case 's':
                return ' ';
            default:
                return letter;
        }
    }

    // The first character of the class; one that a negated class is unlikely to name.
    char Class() {
        const bool isNegated = !m_Rest.empty() && m_Rest.front() == '^';
        if (isNegated) {
            Next();
        }
        const char first = Next();
        const char chosen = first == '\\' ? Escaped(Next()) : first;
        while (!m_Rest.empty()) {
            const char next = Next();
            if (next == '\\') {
                Next();
            } else if (next == ']') {
                break;
            }
        }
        return isNegated ? 'x' : chosen;
    }

    std::size_t Repetitions() {
        constexpr std::size_t most = 1000;
        const char next = m_Rest.empty() ? '\0' : m_Rest.front();
        if (next == '?' || next == '*' || next == '+') {
            Next();
            return next == '+' ? 1 : 0;
        }
        if (next != '{') {
            return 1;
        }
        std::size_t count = 0;
        for (char digit = (Next(), Next()); digit != '\0' && digit != '}'; digit = Next()) {
            if (digit == ',') {
                m_Rest.remove_prefix(std::min(m_Rest.find('}'), m_Rest.size()));
            } else {
                count = std::min(count * 10 + static_cast<std::size_t>(digit - '0'), most);
            }
        }
        return count;
    }

    std::string_view m_Rest;
};

std::string WholeNumber(TParamType::TRangeEnd number) {
    std::string text = std::to_string(std::round(number));
    return text.substr(0, text.find('.'));
}

std::vector<std::string> Candidates(const TParamType& type) {
    std::vector<std::string> candidates = {"", "0", "0001-01-01T00:00:00Z"};
    candidates.insert(candidates.end(), type.enumeration.begin(), type.enumeration.end());
    for (const TParamType::TRange& range : type.ranges) {
        for (const auto& end : {range.minimum, range.maximum}) {
            if (end) {
                candidates.push_back(WholeNumber(*end));
            }
        }
    }
    for (const TParamType::TPattern& pattern : type.patterns) {
        candidates.push_back(TPatternWriter(pattern.text).Write());
    }
    return candidates;
}

std::vector<std::string> CandidatesOf(const TParamType::TSize& size) {
    const std::size_t length = std::min(size.minimum.value_or(0), LONGEST);
    return {std::string(length, '0'), std::string(2 * length, '0'),  // in hexadecimal digits
            std::string((length + 2) / 3 * 4, 'A')};                 // in Base64
}

std::optional<std::string> FirstAllowed(const std::vector<std::string>& candidates,
                                        const TParamType& type) {
    const auto found =
        std::find_if(candidates.begin(), candidates.end(),
                     [&](const std::string& candidate) { return type.Allows(candidate); });
    return found != candidates.end() ? std::optional<std::string>(type.Canonical(*found))
                                     : std::nullopt;
}

std::optional<std::string> SampleItem(TParamType type) {
    type.list.reset();
    std::optional<std::string> item = FirstAllowed(Candidates(type), type);
    // Those of all sizes at once could be more than there is memory for.
    for (auto size = type.sizes.begin(); !item && size != type.sizes.end(); ++size) {
        item = FirstAllowed(CandidatesOf(*size), type);
    }
    return item;
}

}  // namespace

std::optional<std::string> SampleValue(const TParamType& type) {
    if (!type.list) {
        return SampleItem(type);
    }
    const std::optional<std::string> item = SampleItem(type);
    std::string text;
    const std::size_t items = type.list->items.minimum.value_or(0);
    for (std::size_t i = 0; item && i < items && text.size() < LONGEST; ++i) {
        text += (i > 0 ? "," : "") + *item;
    }
    return type.Allows(text) ? std::optional<std::string>(text) : std::nullopt;
}
