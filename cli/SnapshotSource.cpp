#include "SnapshotSource.h"

#include <algorithm>
#include <vector>

#include "Output.h"
#include "Progress.h"
#include "TOstelApplication.h"
#include "TOstelJsonObject.h"

namespace Snapshot {

namespace {

bool IsPairs(const TOstelJsonObject& document) {
    const auto type = document.GetSequenceType("PARAMS");
    if (type != TOstelJsonObject::JSON_TYPE_OBJECT && type != TOstelJsonObject::JSON_TYPE_NULL) {
        return false;
    }
    std::vector<TOstelJsonObject> params;
    document.GetPropertySequence("PARAMS", params);
    return std::all_of(params.begin(), params.end(), [](const TOstelJsonObject& param) {
        return param.GetPropertyType("NAME") == TOstelJsonObject::JSON_TYPE_STRING &&
               param.GetPropertyType("VALUE") == TOstelJsonObject::JSON_TYPE_STRING;
    });
}

}  // namespace

std::pair<std::optional<TSnapshot>, int> Open(const std::string& file) {
    const std::optional<std::string> text = Arguments::ReadAll(file);
    if (!text) {
        return {std::nullopt, Output::NO_FILE};
    }
    TOstelJsonObject document;
    if (!document.DecodeFromString(*text)) {
        const std::string& cause = document.GetErrorText();
        Output::Complain(file + ": " + (cause.empty() ? "the file is empty" : cause));
        return {std::nullopt, Output::MALFORMED_FILE};
    }
    if (document.GetPropertyType("ROOT") != TOstelJsonObject::JSON_TYPE_STRING ||
        !IsPairs(document)) {
        Output::Complain(file + ": not a snapshot, which holds \"ROOT\" and \"PARAMS\"");
        return {std::nullopt, Output::MALFORMED_FILE};
    }
    TSnapshot snapshot;
    snapshot.root = document.GetPropertyValue<std::string>("ROOT", "");
    TOstelApplication::GetInstance()->PopulateParamArray(document, snapshot.params);
    return {snapshot, 0};
}

tOstelReturnCode Read(const std::string& path, Arguments::TParams& params) {
    TProgress progress("reading " + path);
    const tOstelReturnCode code = TOstelApplication::GetInstance()->GetParam(path, params);
    if (code == RC_SUCCESS) {
        progress.Finish();
    }
    return code;
}

}  // namespace Snapshot
