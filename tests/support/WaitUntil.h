#ifndef WAIT_UNTIL_H
#define WAIT_UNTIL_H

#include <chrono>
#include <thread>

// Waits for a condition that another thread or process brings about and that tells nobody when it
// has. False when it has not come to be before the deadline.
template <typename Condition>
bool WaitUntil(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(30)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

#endif
