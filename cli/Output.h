#ifndef OUTPUT_H
#define OUTPUT_H

#include <string>
#include <vector>

#include "TOstelApplication.h"
#include "TOstelJsonObject.h"
#include "tOstelTypes.h"

// What the tool prints. A person gets text; with --json a program gets one document a line.
namespace Output {

// Statuses of failures that are not the data model's, as in sysexits.h.
constexpr int USAGE_ERROR = 64;
constexpr int MALFORMED_FILE = 65;
constexpr int NO_FILE = 66;
constexpr int NO_BUS = 69;
constexpr int WRITE_ERROR = 74;

// The status with which the program exits for a result: the positive code, 255 for -1.
int ExitStatus(tOstelReturnCode code);

// "RC_NOT_FOUND (6)"; a code of a service that has others of its own is given by its number.
std::string CodeText(tOstelReturnCode code);

// Tells of a failure on standard error and returns its exit status.
int Fail(const std::string& subject, tOstelReturnCode code);

// The same for what another unit answered, which says nothing of this one's gateway.
int FailElsewhere(const std::string& subject, tOstelReturnCode code);

// Whether a failure that was told of may be that no gateway answered. RC_FAILURE is given by one
// that is there as well, as when it cannot keep what it shall commit.
bool MayBeUnanswered();

// Tells of a failure, or of what has to be known, on standard error.
void Complain(const std::string& text);

// Tells that it was done; a person is told by silence.
void PrintOk(bool json);

// One document, on a line of its own, flushed.
void Print(const TOstelJsonObject& document);

// One document over many lines, for a file that people may read.
void PrintIndented(const TOstelJsonObject& document);

// One line, flushed, with what could control a terminal made visible.
void Print(const std::string& line);

// Names and values in two columns, or as {"PARAMS": [{"NAME", "VALUE"}...]}.
void Print(const std::vector<TOstelApplication::TOstelAppParam>& params, bool json);

// Whether something that was printed did not get through.
bool HasFailed();

// The status with which the program ends, if it was to end with `status`: what was printed and did
// not get through is a failure that nobody else would notice.
int Finish(int status);

// The bytes as they are, to a file, or for "-" to standard output. The exit status.
int Write(const std::string& file, const std::string& bytes);

}  // namespace Output

#endif
