#include "Watch.h"

#include <set>
#include <utility>

#include "Notices.h"
#include "TOstelApplication.h"
#include "TOstelDataMapper.h"

namespace {

class TWatcher : public IOstelDataModelChangeObserver,
                 public IOstelCpeClientStateObserver,
                 public IOstelAppStateObserver,
                 public IOstelIpcEventListener {
public:
    TWatcher(std::string prefix, std::optional<unsigned long> count, bool json)
        : m_Prefix(std::move(prefix)), m_Notices(count, json) {
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
            m_Notices.Notice("PARAM", {{"NAME", name}, {"VALUE", value}});
        }
    }

    void OnCpeClientStateChanged(TOstelCpeClientState state, const std::string& macAddress,
                                 const std::string& hostName) override {
        const auto& name = TOstelDataMapper::GetInstance()->MapEnumToString(
            static_cast<tOstelAppClientDeviceState>(state));
        m_Notices.Notice("CLIENT",
                         {{"STATE", name}, {"MAC_ADDRESS", macAddress}, {"HOST_NAME", hostName}});
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
                                                     "Disconnected",
                                                     "NameAcquired",
                                                     "NameLost"};
        if (others.count(name) == 0) {
            m_Notices.Notice("EVENT", {{"NAME", name}, {"DATA", data}});
        }
    }

    void OnAppStateChanged(TOstelAppState state, const std::string& appName) override {
        m_Notices.Notice("APP",
                         {{"NAME", appName},
                          {"STATE", state == APP_STATE_CONNECTED ? "CONNECTED" : "DISCONNECTED"}});
    }

    int Wait() { return m_Notices.Wait(); }

private:
    std::string m_Prefix;
    TNotices m_Notices;
};

}  // namespace

int Watch(const std::string& prefix, std::optional<unsigned long> count, bool json) {
    return TWatcher(prefix, count, json).Wait();
}
