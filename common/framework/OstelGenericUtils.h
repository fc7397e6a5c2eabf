#ifndef OSTEL_GENERIC_UTILS_H
#define OSTEL_GENERIC_UTILS_H

#include <pthread.h>

#include <string>
#include <vector>

#include "OstelApi.h"

// Small helpers without state. All may be called from any thread, but TimeToLocalTimeString, which
// shares localtime's one result with the rest of the process.
//
//     int port = 0;
//     if (!OstelGenericUtils::StringToInteger(text, port)) {
//         std::cerr << text << " is no number\n";
//     }
namespace OstelGenericUtils {

// Base 10, as strtol and its kin read it: leading blanks and a sign are accepted, also for the
// unsigned forms; an out-of-range value is clamped; the empty text is 0. `v` is always stored; true
// means that the whole text was read.
OSTEL_API bool StringToInteger(const std::string& s, int& v);
OSTEL_API bool StringToInteger(const std::string& s, long& v);
OSTEL_API bool StringToInteger(const std::string& s, long long& v);
OSTEL_API bool StringToInteger(const std::string& s, unsigned int& v);
OSTEL_API bool StringToInteger(const std::string& s, unsigned long& v);
OSTEL_API bool StringToInteger(const std::string& s, unsigned long long& v);

// "true" and "false" in any letter case, "1" and "0"; anything else is false and leaves `v` alone.
OSTEL_API bool StringToBoolean(const std::string& s, bool& v);

OSTEL_API void ToLowerCase(std::string& s);
OSTEL_API void ToUpperCase(std::string& s);

// Goes on after the found position plus the length of `from`, not of `to`: `to` must not contain
// `from` behind that length, and `from` must not be empty, or the call never returns.
OSTEL_API void ReplaceSubstring(std::string& s, const std::string& from, const std::string& to);

// Pieces between delimiters, empty ones too; a trailing delimiter adds no empty last piece.
OSTEL_API std::vector<std::string> Split(const std::string& s, char delim);

// Appends to `out`. Meant for delimiters of one character: behind a longer one, each further piece
// starts with the delimiter's remaining characters.
OSTEL_API void StringToSequence(const std::string& s, std::vector<std::string>& out,
                                const std::string& delim);

OSTEL_API void LTrim(std::string& s, const std::string& chars = " \t\r\n");
OSTEL_API void RTrim(std::string& s, const std::string& chars = " \t\r\n");
OSTEL_API void Trim(std::string& s, const std::string& chars = " \t\r\n");

// `name` itself when it is not a type name; empty for null.
OSTEL_API std::string DemangleTypeName(const char* name);

// Digits and letters, from a generator of the calling thread.
OSTEL_API std::string GetRandomAlphaNumString(unsigned int length);

// Seconds since the epoch, in steps of a millisecond.
OSTEL_API double GetTimestamp();

// Such as "Thu, 01 Jan 1970 00:00:00 UTC"; empty when the text has more than 49 characters.
OSTEL_API std::string TimeToLocalTimeString(const long& t);

// Seconds.
OSTEL_API long GetSystemUpTime();

// Makes a condition variable that waits on the monotonic clock.
OSTEL_API int PThreadCondInit(pthread_cond_t& cond);

// What the shell command prints on its standard output, without the line feeds at its end; empty
// when it could not be started or holds a NUL. Blocks until the command ends. Meant for text: of
// output with NULs in it, parts are missing. A signal handler without SA_RESTART that runs on this
// thread meanwhile cuts the output short.
OSTEL_API std::string RunCmd(const std::string& cmd);

}  // namespace OstelGenericUtils

#endif
