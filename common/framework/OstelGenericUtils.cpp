#include "OstelGenericUtils.h"

#include <cxxabi.h>
#include <strings.h>
#include <sys/sysinfo.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <random>
#include <sstream>
#include <string_view>

namespace OstelGenericUtils {

namespace {

template <typename T, typename Parsed>
bool ParseInteger(const std::string& s, T& v, Parsed (*parse)(const char*, char**, int)) {
    char* end = nullptr;
    v = static_cast<T>(parse(s.c_str(), &end, 10));
    // The text's own end: a NUL inside of it ends the parse, but leaves the rest unread.
    return end == s.data() + s.size();
}

bool IsWord(const std::string& s, std::string_view word) {
    return s.size() == word.size() && strcasecmp(s.c_str(), word.data()) == 0;
}

}  // namespace

bool StringToInteger(const std::string& s, int& v) {
    return ParseInteger(s, v, std::strtol);
}
bool StringToInteger(const std::string& s, long& v) {
    return ParseInteger(s, v, std::strtol);
}

bool StringToInteger(const std::string& s, long long& v) {
    return ParseInteger(s, v, std::strtoll);
}

bool StringToInteger(const std::string& s, unsigned int& v) {
    return ParseInteger(s, v, std::strtoul);
}

bool StringToInteger(const std::string& s, unsigned long& v) {
    return ParseInteger(s, v, std::strtoul);
}

bool StringToInteger(const std::string& s, unsigned long long& v) {
    return ParseInteger(s, v, std::strtoull);
}

bool StringToBoolean(const std::string& s, bool& v) {
    if (IsWord(s, "true") || s == "1") {
        v = true;
        return true;
    }
    if (IsWord(s, "false") || s == "0") {
        v = false;
        return true;
    }
    return false;
}

void ToLowerCase(std::string& s) {
    std::transform(s.begin(), s.end(), s.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
}

void ToUpperCase(std::string& s) {
    std::transform(s.begin(), s.end(), s.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
}

void ReplaceSubstring(std::string& s, const std::string& from, const std::string& to) {
    std::size_t position = 0;
    while ((position = s.find(from, position)) != std::string::npos) {
        s.replace(position, from.length(), to);
        // The length of `from`, not of `to`: callers rely on which matches this skips.
        position += from.length();
    }
}

std::vector<std::string> Split(const std::string& s, char delim) {
    std::vector<std::string> pieces;
    std::istringstream stream(s);
    std::string piece;
    while (std::getline(stream, piece, delim)) {
        pieces.push_back(piece);
    }
    return pieces;
}

void StringToSequence(const std::string& s, std::vector<std::string>& out,
                      const std::string& delim) {
    std::size_t start = 0;
    std::size_t match = 0;
    while ((match = s.find(delim, start)) != std::string::npos) {
        out.push_back(s.substr(start, match - start));
        // Plus one, not plus the delimiter's length: stored sequences are read back this way.
        start = match + 1;
    }
    // An empty delimiter is found at the very end as well, and leads behind it.
    out.push_back(s.substr(std::min(start, s.size())));
}

void LTrim(std::string& s, const std::string& chars) {
    s.erase(0, s.find_first_not_of(chars));
}

void RTrim(std::string& s, const std::string& chars) {
    s.erase(s.find_last_not_of(chars) + 1);
}

void Trim(std::string& s, const std::string& chars) {
    LTrim(s, chars);
    RTrim(s, chars);
}

std::string DemangleTypeName(const char* name) {
    if (name == nullptr) {
        return "";
    }
    int status = -1;
    const std::unique_ptr<char, decltype(&std::free)> demangled(
        abi::__cxa_demangle(name, nullptr, nullptr, &status), &std::free);
    return status == 0 ? demangled.get() : name;
}

std::string GetRandomAlphaNumString(unsigned int length) {
    static constexpr char alphabet[] =
        "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    thread_local std::mt19937 generator{std::random_device{"default"}()};
    thread_local std::uniform_int_distribution<std::size_t> index{0, sizeof alphabet - 2};
    std::string text;
    text.reserve(length);
    for (unsigned int i = 0; i < length; ++i) {
        text += alphabet[index(generator)];
    }
    return text;
}

double GetTimestamp() {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    const auto nanoseconds =
        std::chrono::duration_cast<std::chrono::nanoseconds>(sinceEpoch).count();
    const auto milliseconds = nanoseconds / 1000000;
    return static_cast<double>(milliseconds) / 1000.0;
}

std::string TimeToLocalTimeString(const long& t) {
    const std::time_t seconds = t;
    const std::tm* const local = std::localtime(&seconds);
    if (local == nullptr) {
        return "";
    }
    char text[50];
    const std::size_t length = std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S %Z", local);
    return std::string(text, length);
}

long GetSystemUpTime() {
    struct sysinfo info = {};
    sysinfo(&info);
    return info.uptime;
}

int PThreadCondInit(pthread_cond_t& cond) {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&cond, &attributes);
    return pthread_condattr_destroy(&attributes);
}

std::string RunCmd(const std::string& cmd) {
    // The shell would run what stands before the NUL, which is another command.
    if (cmd.find('\0') != std::string::npos) {
        return "";
    }
    const std::unique_ptr<std::FILE, decltype(&pclose)> pipe(popen(cmd.c_str(), "r"), &pclose);
    if (!pipe) {
        return "";
    }
    std::string output;
    char chunk[128];
    while (std::fgets(chunk, sizeof chunk, pipe.get()) != nullptr) {
        output += chunk;
    }
    output.erase(output.find_last_not_of('\n') + 1);
    return output;
}

}  // namespace OstelGenericUtils
