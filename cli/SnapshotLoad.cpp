#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Arguments.h"
#include "Output.h"
#include "Progress.h"
#include "Snapshot.h"
#include "SnapshotSource.h"
#include "Stop.h"
#include "TOstelApplication.h"

namespace Snapshot {

namespace {

using Arguments::TParams;

TOstelApplication& Application() {
    return *TOstelApplication::GetInstance();
}

bool IsNumber(const std::string& element) {
    return !element.empty() && element.find_first_not_of("0123456789") == std::string::npos;
}

// A file can hold any name. One of more elements stands on no device, and has nothing to be placed.
constexpr std::ptrdiff_t MOST_ELEMENTS = 128;

// The paths of all instances that a name stands in, the outer ones first.
std::vector<std::string> InstancesOf(const std::string& name) {
    std::vector<std::string> instances;
    if (std::count(name.begin(), name.end(), '.') > MOST_ELEMENTS) {
        return instances;
    }
    std::size_t start = 0;
    for (std::size_t point = name.find('.'); point != std::string::npos;
         point = name.find('.', start)) {
        if (IsNumber(name.substr(start, point - start))) {
            instances.push_back(name.substr(0, point + 1));
        }
        start = point + 1;
    }
    return instances;
}

std::set<std::string> InstancesIn(const TParams& params) {
    std::set<std::string> instances;
    for (const auto& param : params) {
        for (std::string& instance : InstancesOf(param.name)) {
            instances.insert(std::move(instance));
        }
    }
    return instances;
}

// One run of `load`. Everything is staged first; what was staged is taken back when a value is
// refused, so that nothing half done is left for somebody else's commit.
class TLoad {
public:
    TLoad(TSnapshot snapshot, bool exact) : m_Snapshot(std::move(snapshot)), m_Exact(exact) {}

    // The exit status.
    int Stage() {
        const tOstelReturnCode code = ReadDevice();
        // An instance that is the root itself may be what is missing.
        if (code != RC_SUCCESS && code != RC_INVALID_PARAM_NAME) {
            return Output::Fail(m_Snapshot.root, code);
        }
        m_Stop = std::make_unique<TStop>();
        m_Stop->Catch();
        int status = StageValues();
        if (status == 0 && m_Exact) {
            DeleteOthers();
        }
        if (status == 0 && IsStopped()) {
            status = Stopped();
        }
        if (status != 0) {
            TakeBack();
        }
        m_Stop.reset();
        return status;
    }

    void Report(bool json) const {
        for (const std::string& text : m_Undeletable) {
            Output::Complain(text);
        }
        for (const std::string& name : m_LeftAlone) {
            Output::Complain(name + " differs and is read-only; left as it is");
        }
        for (const std::string& name : m_Missing) {
            Output::Complain(name + " is not on the device; left out");
        }
        const std::pair<const char*, std::size_t> counts[] = {{"WRITTEN", m_Written.size()},
                                                              {"ADDED", m_Added.size()},
                                                              {"DELETED", m_Deleted.size()},
                                                              {"READ_ONLY", m_LeftAlone.size()},
                                                              {"MISSING", m_Missing.size()}};
        if (json) {
            TOstelJsonObject document;
            for (const auto& [name, count] : counts) {
                document.SetPropertyValue(name, static_cast<unsigned int>(count));
            }
            Output::Print(document);
            return;
        }
        Output::Print(std::to_string(m_Written.size()) + " values written, " +
                      std::to_string(m_Added.size()) + " instances added, " +
                      std::to_string(m_Deleted.size()) + " deleted");
    }

private:
    struct TFailure {
        std::string name;
        tOstelReturnCode code;
    };

    tOstelReturnCode ReadDevice() {
        TParams current;
        const tOstelReturnCode code = Read(m_Snapshot.root, current);
        for (const auto& param : current) {
            m_Device.emplace(param.name, param.value);
        }
        m_DeviceInstances = InstancesIn(current);
        AddKnownObjects();
        return code;
    }

    // Instances without a single parameter are told by the tree only.
    void AddKnownObjects() {
        std::vector<std::string> names;
        if (Application().GetObjectTree(m_Snapshot.root, names) != RC_SUCCESS) {
            return;
        }
        for (const std::string& name : names) {
            for (std::string& instance : InstancesOf(name)) {
                m_DeviceInstances.insert(std::move(instance));
            }
        }
    }

    // Where a name of the file is to be found on the device; nothing when an instance can't be had.
    std::optional<std::string> Place(const std::string& name) {
        std::string place = name;
        for (const std::string& instance : InstancesOf(name)) {
            const std::optional<std::string> there = PlaceInstance(instance);
            if (!there) {
                return std::nullopt;
            }
            place = *there + name.substr(instance.size());
        }
        return place;
    }

    std::optional<std::string> PlaceInstance(const std::string& instance) {
        const auto known = m_Places.find(instance);
        if (known != m_Places.end()) {
            return known->second;
        }
        std::optional<std::string>& place = m_Places[instance];
        if (m_DeviceInstances.count(instance) != 0) {
            place = instance;
            return place;
        }
        const std::size_t number = instance.rfind('.', instance.size() - 2) + 1;
        const std::optional<std::string> table = Place(instance.substr(0, number));
        int id = 0;
        if (table && AddTo(*table, id) == RC_SUCCESS) {
            place = *table + std::to_string(id) + ".";
            m_Added.push_back(*place);
        }
        return m_Places[instance] = place;
    }

    tOstelReturnCode AddTo(const std::string& table, int& id) {
        const tOstelReturnCode code = Application().AddObject(table, id);
        const bool isFull = code == RC_BUFFER_OVERFLOW;
        return isFull && MakeRoom() ? Application().AddObject(table, id) : code;
    }

    int StageValues() {
        const std::optional<TFailure> failure = StageEach();
        if (failure) {
            return Output::Fail(failure->name, failure->code);
        }
        if (IsStopped()) {
            return Stopped();
        }
        if (!m_Missing.empty() && m_Missing.size() == m_Snapshot.params.size()) {
            return Output::Fail(m_Snapshot.root, RC_INVALID_PARAM_NAME);
        }
        return StageRefused();
    }

    // Leaves the telling to its caller: while the bar lives, it would land on the bar's line.
    std::optional<TFailure> StageEach() {
        TProgress progress("staging " + m_Snapshot.root, m_Snapshot.params.size());
        for (const auto& param : m_Snapshot.params) {
            if (IsStopped()) {
                return std::nullopt;
            }
            if (auto failure = StageOne(param)) {
                return failure;
            }
            progress.Advance();
        }
        return std::nullopt;
    }

    std::optional<TFailure> StageOne(const TOstelApplication::TOstelAppParam& param) {
        const auto current = m_Device.find(param.name);
        if (current != m_Device.end() && current->second == param.value) {
            return std::nullopt;
        }
        const std::optional<std::string> name = Place(param.name);
        if (!name) {
            m_Missing.push_back(param.name);
            return std::nullopt;
        }
        const tOstelReturnCode code = Application().SetParam(*name, param.value, false);
        if (code == RC_SUCCESS) {
            m_Written.push_back(*name);
        } else if (code == RC_NOT_SUPPORTED) {
            // In an instance that was just added these come from the device itself.
            if (current != m_Device.end()) {
                m_LeftAlone.push_back(*name);
            }
        } else if (code == RC_INVALID_PARAM_NAME) {
            m_Missing.push_back(param.name);
        } else if (code == RC_INVALID_PARAM_VALUE) {
            m_Refused.push_back({*name, param.value});
        } else {
            return TFailure{*name, code};
        }
        return std::nullopt;
    }

    // A value that another instance has to give up first is right only together with the others.
    int StageRefused() {
        if (m_Refused.empty()) {
            return 0;
        }
        tOstelReturnCode code = Application().SetParamArray(m_Refused, false);
        if (code == RC_INVALID_PARAM_VALUE && MakeRoom()) {
            code = Application().SetParamArray(m_Refused, false);
        }
        if (code != RC_SUCCESS) {
            return Output::Fail(Arguments::Names(m_Refused), code);
        }
        for (const auto& param : m_Refused) {
            m_Written.push_back(param.name);
        }
        return 0;
    }

    // As a shell gives the status of a program that the signal ended.
    int Stopped() const {
        Output::Complain("stopped; nothing is written");
        return 128 + m_Stop->Signal();
    }

    bool IsStopped() const { return m_Stop->Signal() != 0; }

    // A deletion cannot be taken back, so it comes last, unless what is to go is in the way: it
    // fills a table or holds a unique key. False when there is no more room than before.
    bool MakeRoom() {
        if (!m_Exact || m_HasMadeRoom) {
            return false;
        }
        m_HasMadeRoom = true;
        DeleteOthers();
        return !m_Deleted.empty();
    }

    void DeleteOthers() {
        const std::set<std::string> wanted = InstancesIn(m_Snapshot.params);
        m_Undeletable.clear();
        std::string deleted;
        for (const std::string& instance : m_DeviceInstances) {
            if (IsStopped()) {
                return;
            }
            // What stands inside of a deleted instance goes with it, and is next in order.
            const bool isInside =
                !deleted.empty() && instance.compare(0, deleted.size(), deleted) == 0;
            if (isInside || wanted.count(instance) != 0 ||
                instance.compare(0, m_Snapshot.root.size(), m_Snapshot.root) != 0) {
                continue;
            }
            if (Delete(instance)) {
                deleted = instance;
            }
        }
    }

    bool Delete(const std::string& instance) {
        if (m_Deleted.count(instance) != 0) {
            return true;
        }
        const tOstelReturnCode code = Application().RemoveObject(instance);
        if (code != RC_SUCCESS) {
            m_Undeletable.push_back(instance + " cannot be deleted: " + Output::CodeText(code));
            return false;
        }
        m_Deleted.insert(instance);
        return true;
    }

    // The added instances go first: one may hold a unique key that another gave up for it.
    void TakeBack() {
        for (auto added = m_Added.rbegin(); added != m_Added.rend(); ++added) {
            Application().RemoveObject(*added);
        }
        TParams before;
        for (auto name = m_Written.rbegin(); name != m_Written.rend(); ++name) {
            const auto old = m_Device.find(*name);
            if (old != m_Device.end()) {
                before.push_back({*name, old->second});
            }
        }
        // Unique keys that were exchanged can only be had back together.
        if (before.size() < 2 || Application().SetParamArray(before, false) != RC_SUCCESS) {
            for (const auto& param : before) {
                Application().SetParam(param.name, param.value, false);
            }
        }
        if (!m_Deleted.empty()) {
            Output::Complain("the deletion of " + std::to_string(m_Deleted.size()) +
                             " instances cannot be taken back; it is staged for the next commit");
        }
    }

    const TSnapshot m_Snapshot;
    const bool m_Exact;
    std::unique_ptr<TStop> m_Stop;  // while it stages
    std::map<std::string, std::string> m_Device;
    std::set<std::string> m_DeviceInstances;
    std::map<std::string, std::optional<std::string>> m_Places;  // of the file's instances
    std::vector<std::string> m_Written;
    std::vector<std::string> m_Added;
    TParams m_Refused;
    std::vector<std::string> m_LeftAlone;
    std::vector<std::string> m_Missing;
    std::set<std::string> m_Deleted;
    bool m_HasMadeRoom = false;
    std::vector<std::string> m_Undeletable;
};

}  // namespace

int Load(const std::string& file, bool exact, bool commit, bool json) {
    auto [snapshot, status] = Open(file);
    if (!snapshot) {
        return status;
    }
    TLoad load(*snapshot, exact);
    status = load.Stage();
    if (status != 0) {
        return status;
    }
    const tOstelReturnCode code = commit ? Application().Commit() : RC_SUCCESS;
    if (code != RC_SUCCESS) {
        return Output::Fail("commit", code);
    }
    load.Report(json);
    return 0;
}

}  // namespace Snapshot
