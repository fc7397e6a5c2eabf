#ifndef OUTPUT_H
#define OUTPUT_H

#include <string>
#include <vector>

#include "TOstelApplication.h"
#include "TOstelJsonObject.h"
#include "tOstelTypes.h"

// What the tool prints. A person gets text; with --json a program gets one document a line.
namespace Output {

// The status with which the program exits for a result: the positive code, 255 for -1.
int ExitStatus(tOstelReturnCode code);

// "RC_NOT_FOUND (6)"; a code of a service that has others of its own is given by its number.
std::string CodeText(tOstelReturnCode code);

// Tells of a failure on standard error and returns its exit status.
int Fail(const std::string& subject, tOstelReturnCode code);

// One document, on a line of its own, flushed.
void Print(const TOstelJsonObject& document);

// One line, flushed, with what could control a terminal made visible.
void Print(const std::string& line);

// Names and values in two columns, or as {"PARAMS": [{"NAME", "VALUE"}...]}.
void Print(const std::vector<TOstelApplication::TOstelAppParam>& params, bool json);

}  // namespace Output

#endif
