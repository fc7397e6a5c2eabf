#ifndef REQUEST_FIELDS_H
#define REQUEST_FIELDS_H

#include <optional>
#include <string>
#include <vector>

#include "DataModel.h"
#include "TOstelJsonObject.h"

// The members of request documents. Nothing for what is missing or of another type.
std::optional<std::string> TextField(const TOstelJsonObject& request, const std::string& name);
std::optional<bool> BoolField(const TOstelJsonObject& request, const std::string& name);

// "PARAMS", an array of {"NAME"} or {"NAME", "VALUE"}.
std::optional<std::vector<std::string>> NamesField(const TOstelJsonObject& request);
std::optional<TDataModel::TValues> WritesField(const TOstelJsonObject& request);

// Puts "PARAMS" into a reply.
void PutParams(TOstelJsonObject& reply, const TDataModel::TValues& values);

#endif
