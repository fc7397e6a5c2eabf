#include "RecordingLog.h"

#include <algorithm>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <new>

#include "zt_logging.h"

namespace {

struct TState {
    std::mutex mutex;
    std::condition_variable grown;
    std::vector<RecordingLog::TLine> lines;
    std::vector<std::string> calls;
    int setterResult = 0;
    bool echo = false;
};

// Never destroyed: the library logs while the process exits, too.
TState& State() {
    static auto* state = new TState;
    return *state;
}

int Record(const std::string& call) {
    TState& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.calls.push_back(call);
    if (state.echo) {
        std::fprintf(stderr, "%s\n", call.c_str());
    }
    return state.setterResult;
}

std::string Format(const char* format, std::va_list arguments) {
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    return text;
}

}  // namespace

namespace RecordingLog {

std::vector<TLine> Lines() {
    TState& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    return state.lines;
}

std::vector<std::string> Texts(int level) {
    std::vector<std::string> texts;
    for (const TLine& line : Lines()) {
        if (line.level == level) {
            texts.push_back(line.text);
        }
    }
    return texts;
}

std::string LastFormat(int level) {
    const std::vector<TLine> lines = Lines();
    const auto last = std::find_if(lines.rbegin(), lines.rend(),
                                   [=](const TLine& line) { return line.level == level; });
    return last != lines.rend() ? last->format : "no line of this level";
}

int Count(int level, const std::string& text) {
    const std::vector<std::string> texts = Texts(level);
    return static_cast<int>(std::count(texts.begin(), texts.end(), text));
}

bool WaitFor(int level, const std::string& part, std::chrono::milliseconds limit) {
    TState& state = State();
    std::unique_lock<std::mutex> lock(state.mutex);
    return state.grown.wait_for(lock, limit, [&] {
        return std::any_of(state.lines.begin(), state.lines.end(), [&](const TLine& line) {
            return line.level == level && line.text.find(part) != std::string::npos;
        });
    });
}

std::vector<std::string> Calls() {
    TState& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    return state.calls;
}

void ReturnFromSetters(int result) {
    TState& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.setterResult = result;
}

void EchoCalls() {
    TState& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.echo = true;
}

void Clear() {
    TState& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    // With their room, whose size is chance to whoever measures memory.
    state.lines = std::vector<TLine>();
    state.calls = std::vector<std::string>();
}

}  // namespace RecordingLog

int ztLogging_logInit(const char* loggerName) {
    return Record(std::string("logInit ") + loggerName);
}

void ztLogging_logTerm(void) {
    Record("logTerm");
}

int ztLogging_logSync(void) {
    return Record("logSync");
}

int ztLogging_setLogLevel(int level) {
    return Record("setLogLevel " + std::to_string(level));
}

int ztLogging_setLogDestination(int destination) {
    return Record("setLogDestination " + std::to_string(destination));
}

void ztLogging_log(int level, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    try {
        const std::string text = Format(format, arguments);
        TState& state = State();
        const std::lock_guard<std::mutex> lock(state.mutex);
        state.lines.push_back({level, format, text});
        state.grown.notify_all();
    } catch (const std::bad_alloc&) {
        // The line is lost: a logging library for C throws nothing.
    }
    va_end(arguments);
}
