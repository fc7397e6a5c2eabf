#ifndef PEER_DOUBLE_H
#define PEER_DOUBLE_H

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "Delivery.h"
#include "WaitUntil.h"

// A peer that is asked to take texts; it refuses the first so many.
class PeerDouble {
public:
    TDelivery::TSend Send() {
        return [this](const std::string& address, const std::string& text, const TStopSignal& stop,
                      TDeadline deadline) {
            {
                const std::lock_guard<std::mutex> lock(m_Mutex);
                m_Times.push_back(std::chrono::steady_clock::now());
            }
            ++m_Attempts;
            if (m_Hangs) {
                WaitFor(-1, 0, stop, deadline);
                return false;
            }
            if (m_Refuses > 0) {
                --m_Refuses;
                return false;
            }
            const std::lock_guard<std::mutex> lock(m_Mutex);
            m_Texts.push_back(address + " " + text);
            return true;
        };
    }

    bool WaitForTexts(std::size_t count) {
        return WaitUntil([&] { return Texts().size() >= count; });
    }

    std::vector<std::string> Texts() {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        return m_Texts;
    }

    // When it was asked.
    std::vector<TDeadline> Times() {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        return m_Times;
    }

    std::atomic<int> m_Attempts{0};
    std::atomic<int> m_Refuses{0};
    std::atomic<bool> m_Hangs{false};

private:
    std::mutex m_Mutex;
    std::vector<std::string> m_Texts;
    std::vector<TDeadline> m_Times;
};

inline TDelivery::TPatience Hasty() {
    TDelivery::TPatience patience;
    patience.firstPause = std::chrono::milliseconds(5);
    patience.longestPause = std::chrono::milliseconds(40);
    patience.attempt = std::chrono::milliseconds(50);
    patience.total = std::chrono::milliseconds(200);
    patience.mostWaiting = 3;
    return patience;
}

#endif
