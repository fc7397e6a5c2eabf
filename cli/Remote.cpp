#include "Remote.h"

#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>

#include "Arguments.h"
#include "Notices.h"
#include "Output.h"
#include "Progress.h"
#include "TOstelApplication.h"

namespace Remote {

namespace {

using Arguments::TParams;

constexpr int NO_ANSWER = 75;

TOstelApplication& Application() {
    return *TOstelApplication::GetInstance();
}

// Without certificates the library would send in plain text; the tool does not.
bool Secure(const TUnit& unit) {
    const std::string directory = unit.certificates + "/";
    const bool done =
        Application().EnableSecureRemote(directory + "ostel.cert.pem", directory + "ostel.key.pem",
                                         directory + "ostelRoot.cert.pem");
    if (!done) {
        Output::Complain(unit.certificates +
                         ": no usable certificates (--certs or OSTEL_CERTS names another "
                         "directory, the log tells what is wrong with this one)");
    }
    return done;
}

// A request has no end of its own when the unit keeps silent; then the program ends instead, after
// it has told what it came to.
template <typename TRequest>
tOstelReturnCode Bounded(
    const TUnit& unit, TRequest request, const std::function<void()>& tell = [] {}) {
    auto answer = std::async(std::launch::async, request);
    if (answer.wait_for(std::chrono::seconds(unit.timeout)) != std::future_status::ready) {
        tell();
        Output::Complain(unit.host + ": no answer within " + std::to_string(unit.timeout) + " s");
        std::_Exit(Output::Finish(NO_ANSWER));
    }
    return answer.get();
}

int Finish(const std::string& subject, tOstelReturnCode code, bool json) {
    if (code != RC_SUCCESS) {
        return Output::FailElsewhere(subject, code);
    }
    Output::PrintOk(json);
    return 0;
}

class TWatcher : public IOstelDataModelChangeObserverRemote {
public:
    TWatcher(std::optional<unsigned long> count, bool json) : m_Notices(count, json) {}

    void OnDataModelChangeRemote(const std::string& name, const std::string& value,
                                 const std::string& serialNumber) override {
        m_Begun.wait();
        m_Notices.Notice("REMOTE",
                         {{"SERIAL_NUMBER", serialNumber}, {"NAME", name}, {"VALUE", value}});
    }

    // The values have been shown: a change that comes sooner waits, or an old one would be shown
    // last.
    void Begin() { m_Begin.set_value(); }

    int Wait() { return m_Notices.Wait(); }

private:
    TNotices m_Notices;
    std::promise<void> m_Begin;
    const std::shared_future<void> m_Begun = m_Begin.get_future();
};

// Observers are told of the very names that they gave, so these have to be those of parameters.
tOstelReturnCode Expand(const TUnit& unit, const std::vector<std::string>& names, TParams& all) {
    for (const std::string& name : names) {
        TParams params;
        const tOstelReturnCode code =
            Bounded(unit, [&] { return Application().GetParamRemote(unit.host, name, params); });
        if (code != RC_SUCCESS) {
            return code;
        }
        all.insert(all.end(), params.begin(), params.end());
    }
    return all.empty() ? RC_NOT_FOUND : RC_SUCCESS;
}

}  // namespace

int Get(const TUnit& unit, const std::vector<std::string>& names, bool json) {
    if (!Secure(unit)) {
        return Output::NO_FILE;
    }
    TParams all;
    int status = 0;
    const auto print = [&] {
        if (!all.empty()) {
            Output::Print(all, json);
        }
    };
    for (const std::string& name : names) {
        TParams params;
        const tOstelReturnCode code = Bounded(
            unit, [&] { return Application().GetParamRemote(unit.host, name, params); }, print);
        if (code != RC_SUCCESS) {
            status = Output::FailElsewhere(unit.host + ": " + name, code);
            continue;
        }
        all.insert(all.end(), params.begin(), params.end());
    }
    if (status == 0 || !all.empty()) {
        Output::Print(all, json);
    }
    return status;
}

int Set(const TUnit& unit, const std::vector<std::string>& assignments, bool commit, bool json) {
    const std::optional<TParams> params = Arguments::Assignments(assignments);
    if (!params) {
        return Output::USAGE_ERROR;
    }
    if (!Secure(unit)) {
        return Output::NO_FILE;
    }
    std::size_t staged = 0;
    const auto tell = [&] {
        if (staged > 0) {
            Output::Complain(std::to_string(staged) + " earlier values are staged on " + unit.host +
                             ", not committed");
        }
    };
    for (const auto& param : *params) {
        const bool isLast = &param == &params->back();
        const auto set = [&] {
            return Application().SetParamRemote(unit.host, param.name, param.value,
                                                commit && isLast);
        };
        const tOstelReturnCode code = Bounded(unit, set, tell);
        if (code != RC_SUCCESS) {
            tell();
            return Output::FailElsewhere(unit.host + ": " + param.name, code);
        }
        ++staged;
    }
    Output::PrintOk(json);
    return 0;
}

int Commit(const TUnit& unit, bool json) {
    if (!Secure(unit)) {
        return Output::NO_FILE;
    }
    return Finish(unit.host, Bounded(unit, [&] { return Application().CommitRemote(unit.host); }),
                  json);
}

int File(const TUnit& unit, const std::string& name, const std::string& file) {
    if (!Secure(unit)) {
        return Output::NO_FILE;
    }
    std::vector<char> bytes;
    std::optional<TProgress> progress(std::in_place, "fetching " + name);
    const tOstelReturnCode code = Bounded(
        unit, [&] { return Application().GetFileRemote(unit.host, name, bytes); },
        [&] { progress.reset(); });
    if (code == RC_SUCCESS) {
        progress->Finish();
    }
    progress.reset();
    if (code != RC_SUCCESS) {
        return Output::FailElsewhere(unit.host + ": " + name, code);
    }
    return Output::Write(file, std::string(bytes.begin(), bytes.end()));
}

int Event(const TUnit& unit, const std::string& name, const std::string& data, bool json) {
    if (!Secure(unit)) {
        return Output::NO_FILE;
    }
    return Finish(
        unit.host + ": " + name,
        Bounded(unit, [&] { return Application().SendEventRemote(unit.host, name, data); }), json);
}

int Watch(const TUnit& unit, const std::vector<std::string>& names,
          std::optional<unsigned long> count, bool json) {
    if (!Secure(unit)) {
        return Output::NO_FILE;
    }
    TParams params;
    tOstelReturnCode code = Expand(unit, names, params);
    if (code != RC_SUCCESS) {
        return Output::FailElsewhere(unit.host, code);
    }
    std::vector<std::string> watched;
    for (const auto& param : params) {
        watched.push_back(param.name);
    }
    TWatcher watcher(count, json);
    code = Bounded(unit, [&] {
        return Application().AddDataModelChangeObserverRemote(unit.host, params, &watcher);
    });
    if (code != RC_SUCCESS) {
        // The unit is told this one's serial number, which is the gateway's to know.
        return Output::Fail(unit.host, code);
    }
    Output::Print(params, json);
    watcher.Begin();
    const int status = watcher.Wait();
    code = Bounded(unit, [&] {
        return Application().RemoveDataModelChangeObserverRemote(unit.host, watched, &watcher);
    });
    if (code != RC_SUCCESS) {
        // Still observing: there is no way back to where it would be gone.
        std::_Exit(Output::Finish(Output::FailElsewhere(unit.host, code)));
    }
    return status;
}

}  // namespace Remote
