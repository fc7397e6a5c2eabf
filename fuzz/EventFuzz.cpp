// Events of every name, with any payload, on their way to observers of every kind.
#include <array>

#include "Fuzz.h"
#include "TOstelApplication.h"
#include "TOstelJsonObject.h"
#include "TOstelLogger.h"

namespace {

const std::array<const char*, 11> NAMES = {
    "EVENT_TYPE_CLIENT_CONNECTED",
    "EVENT_TYPE_CLIENT_RECONNECTED",
    "EVENT_TYPE_CLIENT_DISCONNECTED",
    "EVENT_TYPE_CLIENT_UNAUTH_ATTEMPT",
    "EVENT_TYPE_CLIENT_BLOCKED_ATTEMPT",
    "EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT",
    "EVENT_TYPE_PARAM_CHANGED",
    "REMOTE_DATA_MODEL_CHANGED",
    "APP_CONNECTED",
    "APP_DISCONNECTED",
    "ANOTHER",
};

// Counts what it is told and looks at every character of it.
class TObserver : public IOstelObserver,
                  public IOstelCpeClientStateObserver,
                  public IOstelDataModelChangeObserver,
                  public IOstelAppStateObserver {
public:
    void OnEvent(const std::string& name, const std::string& data) override { Take({name, data}); }
    void OnCpeClientStateChanged(TOstelCpeClientState state, const std::string& macAddress,
                                 const std::string& hostName) override {
        Fuzz::Require(state >= 0 && state <= 4, "a client's state is one of five");
        Take({macAddress, hostName});
    }
    void OnDataModelParamChanged(const std::string& name, const std::string& value) override {
        Take({name, value});
    }
    void OnAppStateChanged(TOstelAppState state, const std::string& appName) override {
        Fuzz::Require(state == APP_STATE_CONNECTED || state == APP_STATE_DISCONNECTED,
                      "an application comes or goes");
        Take({appName});
    }

    int Told() const { return m_Told; }

private:
    void Take(std::initializer_list<std::string> texts) {
        ++m_Told;
        for (const std::string& text : texts) {
            Fuzz::Require(text.find('\xFF') == std::string::npos, "a text is UTF-8");
        }
    }

    int m_Told = 0;
};

TOstelApplication& TheApplication() {
    static TOstelApplication& application = [&]() -> TOstelApplication& {
        TOstelApplication& made = *TOstelApplication::GetInstance();
        TOstelLogger::GetInstance()->Init(OSTEL_KTA);
        made.AddDataModelChangeObserver(TOstelLogger::GetInstance());
        return made;
    }();
    return application;
}

bool IsDocument(const std::string& text) {
    return TOstelJsonObject().DecodeFromString(text);
}

}  // namespace

// The first byte chooses the name, the rest is the payload.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Fuzz::TCursor cursor(Fuzz::ToText(data, size));
    const std::string name = NAMES.at(cursor.Byte() % NAMES.size());
    const std::string payload = cursor.Rest();
    TOstelApplication& application = TheApplication();
    TObserver observer;
    application.AddObserver(&observer);
    application.AddCpeClientStateObserver(&observer);
    application.AddDataModelChangeObserver(&observer);
    if (name.compare(0, 4, "APP_") != 0) {
        application.OnEvent(name, payload);
        const bool isKnown = name != "ANOTHER" && name != "REMOTE_DATA_MODEL_CHANGED";
        Fuzz::Require(observer.Told() == (isKnown && IsDocument(payload) ? 1 : 0),
                      "one observer is told once of each document");
    } else if (payload.find('\xFF') == std::string::npos) {
        application.AddAppStateChangeObserver(&observer);
        application.OnEvent(name, payload);
        application.RemoveAppStateChangeObserver(&observer);
        Fuzz::Require(observer.Told() == 1, "who observes applications is told once");
    }
    application.RemoveDataModelChangeObserver(&observer);
    application.RemoveCpeClientStateObserver(&observer);
    application.RemoveObserver(&observer);
    return 0;
}
