#ifndef RECORDING_LOG_H
#define RECORDING_LOG_H

#include <chrono>
#include <string>
#include <vector>

// Takes the place of the logging library inside a test program and keeps every call. Safe from any
// thread. A fresh test process starts with an empty log.
namespace RecordingLog {

struct TLine {
    int level;
    std::string format;
    std::string text;  // the format, filled in
};

// Every log line so far, in order.
std::vector<TLine> Lines();

// The texts of one level, in order.
std::vector<std::string> Texts(int level);

// The format of the last line of a level; other threads log, too, on other levels.
std::string LastFormat(int level);

// How many lines of that level are exactly `text`.
int Count(int level, const std::string& text);

// Waits for a line of that level whose text contains `part`.
bool WaitFor(int level, const std::string& part,
             std::chrono::milliseconds limit = std::chrono::seconds(30));

// Every call that is not a log line, in order, such as "logInit KTA", "logTerm", "logSync",
// "setLogLevel 2", "setLogDestination 8".
std::vector<std::string> Calls();

// What setLogLevel and setLogDestination return from now on; 0 at first.
void ReturnFromSetters(int result);

// Prints each further call on standard error, also those made while the process exits.
void EchoCalls();

void Clear();

}  // namespace RecordingLog

#endif
