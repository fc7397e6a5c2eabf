#ifndef SUBSCRIPTIONS_H
#define SUBSCRIPTIONS_H

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "TlsSession.h"

// Sends texts to one peer, in their order, on a thread of its own. A peer that cannot be reached is
// tried again at growing intervals; a text that it does not take in time is dropped with a log
// line, and so is the oldest one when too many wait.
class TDelivery {
public:
    struct TPatience {
        std::chrono::milliseconds firstPause = std::chrono::milliseconds(500);
        std::chrono::milliseconds attempt = std::chrono::seconds(5);
        std::chrono::milliseconds total = std::chrono::seconds(30);
        std::size_t mostWaiting = 1000;
    };

    // One attempt: false when it failed, was stopped or met the deadline.
    using TSend = std::function<bool(const std::string& address, const std::string& text,
                                     const TStopSignal& stop, TDeadline deadline)>;

    TDelivery(std::string address, TSend send, TPatience patience);
    TDelivery(const TDelivery&) = delete;
    TDelivery& operator=(const TDelivery&) = delete;
    // Gives up what is waiting.
    ~TDelivery();

    // Does not wait.
    void Push(std::string text);

private:
    void Run();
    bool Deliver(const std::string& text);

    const std::string m_Address;
    const TSend m_Send;
    const TPatience m_Patience;
    TStopSignal m_Stop;
    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    std::deque<std::string> m_Texts;
    bool m_IsOver = false;
    std::thread m_Thread;
};

// Which other units want to hear of which parameters.
class TSubscriptions {
public:
    // `serialNumber` is this unit's, by which subscribers tell units from each other.
    TSubscriptions(std::string serialNumber, TDelivery::TSend send,
                   TDelivery::TPatience patience = TDelivery::TPatience());

    // Subscribers are told from each other by their addresses and serial numbers. False when there
    // are too many peers, or too many names at one of them; then nothing is added.
    bool Add(const std::string& address, const std::string& serialNumber,
             const std::vector<std::string>& names);
    void Remove(const std::string& address, const std::string& serialNumber,
                const std::vector<std::string>& names);

    // Does not wait.
    void OnChange(const std::string& name, const std::string& value);

private:
    struct TPeer {
        std::map<std::string, std::set<std::string>> names;  // by serial number
        std::unique_ptr<TDelivery> delivery;
    };

    const std::string m_SerialNumber;
    const TDelivery::TSend m_Send;
    const TDelivery::TPatience m_Patience;
    std::mutex m_Mutex;
    std::map<std::string, TPeer> m_Peers;
};

#endif
