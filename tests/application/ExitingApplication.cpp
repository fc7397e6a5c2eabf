// An application that leaves main while its worker still receives. What it does not clean up, the
// library must.
//
// It is its own logging library, whose end stands between that of the application object and that
// of the IPC instance: it holds the exit there until the worker has taken more calls and events.
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "TOstelApplication.h"
#include "zt_logging.h"

namespace {

constexpr int ENOUGH = 20;
constexpr int EXIT_NOTHING_ARRIVED = 3;

struct TState {
    std::mutex mutex;
    std::condition_variable changed;
    bool mayEnd = false;
    int events = 0;
    int replies = 0;
};

// Never destroyed: it is used until the very end.
TState& State() {
    static auto* state = new TState;
    return *state;
}

class TEnd : public IOstelObserver {
public:
    void OnEvent(const std::string&, const std::string&) override {
        const std::lock_guard<std::mutex> lock(State().mutex);
        State().mayEnd = true;
        State().changed.notify_all();
    }
};

}  // namespace

int ztLogging_logInit(const char*) {
    return 0;
}

int ztLogging_logSync(void) {
    return 0;
}

int ztLogging_setLogLevel(int) {
    return 0;
}

int ztLogging_setLogDestination(int) {
    return 0;
}

void ztLogging_log(int, const char* format, ...) {
    const std::lock_guard<std::mutex> lock(State().mutex);
    State().events += std::strstr(format, "'%s' - '%s'") != nullptr ? 1 : 0;
    State().replies += std::strstr(format, "'%s' - '%d'") != nullptr ? 1 : 0;
    State().changed.notify_all();
}

void ztLogging_logTerm(void) {
    std::unique_lock<std::mutex> lock(State().mutex);
    State().events = 0;
    State().replies = 0;
    if (!State().changed.wait_for(lock, std::chrono::seconds(20), [] {
            return State().events >= ENOUGH && State().replies >= ENOUGH;
        })) {
        std::_Exit(EXIT_NOTHING_ARRIVED);
    }
}

int main() {
    TEnd end;
    TOstelApplication& application = *TOstelApplication::GetInstance();
    application.AddObserver(&end);
    application.Initialize(OSTEL_MVA);
    std::unique_lock<std::mutex> lock(State().mutex);
    State().changed.wait(lock, [] { return State().mayEnd; });
    lock.unlock();
    application.RemoveObserver(&end);
    return application.IsInitialized() ? 0 : 1;
}
