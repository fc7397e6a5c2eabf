#ifndef ARGUMENTS_H
#define ARGUMENTS_H

#include <optional>
#include <string>
#include <vector>

#include "TOstelApplication.h"

// What several verbs take from the command line, or from files that it names.
namespace Arguments {

using TParams = std::vector<TOstelApplication::TOstelAppParam>;

// NAME=VALUE each. Tells of the first that is not, and then gives nothing.
std::optional<TParams> Assignments(const std::vector<std::string>& arguments);

// The names alone, for messages.
std::string Names(const TParams& params);

// The contents of a file; "-" is standard input. Tells when it cannot be read, and then gives
// nothing.
std::optional<std::string> ReadAll(const std::string& file);

}  // namespace Arguments

#endif
