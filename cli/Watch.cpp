#include "Watch.h"

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <initializer_list>
#include <set>
#include <utility>

#include "Output.h"
#include "TOstelApplication.h"
#include "TOstelDataMapper.h"

namespace {

sigset_t StopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}

// Notices arrive on the library's worker thread, one at a time. The one that fills the count wakes
// the main thread by a signal, the one thing that it waits for.
class TWatcher : public IOstelDataModelChangeObserver,
                 public IOstelCpeClientStateObserver,
                 public IOstelAppStateObserver,
                 public IOstelIpcEventListener {
public:
    TWatcher(std::string prefix, std::optional<unsigned long> count, bool json)
        : m_Prefix(std::move(prefix)), m_Left(count), m_Json(json) {
        TOstelApplication& application = *TOstelApplication::GetInstance();
        application.AddDataModelChangeObserver(this);
        if (m_Prefix.empty()) {
            application.AddCpeClientStateObserver(this);
            application.AddAppStateChangeObserver(this);
            getOstelIpcInstance()->AddEventLstener(this, "");
        }
    }

    TWatcher(const TWatcher&) = delete;
    TWatcher& operator=(const TWatcher&) = delete;

    ~TWatcher() override {
        TOstelApplication& application = *TOstelApplication::GetInstance();
        application.RemoveDataModelChangeObserver(this);
        application.RemoveCpeClientStateObserver(this);
        application.RemoveAppStateChangeObserver(this);
        getOstelIpcInstance()->RemoveEventLstener(this, "");
    }

    void OnDataModelParamChanged(const std::string& name, const std::string& value) override {
        if (name.compare(0, m_Prefix.size(), m_Prefix) == 0) {
            Notice("PARAM", {{"NAME", name}, {"VALUE", value}});
        }
    }

    void OnCpeClientStateChanged(TOstelCpeClientState state, const std::string& macAddress,
                                 const std::string& hostName) override {
        const auto& name = TOstelDataMapper::GetInstance()->MapEnumToString(
            static_cast<tOstelAppClientDeviceState>(state));
        Notice("CLIENT", {{"STATE", name}, {"MAC_ADDRESS", macAddress}, {"HOST_NAME", hostName}});
    }

    // Every event comes here; those that are told above, and the bus's own, are left out.
    void OnEvent(const std::string& name, const std::string& data) override {
        static const std::set<std::string> others = {"EVENT_TYPE_CLIENT_CONNECTED",
                                                     "EVENT_TYPE_CLIENT_RECONNECTED",
                                                     "EVENT_TYPE_CLIENT_DISCONNECTED",
                                                     "EVENT_TYPE_CLIENT_UNAUTH_ATTEMPT",
                                                     "EVENT_TYPE_CLIENT_BLOCKED_ATTEMPT",
                                                     "EVENT_TYPE_PARAM_CHANGED",
                                                     TOstelIpc::ON_APP_CONNECTED_EVENT,
                                                     TOstelIpc::ON_APP_DISCONNECTED_EVENT,
                                                     "NameAcquired",
                                                     "NameLost"};
        if (others.count(name) == 0) {
            Notice("EVENT", {{"NAME", name}, {"DATA", data}});
        }
    }

    void OnAppStateChanged(TOstelAppState state, const std::string& appName) override {
        Notice("APP", {{"NAME", appName},
                       {"STATE", state == APP_STATE_CONNECTED ? "CONNECTED" : "DISCONNECTED"}});
    }

private:
    using TMembers = std::initializer_list<std::pair<const char*, std::string>>;

    void Notice(const std::string& kind, TMembers members) {
        if (m_Left && *m_Left == 0) {
            return;
        }
        if (m_Json) {
            TOstelJsonObject document;
            document.SetPropertyValue("KIND", kind);
            for (const auto& [name, value] : members) {
                document.SetPropertyValue(name, value);
            }
            Output::Print(document);
        } else {
            std::string line = kind;
            for (const auto& member : members) {
                line += "  " + member.second;
            }
            Output::Print(line);
        }
        if (m_Left && --*m_Left == 0) {
            kill(getpid(), SIGTERM);
        }
    }

    std::string m_Prefix;
    std::optional<unsigned long> m_Left;
    bool m_Json;
};

}  // namespace

void BlockStopSignals() {
    const sigset_t signals = StopSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

int Watch(const std::string& prefix, std::optional<unsigned long> count, bool json) {
    const TWatcher watcher(prefix, count, json);
    // On standard error: whoever waits for it knows that nothing is missed from here on.
    std::fputs("ostelcli: watching\n", stderr);
    const sigset_t signals = StopSignals();
    int signal = 0;
    sigwait(&signals, &signal);
    return 0;
}
