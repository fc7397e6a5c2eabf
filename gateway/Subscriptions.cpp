#include "Subscriptions.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "Path.h"
#include "RemoteProtocol.h"
#include "TOstelJsonObject.h"
#include "zt_logging.h"

namespace {

constexpr std::size_t MOST_PEERS = 64;
constexpr std::size_t MOST_NAMES = 4096;  // of one peer

using TNames = std::map<std::string, std::set<std::string>>;

std::size_t CountNames(const TNames& names) {
    return std::accumulate(
        names.begin(), names.end(), std::size_t{0},
        [](std::size_t sum, const auto& subscriber) { return sum + subscriber.second.size(); });
}
constexpr std::chrono::seconds LONGEST_PAUSE{8};

}  // namespace

TDelivery::TDelivery(std::string address, TSend send, TPatience patience)
    : m_Address(std::move(address)),
      m_Send(std::move(send)),
      m_Patience(patience),
      m_Thread([this] { Run(); }) {}

TDelivery::~TDelivery() {
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_IsOver = true;
    }
    m_Stop.Raise();
    m_Changed.notify_one();
    m_Thread.join();
}

void TDelivery::Push(std::string text) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_Texts.size() >= m_Patience.mostWaiting) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s: too many changes are waiting, one is dropped",
                      m_Address.c_str());
        m_Texts.pop_front();
    }
    m_Texts.push_back(std::move(text));
    m_Changed.notify_one();
}

void TDelivery::Run() {
    std::unique_lock<std::mutex> lock(m_Mutex);
    while (true) {
        m_Changed.wait(lock, [this] { return m_IsOver || !m_Texts.empty(); });
        if (m_IsOver) {
            return;
        }
        const std::string text = std::move(m_Texts.front());
        m_Texts.pop_front();
        lock.unlock();
        if (!Deliver(text)) {
            ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s cannot be reached, a change is dropped",
                          m_Address.c_str());
        }
        lock.lock();
    }
}

bool TDelivery::Deliver(const std::string& text) {
    using TClock = std::chrono::steady_clock;
    const TDeadline end = TClock::now() + m_Patience.total;
    auto pause = m_Patience.firstPause;
    while (true) {
        if (m_Send(m_Address, text, m_Stop, std::min(end, TClock::now() + m_Patience.attempt))) {
            return true;
        }
        std::unique_lock<std::mutex> lock(m_Mutex);
        const TDeadline next = TClock::now() + pause;
        if (next >= end || m_Changed.wait_until(lock, next, [this] { return m_IsOver; })) {
            return false;
        }
        pause = std::min<std::chrono::milliseconds>(2 * pause, LONGEST_PAUSE);
    }
}

TSubscriptions::TSubscriptions(std::string serialNumber, TDelivery::TSend send,
                               TDelivery::TPatience patience)
    : m_SerialNumber(std::move(serialNumber)), m_Send(std::move(send)), m_Patience(patience) {}

bool TSubscriptions::Add(const std::string& address, const std::string& serialNumber,
                         const std::vector<std::string>& names) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (names.empty()) {
        return true;
    }
    const auto known = m_Peers.find(address);
    if (known == m_Peers.end() ? m_Peers.size() >= MOST_PEERS
                               : CountNames(known->second.names) + names.size() > MOST_NAMES) {
        return false;
    }
    TPeer& peer = m_Peers[address];
    peer.names[serialNumber].insert(names.begin(), names.end());
    if (peer.delivery == nullptr) {
        peer.delivery = std::make_unique<TDelivery>(address, m_Send, m_Patience);
    }
    return true;
}

void TSubscriptions::Remove(const std::string& address, const std::string& serialNumber,
                            const std::vector<std::string>& names) {
    // Ended outside of the lock, since its thread may have to come back first.
    std::unique_ptr<TDelivery> ended;
    const std::lock_guard<std::mutex> lock(m_Mutex);
    const auto peer = m_Peers.find(address);
    if (peer == m_Peers.end()) {
        return;
    }
    const auto subscribed = peer->second.names.find(serialNumber);
    if (subscribed == peer->second.names.end()) {
        return;
    }
    for (const std::string& name : names) {
        subscribed->second.erase(name);
    }
    if (subscribed->second.empty()) {
        peer->second.names.erase(subscribed);
    }
    if (peer->second.names.empty()) {
        ended = std::move(peer->second.delivery);
        m_Peers.erase(peer);
    }
}

void TSubscriptions::OnChange(const std::string& name, const std::string& value) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    for (auto& [address, peer] : m_Peers) {
        const bool isWanted =
            std::any_of(peer.names.begin(), peer.names.end(), [&](const auto& subscriber) {
                return std::any_of(subscriber.second.begin(), subscriber.second.end(),
                                   [&](const std::string& one) { return Covers(one, name); });
            });
        if (!isWanted) {
            continue;
        }
        TOstelJsonObject change;
        change.SetPropertyValue("SERIAL_NUMBER", m_SerialNumber);
        change.SetPropertyValue("NAME", name);
        change.SetPropertyValue("VALUE", value);
        std::string text = change.EncodeToString(-1);
        // Quoted once more inside of the request, it grows.
        if (2 * text.size() > RemoteProtocol::LARGEST_REQUEST) {
            ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s: the value of %s is too long to be told",
                          address.c_str(), name.c_str());
            continue;
        }
        peer.delivery->Push(std::move(text));
    }
}
