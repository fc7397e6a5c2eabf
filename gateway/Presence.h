#ifndef PRESENCE_H
#define PRESENCE_H

#include <functional>
#include <memory>
#include <string>

#include "NameWatch.h"
#include "TOstelIpc.h"

// Watches the bus, on a connection of its own, for applications that come and go, and relays what
// it sees until it is destroyed. As a monitor where the bus allows that, as an ordinary listener
// elsewhere.
class TPresence : public IOstelIpcEventListener {
public:
    // Called on the watching thread with APP_CONNECTED or APP_DISCONNECTED and the application's
    // id.
    using TRelay = std::function<void(const std::string& eventName, const std::string& id)>;

    // Throws std::runtime_error when the bus cannot be watched.
    explicit TPresence(TRelay relay);
    TPresence(const TPresence&) = delete;
    TPresence& operator=(const TPresence&) = delete;
    ~TPresence() override;

    void OnEvent(const std::string& eventName, const std::string& eventData) override;

private:
    TRelay m_Relay;
    std::unique_ptr<TOstelIpc> m_Monitor;
    std::unique_ptr<TNameWatch> m_Names;  // without a monitor
};

#endif
