#ifndef SAMPLE_VALUE_H
#define SAMPLE_VALUE_H

#include <optional>
#include <string>

#include "ParamType.h"

// A simple value that the type allows: the empty text, "false", 0 or what is nearest to them.
// Nothing when none was found.
std::optional<std::string> SampleValue(const TParamType& type);

#endif
