#include "Subscriptions.h"

#include <utility>

#include "RemoteProtocol.h"
#include "TOstelJsonObject.h"
#include "zt_logging.h"

namespace {

constexpr std::size_t MOST_PEERS = 64;

}  // namespace

TSubscriptions::TSubscriptions(std::string serialNumber, TDelivery::TSend send,
                               TDelivery::TPatience patience)
    : m_SerialNumber(std::move(serialNumber)), m_Send(std::move(send)), m_Patience(patience) {}

std::optional<std::vector<std::string>> TSubscriptions::Add(const std::string& address,
                                                            const std::string& serialNumber,
                                                            const std::vector<std::string>& names) {
    // Ended outside of the lock, since its thread may have to come back first.
    std::unique_ptr<TDelivery> ended;
    const std::lock_guard<std::mutex> lock(m_Mutex);
    const auto known = m_Peers.find(address);
    if (known != m_Peers.end()) {
        known->second.delivery->OnSignOfLife();
        return known->second.names.Add(serialNumber, names);
    }
    TPeer peer;
    auto added = peer.names.Add(serialNumber, names);
    if (!added || added->empty()) {
        return added;
    }
    peer.delivery = std::make_unique<TDelivery>(address, m_Send, m_Patience);
    if (m_Peers.size() >= MOST_PEERS) {
        const auto lost = LostForLongest();
        if (lost == m_Peers.end()) {
            return std::nullopt;
        }
        ztLogging_log(ZT_LOG_LEVEL_WARNING, "%s is gone, its subscriptions make room for %s",
                      lost->first.c_str(), address.c_str());
        ended = std::move(lost->second.delivery);
        m_Peers.erase(lost);
    }
    m_Peers.emplace(address, std::move(peer));
    return added;
}

TSubscriptions::TPeers::iterator TSubscriptions::LostForLongest() {
    auto longest = m_Peers.end();
    TDeadline since = TDeadline::max();
    for (auto peer = m_Peers.begin(); peer != m_Peers.end(); ++peer) {
        const auto lost = peer->second.delivery->LostSince();
        if (lost && *lost < since) {
            since = *lost;
            longest = peer;
        }
    }
    return longest;
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
    peer->second.names.Remove(serialNumber, names);
    if (peer->second.names.Empty()) {
        ended = std::move(peer->second.delivery);
        m_Peers.erase(peer);
    }
}

std::string TSubscriptions::Change(const std::string& name, const std::string& value) const {
    TOstelJsonObject change;
    change.SetPropertyValue("SERIAL_NUMBER", m_SerialNumber);
    change.SetPropertyValue("NAME", name);
    change.SetPropertyValue("VALUE", value);
    return change.EncodeToString(-1);
}

void TSubscriptions::OnChange(const std::string& name, const std::string& value) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    std::string change;
    for (auto& [address, peer] : m_Peers) {
        if (!peer.names.Cover(name)) {
            continue;
        }
        if (change.empty()) {
            change = Change(name, value);
            // Nobody takes it: quoted once more inside of the request, it may have grown.
            if (RemoteProtocol::EventRequest(RemoteProtocol::CHANGE_EVENT, change).size() >
                RemoteProtocol::LARGEST_REQUEST) {
                ztLogging_log(ZT_LOG_LEVEL_ERROR,
                              "The value of %s is too long to be told to other units",
                              name.c_str());
                return;
            }
        }
        peer.delivery->Push(change);
    }
}
