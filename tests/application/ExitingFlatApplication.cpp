// An application of the flat interface that leaves main with its callbacks in place while its
// worker still receives events: its own.
//
// Its own operation stands in for the one with which the application object's end begins. By then
// the flat interface has gone: what arrives must reach the application object's other observers and
// no callback. The verdict is the exit status.
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>

#include "TOstelApplication.h"
#include "ostelAppLib.h"

namespace {

constexpr int ENOUGH = 20;
constexpr int EXIT_NOTHING_ARRIVED = 3;
constexpr int EXIT_CALLED_BACK = 4;

struct TState {
    std::mutex mutex;
    std::condition_variable changed;
    int events = 0;
    int callbacks = 0;
};

// Never destroyed: it is used until the very end.
TState& State() {
    static auto* state = new TState;
    return *state;
}

void OnUpdate(const char*) {
    const std::lock_guard<std::mutex> lock(State().mutex);
    ++State().callbacks;
    State().changed.notify_all();
}

void SendNext() {
    getOstelIpcInstance()->SendEvent("EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT", "{}");
}

// Each event is followed by another: they never end.
class TWitness : public IOstelObserver {
public:
    void OnEvent(const std::string&, const std::string&) override {
        SendNext();
        const std::lock_guard<std::mutex> lock(State().mutex);
        ++State().events;
        State().changed.notify_all();
    }
};

}  // namespace

void TOstelIpc::RemoveEventLstener(IOstelIpcEventListener*, const std::string&) {
    std::unique_lock<std::mutex> lock(State().mutex);
    const int callbacks = State().callbacks;
    const int enough = State().events + ENOUGH;
    const bool arrived = State().changed.wait_for(lock, std::chrono::seconds(20),
                                                  [&] { return State().events >= enough; });
    if (!arrived) {
        std::_Exit(EXIT_NOTHING_ARRIVED);
    }
    std::_Exit(State().callbacks == callbacks ? EXIT_SUCCESS : EXIT_CALLED_BACK);
}

int main() {
    static auto* const witness = new TWitness;
    TOstelApplication::GetInstance()->AddObserver(witness);
    if (ostelAppLibInit(OSTEL_MVA) != RC_SUCCESS) {
        std::_Exit(EXIT_FAILURE);
    }
    ostelAppLibSubscribe(nullptr, nullptr, OnUpdate);
    SendNext();
    std::unique_lock<std::mutex> lock(State().mutex);
    State().changed.wait(lock, [] { return State().callbacks > 0; });
    return EXIT_FAILURE;  // unless the stand-in above says otherwise
}
