// Internal, not installed: what the application object's operations share around their documents.
#ifndef OSTEL_DOCUMENTS_H
#define OSTEL_DOCUMENTS_H

#include <jansson.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "TOstelJsonObject.h"
#include "tOstelTypes.h"
#include "zt_logging.h"

namespace OstelDocuments {

// Runs an operation; what the bus and the documents throw is logged and becomes its result. Other
// exceptions are the caller's own.
template <typename Operation>
tOstelReturnCode Attempt(Operation operation) {
    try {
        return operation();
    } catch (const std::runtime_error& error) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s", error.what());
        return RC_RUNTIME_ERROR;
    }
}

// Requests are made of these. A request in which a member is missing may be granted, and something
// else be done than was asked for: what finds no memory throws std::bad_alloc.

using TOwnedJson = std::unique_ptr<json_t, decltype(&json_decref)>;

// New. Null, as a value of its own, for what is no text that a document can hold.
json_t* NewText(const std::string& text);

// Steals `value`. A name is short, or there might be no memory for it either.
void Put(TOstelJsonObject& document, const char* name, json_t* value);
void Put(TOstelJsonObject& document, const char* name, const std::string& text);

// An array's next element, {"NAME": name}, borrowed from it.
json_t* AppendNamed(json_t* array, const std::string& name);

std::string Encode(const TOstelJsonObject& request);

inline void Decode(TOstelJsonObject& document, const std::string& reply) {
    if (!document.DecodeFromString(reply)) {
        throw std::runtime_error(reply.empty() ? "The reply is empty" : document.GetErrorText());
    }
}

// Calls visit(json_t*) with each element of an array property, borrowed: large replies are read
// without copying a value. Visits nothing when the property is not an array.
template <typename Visit>
void ForEach(const TOstelJsonObject& document, const std::string& name, Visit visit) {
    auto* const array =
        static_cast<json_t*>(document.GetJsonObject(name, TOstelJsonObject::WHOLE_PROPERTY));
    const std::size_t size = json_array_size(array);
    for (std::size_t i = 0; i < size; ++i) {
        visit(json_array_get(array, i));
    }
}

// A string member of a borrowed element; empty when there is none.
inline void CopyText(const json_t* element, const char* name, std::string& text) {
    const json_t* const member = json_object_get(element, name);
    if (json_is_string(member)) {
        text.assign(json_string_value(member), json_string_length(member));
    } else {
        text.clear();
    }
}

inline int Integer(const json_t* value) {
    return static_cast<int>(json_integer_value(value));
}

}  // namespace OstelDocuments

#endif
