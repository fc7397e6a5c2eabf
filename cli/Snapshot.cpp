#include "Snapshot.h"

#include <map>
#include <optional>
#include <set>
#include <tuple>
#include <vector>

#include "Arguments.h"
#include "Output.h"
#include "SnapshotSource.h"
#include "TOstelApplication.h"

namespace Snapshot {

namespace {

using Arguments::TParams;

constexpr int DIFFERENT = 1;

// A parameter whose values differ; it may be missing on either side.
struct TDifference {
    std::string name;
    std::optional<std::string> file;
    std::optional<std::string> device;
};

// In the file's order, then what only the device has.
std::vector<TDifference> Compare(const TParams& file, const TParams& device,
                                 const std::string& root) {
    std::map<std::string, std::string> values;
    for (const auto& param : device) {
        values.emplace(param.name, param.value);
    }
    std::vector<TDifference> differences;
    std::set<std::string> inFile;
    for (const auto& param : file) {
        if (param.name.compare(0, root.size(), root) != 0) {
            continue;
        }
        inFile.insert(param.name);
        const auto there = values.find(param.name);
        if (there == values.end()) {
            differences.push_back({param.name, param.value, std::nullopt});
        } else if (there->second != param.value) {
            differences.push_back({param.name, param.value, there->second});
        }
    }
    for (const auto& param : device) {
        if (inFile.count(param.name) == 0) {
            differences.push_back({param.name, std::nullopt, param.value});
        }
    }
    return differences;
}

void Print(const std::vector<TDifference>& differences, bool json) {
    std::vector<TOstelJsonObject> documents;
    for (const TDifference& difference : differences) {
        TOstelJsonObject& document = documents.emplace_back();
        document.SetPropertyValue("NAME", difference.name);
        for (const auto& [sign, member, value] :
             {std::make_tuple("- ", "FILE", difference.file),
              std::make_tuple("+ ", "DEVICE", difference.device)}) {
            if (value && json) {
                document.SetPropertyValue(member, *value);
            } else if (value) {
                Output::Print(sign + difference.name + "  " + *value);
            }
        }
    }
    if (json) {
        TOstelJsonObject document;
        document.SetPropertySequence("DIFFERENCES", documents);
        Output::Print(document);
    }
}

}  // namespace

int Save(const std::string& path, bool json) {
    TParams params;
    const tOstelReturnCode code = Read(path, params);
    if (code != RC_SUCCESS) {
        return Output::Fail(path, code);
    }
    TOstelJsonObject document;
    document.SetPropertyValue("ROOT", path);
    TOstelApplication::GetInstance()->ParamArrayToJson(params, document);
    if (json) {
        Output::Print(document);
    } else {
        Output::PrintIndented(document);
    }
    return 0;
}

int Diff(const std::string& file, const std::string& path, bool json) {
    auto [snapshot, status] = Open(file);
    if (!snapshot) {
        return status;
    }
    const std::string root = path.empty() ? snapshot->root : path;
    TParams current;
    const tOstelReturnCode code = Read(root, current);
    // What is only in the file is a difference as well.
    if (code != RC_SUCCESS && code != RC_INVALID_PARAM_NAME) {
        return Output::Fail(root, code);
    }
    const std::vector<TDifference> differences = Compare(snapshot->params, current, root);
    Print(differences, json);
    return differences.empty() ? 0 : DIFFERENT;
}

}  // namespace Snapshot
