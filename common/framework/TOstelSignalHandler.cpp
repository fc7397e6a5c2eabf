#include "TOstelSignalHandler.h"

#include <cstring>
#include <mutex>
#include <utility>

#include "zt_logging.h"

namespace {

// Between the thread that installs a handler and the one that looks for it. One for all objects, as
// applications know the size of each.
std::mutex s_HandlerMutex;

}  // namespace

TOstelSignalHandler::TOstelSignalHandler(const std::vector<int>& signals) {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : signals) {
        if (sigaddset(&set, signal) != 0) {
            ztLogging_log(ZT_LOG_LEVEL_WARNING, "[TOstelSignalHandler] '%d' is not a signal.",
                          signal);
        }
    }
    const int error = pthread_sigmask(SIG_BLOCK, &set, nullptr);
    if (error != 0) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "[TOstelSignalHandler] Can't update sigmask - '%s'.",
                      std::strerror(error));
        return;
    }
    // Without a thread to be had, the first Wait does the waiting.
    m_Future = std::async([this, set] { return Accept(set); });
}

TOstelSignalHandler::~TOstelSignalHandler() {
    // Waits for the thread while the members that it looks at are still there.
    m_Future = {};
}

void TOstelSignalHandler::Wait(std::function<bool(int)>&& handler) {
    if (!m_Future.valid()) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "[TOstelSignalHandler] Future object is not available.");
        return;
    }
    {
        // The former one ends when the lock is free: what it holds may wait for other signals.
        std::function<bool(int)> former(std::move(handler));
        const std::lock_guard<std::mutex> lock(s_HandlerMutex);
        m_Handler.swap(former);
    }
    m_Future.wait();
}

int TOstelSignalHandler::Accept(const sigset_t& signals) const {
    while (true) {
        int signal = 0;
        sigwait(&signals, &signal);
        // A signal without a handler ends the waiting: kept, those who start late must not wait for
        // a signal that has gone.
        if (!HasHandler()) {
            throw std::bad_function_call();
        }
        if (m_Handler(signal)) {
            return signal;
        }
    }
}

bool TOstelSignalHandler::HasHandler() const {
    const std::lock_guard<std::mutex> lock(s_HandlerMutex);
    return static_cast<bool>(m_Handler);
}
