// The requests on parameters by their names.
#include "Dispatcher.h"
#include "RequestFields.h"

tOstelReturnCode TDispatcher::Read(const std::vector<std::string>& names, TOstelJsonObject& reply) {
    TDataModel::TValues values;
    const tOstelReturnCode code = m_Model.Get(names, values);
    if (code != RC_SUCCESS) {
        values.clear();
    }
    PutParams(reply, values);
    return code;
}

tOstelReturnCode TDispatcher::Write(const TDataModel::TValues& writes, bool commit) {
    const tOstelReturnCode code = m_Model.Set(writes);
    if (code != RC_SUCCESS || !commit) {
        return code;
    }
    return CommitStaged() ? RC_SUCCESS : RC_FAILURE;
}

tOstelReturnCode TDispatcher::GetParam(const TOstelJsonObject& request, TOstelJsonObject& reply) {
    const auto name = TextField(request, "NAME");
    return name ? Read({*name}, reply) : RC_INVALID_ARGUMENT;
}

tOstelReturnCode TDispatcher::SetParam(const TOstelJsonObject& request, TOstelJsonObject&) {
    const auto name = TextField(request, "NAME");
    const auto value = TextField(request, "VALUE");
    const auto commit = BoolField(request, "COMMIT");
    return name && value && commit ? Write({{*name, *value}}, *commit) : RC_INVALID_ARGUMENT;
}

tOstelReturnCode TDispatcher::GetParamArray(const TOstelJsonObject& request,
                                            TOstelJsonObject& reply) {
    const auto names = NamesField(request);
    return names ? Read(*names, reply) : RC_INVALID_ARGUMENT;
}

tOstelReturnCode TDispatcher::SetParamArray(const TOstelJsonObject& request, TOstelJsonObject&) {
    const auto writes = WritesField(request);
    const auto commit = BoolField(request, "COMMIT");
    return writes && commit ? Write(*writes, *commit) : RC_INVALID_ARGUMENT;
}

// One value of any length, told directly and not in a list.
tOstelReturnCode TDispatcher::GetLongParam(const TOstelJsonObject& request,
                                           TOstelJsonObject& reply) {
    const auto name = TextField(request, "NAME");
    if (!name) {
        return RC_INVALID_ARGUMENT;
    }
    TDataModel::TValues values;
    // A long value is that of one parameter; a partial path or a "*" names several.
    if (name->empty() || name->back() == '.' || name->find('*') != std::string::npos ||
        m_Model.Get(*name, values) != RC_SUCCESS) {
        return RC_INVALID_PARAM_NAME;
    }
    reply.SetPropertyValue("VALUE", values[0].second);
    return RC_SUCCESS;
}
