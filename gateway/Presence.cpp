#include "Presence.h"

#include <stdexcept>
#include <utility>

namespace {

// The connection needs a name to connect under; becoming a monitor gives it up at once.
const std::string MONITOR_ID = "OSTEL_PRESENCE";

}  // namespace

TPresence::TPresence(TRelay relay) : m_Relay(std::move(relay)), m_Monitor(newOstelIpcInstance()) {
    TOstelIpc::TOstelIpcSettings settings;
    settings.monitor = true;
    m_Monitor->Configure(settings);
    m_Monitor->AddEventLstener(this, TOstelIpc::ON_APP_CONNECTED_EVENT);
    m_Monitor->AddEventLstener(this, TOstelIpc::ON_APP_DISCONNECTED_EVENT);
    m_Monitor->Init(MONITOR_ID);
    try {
        m_Monitor->Run();
    } catch (const std::runtime_error&) {
        m_Monitor.reset();
        m_Names =
            std::make_unique<TNameWatch>([this](const std::string& eventName,
                                                const std::string& id) { OnEvent(eventName, id); });
    }
}

TPresence::~TPresence() {
    if (m_Monitor) {
        m_Monitor->Stop();
    }
}

void TPresence::OnEvent(const std::string& eventName, const std::string& eventData) {
    if (eventData != MONITOR_ID) {
        m_Relay(eventName, eventData);
    }
}
