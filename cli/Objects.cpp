#include "Objects.h"

#include <algorithm>
#include <map>
#include <unordered_map>

#include "Arguments.h"
#include "Output.h"
#include "TOstelApplication.h"

namespace Objects {

namespace {

using Arguments::TParams;

TOstelApplication& Application() {
    return *TOstelApplication::GetInstance();
}

// What was staged is either committed or left for later.
int Finish(bool commit, bool json) {
    const tOstelReturnCode code = commit ? Application().Commit() : RC_SUCCESS;
    if (code != RC_SUCCESS) {
        return Output::Fail("commit", code);
    }
    Output::PrintOk(json);
    return 0;
}

template <typename T>
void PrintArray(const std::string& name, const std::vector<T>& elements) {
    TOstelJsonObject document;
    void* array = document.NewJsonArray();
    for (const T& element : elements) {
        document.AppendJsonArray(&array, document.ToJson(element));
    }
    document.SetJsonObject(name, array);
    Output::Print(document);
}

// The last element of a path, with its point if it has one, behind two blanks for each level.
std::string Branch(const std::string& name, std::size_t rootLevel) {
    const bool isObject = !name.empty() && name.back() == '.';
    const std::string path = isObject ? name.substr(0, name.size() - 1) : name;
    const auto level = static_cast<std::size_t>(std::count(path.begin(), path.end(), '.'));
    const std::size_t point = path.rfind('.');
    const std::string element = point == std::string::npos ? path : path.substr(point + 1);
    const std::size_t depth = level > rootLevel ? level - rootLevel : 0;
    return std::string(2 * depth, ' ') + element + (isObject ? "." : "");
}

}  // namespace

int Get(const std::string& object, const std::vector<std::string>& names, bool json) {
    TParams params;
    for (const std::string& name : names) {
        params.push_back({name, ""});
    }
    const tOstelReturnCode code = Application().GetObject(object, params);
    if (code != RC_SUCCESS) {
        return Output::Fail(object, code);
    }
    Output::Print(params, json);
    return 0;
}

int Set(const std::string& object, const std::vector<std::string>& assignments, bool commit,
        bool json) {
    const std::optional<TParams> params = Arguments::Assignments(assignments);
    if (!params) {
        return Output::USAGE_ERROR;
    }
    const tOstelReturnCode code = Application().SetObject(object, *params, commit);
    if (code != RC_SUCCESS) {
        return Output::Fail(object, code);
    }
    Output::PrintOk(json);
    return 0;
}

int Instances(const std::string& table, bool json) {
    std::vector<int> ids;
    const tOstelReturnCode code = Application().GetObjectIds(table, ids);
    if (code != RC_SUCCESS) {
        return Output::Fail(table, code);
    }
    if (json) {
        PrintArray("IDS", ids);
        return 0;
    }
    for (const int id : ids) {
        Output::Print(std::to_string(id));
    }
    return 0;
}

int Tree(const std::string& object, bool json) {
    std::vector<std::string> names;
    const tOstelReturnCode code = Application().GetObjectTree(object, names);
    if (code != RC_SUCCESS) {
        return Output::Fail(object, code);
    }
    if (json) {
        PrintArray("PARAMS", names);
        return 0;
    }
    const auto points = static_cast<std::size_t>(std::count(object.begin(), object.end(), '.'));
    for (const std::string& name : names) {
        Output::Print(name == object ? name : Branch(name, points > 0 ? points - 1 : 0));
    }
    return 0;
}

int Add(const std::string& table, bool commit, bool json) {
    int id = 0;
    tOstelReturnCode code = Application().AddObject(table, id);
    if (code != RC_SUCCESS) {
        return Output::Fail(table, code);
    }
    code = commit ? Application().Commit() : RC_SUCCESS;
    if (code != RC_SUCCESS) {
        return Output::Fail("commit", code);
    }
    if (json) {
        TOstelJsonObject document;
        document.SetPropertyValue("ID", id);
        Output::Print(document);
    } else {
        Output::Print(table + std::to_string(id) + ".");
    }
    return 0;
}

int Delete(const std::vector<std::string>& instances, bool commit, bool json) {
    for (std::size_t i = 0; i < instances.size(); ++i) {
        const tOstelReturnCode code = Application().RemoveObject(instances[i]);
        if (code != RC_SUCCESS) {
            if (i > 0) {
                Output::Complain(std::to_string(i) +
                                 " earlier deletions are staged, not committed");
            }
            return Output::Fail(instances[i], code);
        }
    }
    return Finish(commit, json);
}

int IndexMap(bool json) {
    std::unordered_map<std::string, std::vector<std::pair<int, int>>> unsorted;
    const tOstelReturnCode code = Application().GetIndexMap(unsorted);
    if (code != RC_SUCCESS) {
        return Output::Fail("index-map", code);
    }
    const std::map<std::string, std::vector<std::pair<int, int>>> maps(unsorted.begin(),
                                                                       unsorted.end());
    TParams rows;
    std::vector<TOstelJsonObject> documents;
    for (const auto& [name, pairs] : maps) {
        std::vector<TOstelJsonObject> entries;
        for (const auto& [application, platform] : pairs) {
            rows.push_back({name + std::to_string(application) + ".", std::to_string(platform)});
            TOstelJsonObject& entry = entries.emplace_back();
            entry.SetPropertyValue("APP_INDEX", application);
            entry.SetPropertyValue("PLATFORM_INDEX", platform);
        }
        TOstelJsonObject& document = documents.emplace_back();
        document.SetPropertyValue("NAME", name);
        document.SetPropertySequence("INDEX_MAP", entries);
    }
    if (!json) {
        Output::Print(rows, false);
        return 0;
    }
    TOstelJsonObject document;
    document.SetPropertySequence("DATA_MODELS", documents);
    Output::Print(document);
    return 0;
}

}  // namespace Objects
