#include "Commands.h"

#include <cstdlib>
#include <future>
#include <optional>
#include <utility>

#include "Arguments.h"
#include "Output.h"
#include "TOstelApplication.h"
#include "TOstelDataMapper.h"

namespace Commands {

namespace {

using Arguments::TParams;

constexpr int NOT_ACTIVE = 1;
constexpr int CLIENT_COUNT = OSTEL_DATA_PROBER + 1;

TOstelApplication& Application() {
    return *TOstelApplication::GetInstance();
}

bool IsActive(const std::string& name) {
    bool active = false;
    Application().IsAppActive(name, active);
    return active;
}

// Who leaves out the point at the end of a path is told the same as who misspells a name.
void ComplainOfMissingPoint(const std::string& name) {
    TParams below;
    if (name.back() != '.' && Application().GetParam(name + '.', below) == RC_SUCCESS) {
        Output::Complain("'" + name + ".' is there: the path of an object ends in a point");
    }
}

}  // namespace

int Get(const std::vector<std::string>& names, bool json) {
    TParams all;
    int status = 0;
    for (const std::string& name : names) {
        TParams params;
        const tOstelReturnCode code = Application().GetParam(name, params);
        if (code != RC_SUCCESS) {
            status = Output::Fail(name, code);
            if (code == RC_INVALID_PARAM_NAME && !name.empty()) {
                ComplainOfMissingPoint(name);
            }
            continue;
        }
        all.insert(all.end(), params.begin(), params.end());
    }
    if (status == 0 || !all.empty()) {
        Output::Print(all, json);
    }
    return status;
}

int Set(const std::vector<std::string>& assignments, bool commit, bool json) {
    const std::optional<TParams> given = Arguments::Assignments(assignments);
    if (!given) {
        return Output::USAGE_ERROR;
    }
    // A single one goes the way that every data-model service knows.
    const bool isSingle = given->size() == 1;
    const tOstelReturnCode code =
        isSingle ? Application().SetParam(given->front().name, given->front().value, commit)
                 : Application().SetParamArray(*given, commit);
    if (code != RC_SUCCESS) {
        return Output::Fail(Arguments::Names(*given) + (isSingle ? "" : ": none is written"), code);
    }
    Output::PrintOk(json);
    return 0;
}

int Commit(bool json) {
    const tOstelReturnCode code = Application().Commit();
    if (code != RC_SUCCESS) {
        return Output::Fail("commit", code);
    }
    Output::PrintOk(json);
    return 0;
}

int Event(const std::string& name, const std::string& data, bool json) {
    try {
        getOstelIpcInstance()->SendEvent(name, data);
    } catch (const std::runtime_error&) {
        return Output::Fail(name, RC_RUNTIME_ERROR);
    }
    Output::PrintOk(json);
    return 0;
}

int Apps(bool json) {
    // At the same time: one that hangs costs its second once.
    std::vector<std::pair<std::string, std::future<bool>>> answers;
    for (int id = 0; id < CLIENT_COUNT; ++id) {
        const std::string& name =
            TOstelDataMapper::GetInstance()->MapEnumToString(static_cast<tOstelClientId>(id));
        answers.emplace_back(name,
                             std::async(std::launch::async, [name] { return IsActive(name); }));
    }
    TOstelJsonObject document;
    void* array = document.NewJsonArray();
    for (auto& [name, answer] : answers) {
        if (!answer.get()) {
            continue;
        }
        document.AppendJsonArray(&array, document.ToJson(name));
        if (!json) {
            Output::Print(name);
        }
    }
    document.SetJsonObject("APPS", array);
    if (json) {
        Output::Print(document);
    }
    return 0;
}

void ComplainWithoutGateway() {
    if (!IsActive("OSTEL_DISPATCHER")) {
        Output::Complain("no gateway answers on this bus (see 'ostelcli info')");
    }
}

int Active(const std::string& name, bool json) {
    bool active = false;
    const tOstelReturnCode code = Application().IsAppActive(name, active);
    // Who is not there cannot answer; anything else that fails says nothing about the application.
    if (name.empty() || code == RC_RUNTIME_ERROR) {
        return Output::Fail(name, code);
    }
    if (json) {
        TOstelJsonObject document;
        document.SetPropertyValue("NAME", name);
        document.SetPropertyValue("ACTIVE", active);
        Output::Print(document);
    } else {
        Output::Print(name + (active ? "  active" : "  not active"));
    }
    return active ? 0 : NOT_ACTIVE;
}

int Info(bool json) {
    const char* const address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
    const bool dispatcher = IsActive("OSTEL_DISPATCHER");
    TParams facts = {
        {"Library", Application().GetVersion()},
        {"Bus", address != nullptr ? address : "the system's"},
        {"Dispatcher", dispatcher ? "active" : "not there"},
    };
    for (const char* name : {"Device.DeviceInfo.ModelName", "Device.DeviceInfo.SerialNumber",
                             "Device.DeviceInfo.SoftwareVersion"}) {
        std::string value;
        if (dispatcher && Application().GetParam(name, value) == RC_SUCCESS) {
            facts.push_back({name, value});
        }
    }
    if (!json) {
        Output::Print(facts, false);
        return 0;
    }
    TOstelJsonObject document;
    for (const auto& fact : facts) {
        document.SetPropertyValue(fact.name, fact.value);
    }
    Output::Print(document);
    return 0;
}

}  // namespace Commands
