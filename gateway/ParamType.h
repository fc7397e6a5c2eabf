#ifndef PARAM_TYPE_H
#define PARAM_TYPE_H

#include <optional>
#include <regex>
#include <string>
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
    TBaseType base = TBaseType::STRING;
    std::optional<double> minimum;
    std::optional<double> maximum;
    std::optional<std::size_t> minLength;  // in characters; for binary types in bytes
    std::optional<std::size_t> maxLength;
    std::vector<std::string> enumeration;
    std::optional<std::regex> pattern;

    bool Allows(const std::string& value) const;

    // The one form in which a value is kept: booleans as "true" and "false".
    std::string Canonical(const std::string& value) const;
};

#endif
