#ifndef DELIVERY_H
#define DELIVERY_H

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "TlsSession.h"

// Sends texts to one peer, in their order, on a thread of its own. A peer that cannot be reached is
// tried again at growing intervals. A text that it has not taken in time, however many are before
// it, is dropped with a log line, and so is the oldest one when too many wait. A peer that takes
// texts slowly loses none for it.
class TDelivery {
public:
    struct TPatience {
        std::chrono::milliseconds firstPause = std::chrono::milliseconds(500);
        std::chrono::milliseconds longestPause = std::chrono::seconds(8);
        std::chrono::milliseconds attempt = std::chrono::seconds(5);
        std::chrono::milliseconds total = std::chrono::seconds(30);  // of a text, from Push on
        std::size_t mostWaiting = 1000;
    };

    // One attempt: false when it failed, was stopped or met the deadline.
    using TSend = std::function<bool(const std::string& address, const std::string& text,
                                     const TStopSignal& stop, TDeadline deadline)>;

    // Throws std::system_error when there is no thread for it.
    TDelivery(std::string address, TSend send, TPatience patience);
    TDelivery(const TDelivery&) = delete;
    TDelivery& operator=(const TDelivery&) = delete;
    // Gives up what is waiting.
    ~TDelivery();

    // Does not wait.
    void Push(std::string text);

    // Since when texts are dropped and none is taken.
    std::optional<TDeadline> LostSince() const;
    // The peer has been heard of.
    void OnSignOfLife();

private:
    struct TWaiting {
        std::string text;
        TDeadline end;
    };

    void Run();
    bool Deliver(const TWaiting& waiting);
    void DropWhatIsLate();

    const std::string m_Address;
    const TSend m_Send;
    const TPatience m_Patience;
    TStopSignal m_Stop;
    mutable std::mutex m_Mutex;
    std::condition_variable m_Changed;
    std::deque<TWaiting> m_Waiting;
    std::optional<TDeadline> m_LostSince;
    bool m_IsOver = false;
    std::thread m_Thread;
};

#endif
