#ifndef T_OSTEL_SIGNAL_HANDLER_H
#define T_OSTEL_SIGNAL_HANDLER_H

#include <csignal>
#include <functional>
#include <future>
#include <vector>

#include "OstelApi.h"

// Waits for signals without a handler that would interrupt the program wherever it is:
//
//     int main() {
//         TOstelSignalHandler signals({SIGINT, SIGTERM});  // before there are other threads
//         Start();
//         signals.Wait([](int signal) { return signal == SIGTERM; });
//         Stop();
//     }
//
// Construct it before the application starts other threads: they inherit the blocked signals, and
// would be ended by one that they do not block. The signals stay blocked when the object has gone.
//
// One thread at a time may call Wait. A signal that comes before the first Wait has nobody to
// accept it, and ends the waiting for good. The order of the members is part of the binary
// interface.
class OSTEL_API TOstelSignalHandler {
public:
    // Blocks the signals and waits for them from now on. When they cannot be blocked, it logs why,
    // and Wait does not wait. What is no signal's number is logged and left out.
    explicit TOstelSignalHandler(const std::vector<int>& signals);
    TOstelSignalHandler(const TOstelSignalHandler&) = delete;
    TOstelSignalHandler& operator=(const TOstelSignalHandler&) = delete;
    // Blocks until a signal has ended the waiting, if none has.
    virtual ~TOstelSignalHandler();

    // Blocks until the handler has accepted a signal by returning true; one that it does not accept
    // is gone. The handler is called on a thread of its own. A handler that throws, or is empty,
    // ends the waiting, too. After the waiting has ended, every call returns at once.
    void Wait(std::function<bool(int)>&& handler);

private:
    int Accept(const sigset_t& signals) const;
    bool HasHandler() const;

    std::future<int> m_Future;
    std::function<bool(int)> m_Handler;
};

#endif
