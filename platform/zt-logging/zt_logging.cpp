// The bundled stand-in for the device's logging library.
//
// One set of settings, read when the first line is logged, at ztLogging_logInit and again at
// ztLogging_logSync: the defaults, over them the settings file, over it the environment. The
// setters change the settings until the next reading.
#include "zt_logging.h"

#include <fcntl.h>
#include <sys/time.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <mutex>
#include <string>
#include <string_view>

namespace {

constexpr int HIGHEST_LEVEL = 7;
constexpr int ALL_DESTINATIONS =
    ZT_LOG_DESTINATION_STDOUT | ZT_LOG_DESTINATION_SYSLOG | ZT_LOG_DESTINATION_FILE;

struct TSettings {
    int level = ZT_LOG_LEVEL_NOTICE;
    int destination = ZT_LOG_DESTINATION_SYSLOG;
    std::string file;
};

struct TState {
    std::mutex mutex;
    std::string loggerName;
    TSettings settings;
    bool settingsRead = false;
    int fileDescriptor = -1;
};

// Never destroyed: other libraries and threads log until the very end of the process.
TState& State() {
    static auto* const state = new TState;
    return *state;
}

void WriteAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(descriptor, text.data(), text.size());
        if (written < 0 && errno != EINTR) {
            return;
        }
        text.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
    }
}

void Complain(const std::string& text) {
    WriteAll(STDERR_FILENO, "zt_logging: " + text + "\n");
}

bool ParseNumber(const std::string& text, int lowest, int highest, int& number) {
    char* end = nullptr;
    errno = 0;
    const long parsed = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0 || parsed < lowest || parsed > highest) {
        return false;
    }
    number = static_cast<int>(parsed);
    return true;
}

bool IsDestination(int destination) {
    return (destination & ~ALL_DESTINATIONS) == 0;
}

bool SetOne(TSettings& settings, const std::string& key, const std::string& value) {
    int number = 0;
    if (key == "level" && ParseNumber(value, 0, HIGHEST_LEVEL, number)) {
        settings.level = number;
        return true;
    }
    if (key == "destination" && ParseNumber(value, 0, ALL_DESTINATIONS, number) &&
        IsDestination(number)) {
        settings.destination = number;
        return true;
    }
    if (key == "file") {
        settings.file = value;
        return true;
    }
    return false;
}

std::string Trimmed(const std::string& text) {
    const char* const blanks = " \t\r";
    const std::size_t first = text.find_first_not_of(blanks);
    return first == std::string::npos
               ? std::string()
               : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool ReadFile(const char* path, TSettings& settings) {
    std::ifstream file(path);
    if (!file) {
        Complain(std::string("cannot read the settings file ") + path);
        return false;
    }
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        line = Trimmed(line);
        const std::size_t equals = line.find('=');
        if (line.empty() || line[0] == '#') {
            continue;
        }
        if (equals == std::string::npos ||
            !SetOne(settings, Trimmed(line.substr(0, equals)), Trimmed(line.substr(equals + 1)))) {
            Complain(std::string(path) + ":" + std::to_string(number) +
                     ": not a setting; the settings stay as they were");
            return false;
        }
    }
    return true;
}

bool ReadEnvironment(TSettings& settings) {
    bool good = true;
    for (const auto& [variable, key] :
         {std::pair<const char*, const char*>{"ZT_LOGGING_LEVEL", "level"},
          {"ZT_LOGGING_DESTINATION", "destination"},
          {"ZT_LOGGING_FILE", "file"}}) {
        const char* const value = std::getenv(variable);
        if (value != nullptr && !SetOne(settings, key, value)) {
            Complain(std::string(variable) + "=" + value +
                     " is not a setting; the settings stay as they were");
            good = false;
        }
    }
    return good;
}

void OpenFile(TState& state) {
    if (state.fileDescriptor >= 0) {
        close(state.fileDescriptor);
        state.fileDescriptor = -1;
    }
    const std::string& path = state.settings.file;
    if ((state.settings.destination & ZT_LOG_DESTINATION_FILE) == 0 || path.empty()) {
        return;
    }
    state.fileDescriptor =
        open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0640);
    if (state.fileDescriptor < 0) {
        Complain("cannot write the log file " + path);
    }
}

int ReadSettings(TState& state) {
    state.settingsRead = true;
    TSettings settings;
    const char* const path = std::getenv("ZT_LOGGING_SETTINGS");
    const bool good =
        (path == nullptr || *path == '\0' || ReadFile(path, settings)) && ReadEnvironment(settings);
    if (good) {
        state.settings = settings;
        OpenFile(state);
    }
    return good ? 0 : -1;
}

// A line feed inside a text would forge the start of another line.
void AppendOneLine(std::string& line, std::string_view text) {
    while (!text.empty() && text.back() == '\n') {
        text.remove_suffix(1);
    }
    for (const char c : text) {
        if (c == '\n') {
            line += "\\n";
        } else if (c == '\r') {
            line += "\\r";
        } else {
            line += c;
        }
    }
}

std::string TimeStamp() {
    timeval now = {};
    gettimeofday(&now, nullptr);
    tm local = {};
    localtime_r(&now.tv_sec, &local);
    std::array<char, 64> date{};
    std::strftime(date.data(), date.size(), "%Y-%m-%d %H:%M:%S", &local);
    std::array<char, 96> stamp{};
    std::snprintf(stamp.data(), stamp.size(), "%s.%03ld", date.data(),
                  static_cast<long>(now.tv_usec / 1000));
    return stamp.data();
}

std::string LevelName(int level) {
    switch (level) {
        case ZT_LOG_LEVEL_WARNING:
            return "WARNING";
        case ZT_LOG_LEVEL_NOTICE:
            return "NOTICE";
        case ZT_LOG_LEVEL_INFO:
            return "INFO";
        default:
            return level < ZT_LOG_LEVEL_WARNING ? "ERROR" : "DEBUG";
    }
}

int SyslogPriority(int level) {
    switch (level) {
        case ZT_LOG_LEVEL_WARNING:
            return LOG_WARNING;
        case ZT_LOG_LEVEL_NOTICE:
            return LOG_NOTICE;
        case ZT_LOG_LEVEL_INFO:
            return LOG_INFO;
        default:
            return level < ZT_LOG_LEVEL_WARNING ? LOG_ERR : LOG_DEBUG;
    }
}

std::string Format(const char* format, std::va_list arguments) {
    std::array<char, 1024> small{};
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(small.data(), small.size(), format, arguments);
    std::string text;
    if (length >= 0 && static_cast<std::size_t>(length) < small.size()) {
        text.assign(small.data(), static_cast<std::size_t>(length));
    } else if (length >= 0) {
        text.resize(static_cast<std::size_t>(length));
        std::vsnprintf(text.data(), text.size() + 1, format, again);
    }
    va_end(again);
    return text;
}

void Write(TState& state, int level, const std::string& text) {
    std::string message;
    AppendOneLine(message, text);
    const int destination = state.settings.destination;
    if ((destination & ZT_LOG_DESTINATION_SYSLOG) != 0) {
        syslog(LOG_USER | SyslogPriority(level), "%s: %s", state.loggerName.c_str(),
               message.c_str());
    }
    if ((destination & (ZT_LOG_DESTINATION_STDOUT | ZT_LOG_DESTINATION_FILE)) == 0) {
        return;
    }
    const std::string line = TimeStamp() + " " + LevelName(level) + " " + state.loggerName + "[" +
                             std::to_string(getpid()) + "]: " + message + "\n";
    if ((destination & ZT_LOG_DESTINATION_STDOUT) != 0) {
        WriteAll(STDOUT_FILENO, line);
    }
    if (state.fileDescriptor >= 0) {
        WriteAll(state.fileDescriptor, line);
    }
}

}  // namespace

int ztLogging_logInit(const char* loggerName) {
    TState& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.loggerName = loggerName != nullptr ? loggerName : "";
    return ReadSettings(state);
}

void ztLogging_logTerm(void) {
    TState& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.loggerName.clear();
}

int ztLogging_logSync(void) {
    TState& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    return ReadSettings(state);
}

int ztLogging_setLogLevel(int level) {
    if (level < 0 || level > HIGHEST_LEVEL) {
        return -1;
    }
    TState& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    if (!state.settingsRead) {
        ReadSettings(state);
    }
    state.settings.level = level;
    return 0;
}

int ztLogging_setLogDestination(int destination) {
    if (!IsDestination(destination)) {
        return -1;
    }
    TState& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    if (!state.settingsRead) {
        ReadSettings(state);
    }
    state.settings.destination = destination;
    OpenFile(state);
    return 0;
}

void ztLogging_log(int level, const char* format, ...) {
    if (format == nullptr) {
        return;
    }
    TState& state = State();
    {
        const std::lock_guard<std::mutex> lock(state.mutex);
        if (!state.settingsRead) {
            ReadSettings(state);
        }
        if (level > state.settings.level) {
            return;
        }
    }
    std::va_list arguments;
    va_start(arguments, format);
    const std::string text = Format(format, arguments);
    va_end(arguments);
    const std::lock_guard<std::mutex> lock(state.mutex);
    Write(state, level, text);
}
