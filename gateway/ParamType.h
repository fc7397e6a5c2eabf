#ifndef PARAM_TYPE_H
#define PARAM_TYPE_H

#include <limits>
#include <optional>
#include <regex>
#include <string>
#include <utility>
#include <vector>

// The type of a data-model parameter and what it allows, as TR-181 models state them.
enum class TBaseType {
    STRING,
    BOOLEAN,
    INT,
    UNSIGNED_INT,
    LONG,
    UNSIGNED_LONG,
    DECIMAL,
    DATE_TIME,
    BASE64,
    HEX_BINARY
};

// The base type of a name such as "unsignedInt".
std::optional<TBaseType> ToBaseType(const std::string& name);

struct TParamType {
    // Both ends are allowed; an absent one is no limit.
    template <typename T>
    struct TLimits {
        std::optional<T> minimum;
        std::optional<T> maximum;

        bool Allow(T value) const {
            return (!minimum || value >= *minimum) && (!maximum || value <= *maximum);
        }
    };
    // Holds every number of 64 bits as it is wherever the processor has a type for that; 32-bit ARM
    // has none, and rounds ends beyond 53 bits.
    using TRangeEnd = long double;
    static constexpr bool RANGES_ARE_EXACT = std::numeric_limits<TRangeEnd>::digits >= 64;
    using TRange = TLimits<TRangeEnd>;
    using TSize = TLimits<std::size_t>;

    // A text of items with commas between them; everything else here then holds for one item.
    struct TList {
        TSize items;
        TSize size;  // of the whole text
    };

    // Throws std::regex_error, also for a pattern that is too long, since the regular-expression
    // engine recurses with its length, and for numbers in it that the engine's own type does not
    // hold: it does not look whether they do. Of the engine's two ways this is the one that does
    // not try every path through a pattern such as "(a|a)*b", which would take for ever; it has no
    // back-references, and models have none.
    struct TPattern {
        static constexpr std::size_t LONGEST = 2000;

        explicit TPattern(std::string pattern)
            : text(std::move(pattern)),
              expression(Understood(text),
                         std::regex_constants::ECMAScript | std::regex_constants::__polynomial) {}

        std::string text;
        std::regex expression;

    private:
        static const std::string& Understood(const std::string& pattern);
    };

    TBaseType base = TBaseType::STRING;
    // Of each kind, a value has to meet one; of an empty one there is nothing to meet.
    std::vector<TRange> ranges;
    std::vector<TSize> sizes;  // in characters; for binary types in bytes
    std::vector<std::string> enumeration;
    std::vector<TPattern> patterns;
    std::optional<TList> list;

    bool Allows(const std::string& value) const;

    // The one form in which a value is kept: booleans as "true" and "false".
    std::string Canonical(const std::string& value) const;

private:
    bool AllowsItem(const std::string& item) const;
    bool AllowsList(const std::string& text) const;
};

#endif
