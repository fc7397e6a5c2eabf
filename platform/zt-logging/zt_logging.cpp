// The bundled stand-in for the device's logging library. One lock guards the state and stays held
// while a line is written, so that lines keep their order in every destination.
#include "zt_logging.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/time.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <mutex>
#include <string>
#include <string_view>

#include "ZtSettings.h"

namespace {

constexpr int STUCK_READER_MS = 1000;

struct TState {
    std::mutex mutex;
    std::string loggerName;
    TZtSettings settings;
    bool settingsRead = false;
    int fileDescriptor = -1;
};

TState* MakeState();

// Never destroyed: other libraries and threads log until the very end of the process.
TState& State() {
    static TState* const state = MakeState();
    return *state;
}

// A child must not find the lock held by a thread that it did not inherit.
TState* MakeState() {
    auto* const state = new TState;
    pthread_atfork([] { State().mutex.lock(); }, [] { State().mutex.unlock(); },
                   [] { State().mutex.unlock(); });
    return state;
}

class TErrnoKeeper {
public:
    TErrnoKeeper() = default;
    TErrnoKeeper(const TErrnoKeeper&) = delete;
    TErrnoKeeper& operator=(const TErrnoKeeper&) = delete;
    ~TErrnoKeeper() { errno = m_Errno; }

private:
    int m_Errno = errno;
};

// A descriptor that its owner made non-blocking and whose reader is slow gets a moment, since half
// a line would run into the next one.
bool MayWriteAgain(int descriptor) {
    pollfd waiting = {descriptor, POLLOUT, 0};
    return errno == EINTR || (errno == EAGAIN && poll(&waiting, 1, STUCK_READER_MS) == 1);
}

void WriteAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(descriptor, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (!MayWriteAgain(descriptor)) {
            return;
        }
    }
}

// Not blocking: a FIFO without a reader is an error here and not a reason to hang.
int OpenFile(const std::string& path) {
    if (path.empty()) {
        ZtComplain("the file destination has no file");
        return -1;
    }
    const int descriptor =
        open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0640);
    if (descriptor < 0) {
        ZtComplain("cannot write the log file " + path + ": " + std::strerror(errno));
    }
    return descriptor;
}

bool Use(TState& state, const TZtSettings& settings) {
    int descriptor = -1;
    if ((settings.destination & ZT_LOG_DESTINATION_FILE) != 0) {
        descriptor = OpenFile(settings.file);
        if (descriptor < 0) {
            return false;
        }
    }
    if (state.fileDescriptor >= 0) {
        close(state.fileDescriptor);
    }
    state.fileDescriptor = descriptor;
    state.settings = settings;
    return true;
}

bool ReadSettings(TState& state) {
    state.settingsRead = true;
    const std::optional<TZtSettings> settings = ReadZtSettings();
    return settings && Use(state, *settings);
}

// A line feed inside a text would forge the start of another line, an escape sequence would reach
// the reader's terminal.
std::string OneLine(std::string_view text) {
    while (!text.empty() && text.back() == '\n') {
        text.remove_suffix(1);
    }
    std::string line;
    line.reserve(text.size());
    for (const char c : text) {
        if (c == '\n') {
            line += "\\n";
        } else if ((static_cast<unsigned char>(c) < ' ' && c != '\t') || c == '\x7f') {
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), "\\x%02x", static_cast<unsigned>(c));
            line += escape.data();
        } else {
            line += c;
        }
    }
    return line;
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

struct TLevel {
    const char* name;
    int priority;
};

TLevel LevelOf(int level) {
    switch (level) {
        case ZT_LOG_LEVEL_WARNING:
            return {"WARNING", LOG_WARNING};
        case ZT_LOG_LEVEL_NOTICE:
            return {"NOTICE", LOG_NOTICE};
        case ZT_LOG_LEVEL_INFO:
            return {"INFO", LOG_INFO};
        default:
            return level < ZT_LOG_LEVEL_WARNING ? TLevel{"ERROR", LOG_ERR}
                                                : TLevel{"DEBUG", LOG_DEBUG};
    }
}

// A format that cannot be filled in is logged as it is rather than not at all.
std::string Format(const char* format, std::va_list arguments) {
    std::array<char, 1024> small{};
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(small.data(), small.size(), format, arguments);
    std::string text = format;
    if (length >= 0 && static_cast<std::size_t>(length) < small.size()) {
        text.assign(small.data(), static_cast<std::size_t>(length));
    } else if (length >= 0) {
        text.resize(static_cast<std::size_t>(length));
        std::vsnprintf(text.data(), text.size() + 1, format, again);
    }
    va_end(again);
    return text;
}

void Write(const TState& state, int level, const std::string& text) {
    const std::string message = OneLine(text);
    const TLevel words = LevelOf(level);
    const int destination = state.settings.destination;
    if ((destination & ZT_LOG_DESTINATION_SYSLOG) != 0) {
        syslog(LOG_USER | words.priority, "%s: %s", state.loggerName.c_str(), message.c_str());
    }
    if ((destination & (ZT_LOG_DESTINATION_STDOUT | ZT_LOG_DESTINATION_FILE)) == 0) {
        return;
    }
    const std::string line = TimeStamp() + " " + words.name + " " + state.loggerName + "[" +
                             std::to_string(getpid()) + "]: " + message + "\n";
    if ((destination & ZT_LOG_DESTINATION_STDOUT) != 0) {
        WriteAll(STDOUT_FILENO, line);
    }
    if ((destination & ZT_LOG_DESTINATION_FILE) != 0) {
        WriteAll(state.fileDescriptor, line);
    }
}

// Runs `action` on the state, under its lock and with the settings read; callers are C.
template <typename TAction>
bool WithState(TAction action) {
    try {
        TState& state = State();
        const std::lock_guard<std::mutex> lock(state.mutex);
        if (!state.settingsRead) {
            ReadSettings(state);
        }
        return action(state);
    } catch (const std::exception& e) {
        ZtComplain(e.what());
        return false;
    }
}

int Result(bool good) {
    return good ? 0 : -1;
}

}  // namespace

int ztLogging_logInit(const char* loggerName) {
    return Result(WithState([loggerName](TState& state) {
        state.loggerName = OneLine(loggerName != nullptr ? loggerName : "");
        return true;
    }));
}

void ztLogging_logTerm(void) {
    WithState([](TState& state) {
        state.loggerName.clear();
        return true;
    });
}

int ztLogging_logSync(void) {
    return Result(WithState([](TState& state) { return ReadSettings(state); }));
}

int ztLogging_setLogLevel(int level) {
    return Result(WithState([level](TState& state) {
        if (!IsZtLevel(level)) {
            return false;
        }
        state.settings.level = level;
        return true;
    }));
}

int ztLogging_setLogDestination(int destination) {
    return Result(WithState([destination](TState& state) {
        TZtSettings settings = state.settings;
        settings.destination = destination;
        return IsZtDestination(destination) && Use(state, settings);
    }));
}

void ztLogging_log(int level, const char* format, ...) {
    const TErrnoKeeper keeper;
    const auto isWanted = [level](const TState& state) { return level <= state.settings.level; };
    if (format == nullptr || !WithState(isWanted)) {
        return;
    }
    std::va_list arguments;
    va_start(arguments, format);
    try {
        const std::string text = Format(format, arguments);
        WithState([&](const TState& state) {
            Write(state, level, text);
            return true;
        });
    } catch (const std::exception& e) {
        ZtComplain(e.what());
    }
    va_end(arguments);
}
