// Events of every name, with any payload, on their way to observers of every kind.
#include <array>
#include <optional>
#include <set>
#include <vector>

#include "Fuzz.h"
#include "PrivateMember.h"
#include "TOstelApplication.h"
#include "TOstelJsonObject.h"
#include "TOstelLogger.h"

// A subscription needs another unit; what it leaves behind does not.
struct TRemoteObserversOfApplication {
    friend std::map<IOstelDataModelChangeObserverRemote*, std::set<std::string>>
        TOstelApplication::*MemberOf(TRemoteObserversOfApplication);
};
template struct PrivateMember<TRemoteObserversOfApplication, &TOstelApplication::m_RemoteObservers>;

namespace {

using TTexts = std::vector<std::string>;

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
constexpr std::size_t CLIENT_STATES = 5;
constexpr std::size_t INSTALL = 5;
constexpr std::size_t CHANGED = 6;
constexpr std::size_t CHANGED_REMOTE = 7;
constexpr std::size_t APP_CONNECTED = 8;
constexpr std::size_t APP_DISCONNECTED = 9;

// The empty name is what is left of a document without one.
const std::set<std::string> OBSERVED = {"", "Device.A"};
const std::set<std::string> OBSERVED_BY_ANOTHER = {"Device.A", "Device.B"};

// Keeps what it is told; each kind of notification begins with its own word.
class TObserver : public IOstelObserver,
                  public IOstelCpeClientStateObserver,
                  public IOstelDataModelChangeObserver,
                  public IOstelDataModelChangeObserverRemote,
                  public IOstelAppStateObserver {
public:
    void OnEvent(const std::string& name, const std::string& data) override {
        m_Told.push_back({"event", name, data});
    }
    void OnCpeClientStateChanged(TOstelCpeClientState state, const std::string& macAddress,
                                 const std::string& hostName) override {
        m_Told.push_back({"client", std::to_string(state), macAddress, hostName});
    }
    void OnDataModelParamChanged(const std::string& name, const std::string& value) override {
        m_Told.push_back({"changed", name, value});
    }
    void OnDataModelChangeRemote(const std::string& name, const std::string& value,
                                 const std::string& serialNumber) override {
        m_Told.push_back({"changed there", name, value, serialNumber});
    }
    void OnAppStateChanged(TOstelAppState state, const std::string& appName) override {
        m_Told.push_back({state == APP_STATE_CONNECTED      ? "comes"
                          : state == APP_STATE_DISCONNECTED ? "goes"
                                                            : "neither",
                          appName});
    }

    void Forget() { m_Told.clear(); }

    // Nothing is expected where there is no value.
    void RequireTold(const std::optional<TTexts>& expected) const {
        Fuzz::Require(m_Told.size() == (expected ? 1U : 0U),
                      "one observer is told once, if at all");
        Fuzz::Require(!expected || m_Told.front() == *expected,
                      "an observer is told what the payload says");
    }

private:
    std::vector<TTexts> m_Told;
};

struct TObservers {
    TObserver all;
    TObserver another;  // of other units' changes only
};

TObservers& TheObservers() {
    static TObservers observers;
    return observers;
}

TOstelApplication& TheApplication() {
    static TOstelApplication& application = [&]() -> TOstelApplication& {
        TOstelApplication& made = *TOstelApplication::GetInstance();
        TOstelLogger::GetInstance()->Init(OSTEL_KTA);
        made.AddDataModelChangeObserver(TOstelLogger::GetInstance());
        TObservers& observers = TheObservers();
        made.AddObserver(&observers.all);
        made.AddCpeClientStateObserver(&observers.all);
        made.AddDataModelChangeObserver(&observers.all);
        made.AddAppStateChangeObserver(&observers.all);
        auto& remote = made.*MemberOf(TRemoteObserversOfApplication());
        remote[&observers.all] = OBSERVED;
        remote[&observers.another] = OBSERVED_BY_ANOTHER;
        return made;
    }();
    return application;
}

std::string Text(const TOstelJsonObject& document, const char* name) {
    auto text = document.GetPropertyValue<std::string>(name, "");
    Fuzz::Require(text.find('\xFF') == std::string::npos, "a text is UTF-8");
    return text;
}

std::optional<TTexts> ExpectedRemote(const TOstelJsonObject& document,
                                     const std::set<std::string>& names) {
    TTexts expected = {"changed there", Text(document, "NAME"), Text(document, "VALUE"),
                       Text(document, "SERIAL_NUMBER")};
    return names.count(expected[1]) != 0 ? std::optional(std::move(expected)) : std::nullopt;
}

// Of the observer of all kinds.
std::optional<TTexts> Expected(std::size_t event, const std::string& payload, bool isDocument,
                               const TOstelJsonObject& document) {
    if (event == APP_CONNECTED || event == APP_DISCONNECTED) {
        return TTexts{event == APP_CONNECTED ? "comes" : "goes", payload};
    }
    if (event == CHANGED_REMOTE) {
        return ExpectedRemote(document, OBSERVED);
    }
    if (!isDocument) {
        return std::nullopt;
    }
    if (event < CLIENT_STATES) {
        return TTexts{"client", std::to_string(event), Text(document, "MAC_ADDRESS"),
                      Text(document, "HOST_NAME")};
    }
    if (event == INSTALL) {
        return TTexts{"event", NAMES.at(event), Text(document, "URL")};
    }
    if (event == CHANGED) {
        return TTexts{"changed", Text(document, "DATA_MODEL_NAME"),
                      Text(document, "DATA_MODEL_VALUE")};
    }
    return std::nullopt;
}

}  // namespace

// The first byte chooses the name, the rest is the payload.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::size_t event = *data % NAMES.size();
    const std::string payload = Fuzz::ToText(data + 1, size - 1);
    TOstelApplication& application = TheApplication();
    TObservers& observers = TheObservers();
    observers.all.Forget();
    observers.another.Forget();
    application.OnEvent(NAMES.at(event), payload);
    TOstelJsonObject document;
    const bool isDocument = document.DecodeFromString(payload);
    observers.all.RequireTold(Expected(event, payload, isDocument, document));
    observers.another.RequireTold(
        event == CHANGED_REMOTE ? ExpectedRemote(document, OBSERVED_BY_ANOTHER) : std::nullopt);
    return 0;
}
