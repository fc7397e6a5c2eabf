#include "ParamType.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <map>

namespace {

// A longer text does not meet a pattern: the regular-expression engine recurses with its length.
constexpr std::size_t LONGEST_PATTERN_TEXT = 4096;

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

bool AllDigits(const std::string& text, std::size_t start) {
    return start < text.size() &&
           std::all_of(text.begin() + static_cast<std::ptrdiff_t>(start), text.end(), IsDigit);
}

bool IsSignedInteger(const std::string& text, long long lowest, long long highest) {
    if (!AllDigits(text, !text.empty() && (text[0] == '-' || text[0] == '+') ? 1 : 0)) {
        return false;
    }
    errno = 0;
    const long long number = std::strtoll(text.c_str(), nullptr, 10);
    return errno == 0 && number >= lowest && number <= highest;
}

bool IsUnsignedInteger(const std::string& text, unsigned long long highest) {
    if (!AllDigits(text, 0)) {
        return false;
    }
    errno = 0;
    const unsigned long long number = std::strtoull(text.c_str(), nullptr, 10);
    return errno == 0 && number <= highest;
}

bool IsDecimal(const std::string& text) {
    static const std::regex form("[+-]?([0-9]+(\\.[0-9]*)?|\\.[0-9]+)");
    return text.size() <= 64 && std::regex_match(text, form);
}

bool IsDateTime(const std::string& text) {
    static const std::regex form(
        "[0-9]{4}-(0[1-9]|1[0-2])-(0[1-9]|[12][0-9]|3[01])T([01][0-9]|2[0-3]):[0-5][0-9]:[0-5][0-9]"
        "(\\.[0-9]{1,9})?(Z|[+-]([01][0-9]|2[0-3]):[0-5][0-9])?");
    return text.size() <= 64 && std::regex_match(text, form);
}

bool IsBase64(const std::string& text) {
    if (text.size() % 4 != 0) {
        return false;
    }
    const std::size_t padding = text.empty() ? 0 : text.size() - 1 - text.find_last_not_of('=');
    return padding <= 2 &&
           std::all_of(
               text.begin(), text.end() - static_cast<std::ptrdiff_t>(padding),
               [](unsigned char c) { return std::isalnum(c) != 0 || c == '+' || c == '/'; });
}

bool IsHexBinary(const std::string& text) {
    return text.size() % 2 == 0 &&
           std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isxdigit(c); });
}

bool IsBoolean(const std::string& text) {
    return text == "true" || text == "false" || text == "1" || text == "0";
}

bool HasForm(TBaseType base, const std::string& text) {
    switch (base) {
        case TBaseType::STRING:
            return true;
        case TBaseType::BOOLEAN:
            return IsBoolean(text);
        case TBaseType::INT:
            return IsSignedInteger(text, std::numeric_limits<std::int32_t>::min(),
                                   std::numeric_limits<std::int32_t>::max());
        case TBaseType::UNSIGNED_INT:
            return IsUnsignedInteger(text, std::numeric_limits<std::uint32_t>::max());
        case TBaseType::LONG:
            return IsSignedInteger(text, std::numeric_limits<std::int64_t>::min(),
                                   std::numeric_limits<std::int64_t>::max());
        case TBaseType::UNSIGNED_LONG:
            return IsUnsignedInteger(text, std::numeric_limits<std::uint64_t>::max());
        case TBaseType::DECIMAL:
            return IsDecimal(text);
        case TBaseType::DATE_TIME:
            return IsDateTime(text);
        case TBaseType::BASE64:
            return IsBase64(text);
        case TBaseType::HEX_BINARY:
            return IsHexBinary(text);
    }
    return false;
}

bool IsNumber(TBaseType base) {
    return base == TBaseType::INT || base == TBaseType::UNSIGNED_INT || base == TBaseType::LONG ||
           base == TBaseType::UNSIGNED_LONG || base == TBaseType::DECIMAL;
}

std::size_t Length(TBaseType base, const std::string& text) {
    if (base == TBaseType::HEX_BINARY) {
        return text.size() / 2;
    }
    if (base == TBaseType::BASE64) {
        return text.size() / 4 * 3 -
               static_cast<std::size_t>(std::count(text.begin(), text.end(), '='));
    }
    // Continuation bytes of UTF-8 do not start a character.
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
    }));
}

// The ends of a range have come here as numbers of less precision, some of them; a value that is
// written like an end has to be equal to it.
bool AllowDecimal(const TParamType::TRange& range, const std::string& item) {
    const auto narrow = [](const std::optional<TParamType::TRangeEnd>& end) {
        return end ? std::optional<double>(static_cast<double>(*end)) : std::nullopt;
    };
    return TParamType::TLimits<double>{narrow(range.minimum), narrow(range.maximum)}.Allow(
        std::strtod(item.c_str(), nullptr));
}

template <typename T, typename TMeets>
bool MeetsOne(const std::vector<T>& limits, TMeets meets) {
    return limits.empty() || std::any_of(limits.begin(), limits.end(), meets);
}

// Whether more digits stand there than the numbers of any "int" have.
bool IsHugeNumber(const std::string& text, std::size_t start) {
    constexpr std::size_t most = std::numeric_limits<int>::digits10;
    const std::size_t end = text.find_first_not_of("0123456789", start);
    return start < text.size() && std::min(end, text.size()) - start > most;
}

// Numbers stand in back-references and at the two ends of a repetition; in brackets there are none.
bool HasHugeNumber(const std::string& pattern) {
    bool isInBrackets = false;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        const char character = pattern[i];
        if (character == '\\') {
            if (IsHugeNumber(pattern, ++i)) {
                return true;
            }
        } else if (character == '[' || character == ']') {
            isInBrackets = character == '[';
        } else if (character == '{' && !isInBrackets) {
            const std::size_t comma = pattern.find_first_not_of("0123456789", i + 1);
            if (IsHugeNumber(pattern, i + 1) ||
                (comma != std::string::npos && IsHugeNumber(pattern, comma + 1))) {
                return true;
            }
        }
    }
    return false;
}

}  // namespace

std::optional<TBaseType> ToBaseType(const std::string& name) {
    static const std::map<std::string, TBaseType> types = {
        {"string", TBaseType::STRING},   {"boolean", TBaseType::BOOLEAN},
        {"int", TBaseType::INT},         {"unsignedInt", TBaseType::UNSIGNED_INT},
        {"long", TBaseType::LONG},       {"unsignedLong", TBaseType::UNSIGNED_LONG},
        {"decimal", TBaseType::DECIMAL}, {"dateTime", TBaseType::DATE_TIME},
        {"base64", TBaseType::BASE64},   {"hexBinary", TBaseType::HEX_BINARY},
    };
    const auto found = types.find(name);
    return found != types.end() ? std::optional<TBaseType>(found->second) : std::nullopt;
}

bool TParamType::Allows(const std::string& value) const {
    return list ? AllowsList(value) : AllowsItem(value);
}

bool TParamType::AllowsItem(const std::string& item) const {
    if (!HasForm(base, item)) {
        return false;
    }
    const auto inRange = [&](const TRange& range) {
        return base == TBaseType::DECIMAL ? AllowDecimal(range, item)
                                          : range.Allow(std::strtold(item.c_str(), nullptr));
    };
    if (IsNumber(base) && !MeetsOne(ranges, inRange)) {
        return false;
    }
    const auto hasSize = [&](const TSize& size) { return size.Allow(Length(base, item)); };
    const auto equals = [&](const std::string& value) { return value == item; };
    const auto matches = [&](const TPattern& pattern) {
        return item.size() <= LONGEST_PATTERN_TEXT && std::regex_match(item, pattern.expression);
    };
    return MeetsOne(sizes, hasSize) && MeetsOne(enumeration, equals) && MeetsOne(patterns, matches);
}

const std::string& TParamType::TPattern::Understood(const std::string& pattern) {
    if (pattern.size() > LONGEST || HasHugeNumber(pattern)) {
        throw std::regex_error(std::regex_constants::error_complexity);
    }
    return pattern;
}

bool TParamType::AllowsList(const std::string& text) const {
    if (!list->size.Allow(Length(TBaseType::STRING, text))) {
        return false;
    }
    std::size_t count = 0;
    std::size_t start = 0;
    // An empty text is a list without items.
    while (!text.empty() && start <= text.size()) {
        const std::size_t comma = std::min(text.find(',', start), text.size());
        // Blanks may stand beside the commas.
        const std::size_t first = std::min(text.find_first_not_of(' ', start), comma);
        const std::size_t last = comma > first ? text.find_last_not_of(' ', comma - 1) + 1 : first;
        if (!AllowsItem(text.substr(first, last - first))) {
            return false;
        }
        ++count;
        start = comma + 1;
    }
    return list->items.Allow(count);
}

std::string TParamType::Canonical(const std::string& value) const {
    if (base != TBaseType::BOOLEAN || list) {
        return value;
    }
    return value == "1" || value == "true" ? "true" : "false";
}
