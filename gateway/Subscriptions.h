#ifndef SUBSCRIPTIONS_H
#define SUBSCRIPTIONS_H

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Delivery.h"
#include "SubscribedNames.h"

// Which other units want to hear of which parameters. There are places for so many addresses; when
// all are taken, a new one gets that of a unit which is gone.
class TSubscriptions {
public:
    // `serialNumber` is this unit's, by which subscribers tell units from each other.
    TSubscriptions(std::string serialNumber, TDelivery::TSend send,
                   TDelivery::TPatience patience = TDelivery::TPatience());

    // Subscribers are told from each other by their addresses and serial numbers. What was added,
    // which is what the subscriber did not have yet; nothing at all when there are too many peers,
    // or too many names at one of them, or when it throws std::system_error for want of a thread.
    std::optional<std::vector<std::string>> Add(const std::string& address,
                                                const std::string& serialNumber,
                                                const std::vector<std::string>& names);
    void Remove(const std::string& address, const std::string& serialNumber,
                const std::vector<std::string>& names);

    // Does not wait.
    void OnChange(const std::string& name, const std::string& value);

private:
    struct TPeer {
        TSubscribedNames names;
        std::unique_ptr<TDelivery> delivery;
    };
    using TPeers = std::map<std::string, TPeer>;

    TPeers::iterator LostForLongest();
    std::string Change(const std::string& name, const std::string& value) const;

    const std::string m_SerialNumber;
    const TDelivery::TSend m_Send;
    const TDelivery::TPatience m_Patience;
    std::mutex m_Mutex;
    TPeers m_Peers;
};

#endif
