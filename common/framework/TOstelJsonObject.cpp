#include "TOstelJsonObject.h"

#include <jansson.h>

#include <cstdint>
#include <exception>
#include <type_traits>
#include <utility>

namespace {

// The JSON library takes no const values, not even to look at them.
json_t* Raw(const void* value) {
    return static_cast<json_t*>(const_cast<void*>(value));
}

std::size_t EncodingFlags(int indent) {
    const std::size_t layout =
        indent == -1 ? JSON_COMPACT : JSON_INDENT(static_cast<unsigned int>(indent));
    return layout | JSON_PRESERVE_ORDER;
}

// The JSON library reads names and paths up to their first NUL: what it finds under such a text is
// not what was meant.
bool HasNul(const std::string& text) {
    return text.find('\0') != std::string::npos;
}

json_t* Find(const json_t* object, const std::string& name) {
    return HasNul(name) ? nullptr : json_object_get(object, name.c_str());
}

// Looked at by its own flag: the JSON library goes on when a property's name has found no memory,
// and its text would lack a part.
struct TEncoding {
    std::string text;
    bool isWhole = true;
};

int Append(const char* part, std::size_t size, void* data) noexcept {
    auto* const encoding = static_cast<TEncoding*>(data);
    try {
        encoding->text.append(part, size);
    } catch (const std::exception&) {
        encoding->isWhole = false;
    }
    return encoding->isWhole ? 0 : -1;
}

std::string ErrorText(const json_error_t& error) {
    return "line " + std::to_string(error.line) + ": " + error.text;
}

}  // namespace

TOstelJsonObject::TOstelJsonObject() : m_Json(json_object()) {}

TOstelJsonObject::TOstelJsonObject(json_t* owned) : m_Json(owned) {}

TOstelJsonObject::TOstelJsonObject(const TOstelJsonObject& other)
    : m_Json(json_deep_copy(other.m_Json)) {}

TOstelJsonObject& TOstelJsonObject::operator=(const TOstelJsonObject& other) {
    if (this != &other) {
        json_t* const copy = json_deep_copy(other.m_Json);
        json_decref(m_Json);
        m_Json = copy;
    }
    return *this;
}

TOstelJsonObject::~TOstelJsonObject() {
    json_decref(m_Json);
}

bool TOstelJsonObject::IsEmpty() const {
    return json_object_iter(m_Json) == nullptr;
}

bool TOstelJsonObject::HasProperty(const std::string& name) const {
    return Find(m_Json, name) != nullptr;
}

bool TOstelJsonObject::RemoveProperty(const std::string& name) {
    return !HasNul(name) && json_object_del(m_Json, name.c_str()) == 0;
}

bool TOstelJsonObject::Clear() {
    return json_object_clear(m_Json) == 0;
}

std::vector<std::string> TOstelJsonObject::GetProperties() const {
    std::vector<std::string> names;
    for (void* iter = json_object_iter(m_Json); iter != nullptr;
         iter = json_object_iter_next(m_Json, iter)) {
        names.emplace_back(json_object_iter_key(iter));
    }
    return names;
}

TOstelJsonObject::TOstelJsonType TOstelJsonObject::GetPropertyType(const std::string& name) const {
    return GetJsonObjectType(Find(m_Json, name));
}

TOstelJsonObject::TOstelJsonType TOstelJsonObject::GetSequenceType(const std::string& name) const {
    const json_t* const array = Find(m_Json, name);
    if (!json_is_array(array)) {
        return JSON_TYPE_UNKNOWN;
    }
    if (json_array_size(array) == 0) {
        return JSON_TYPE_NULL;
    }
    TOstelJsonType previous = JSON_TYPE_UNKNOWN;
    for (std::size_t i = 0; i < json_array_size(array); ++i) {
        const TOstelJsonType current = GetJsonObjectType(json_array_get(array, i));
        if (previous != JSON_TYPE_UNKNOWN && current != previous) {
            return JSON_TYPE_UNKNOWN;
        }
        previous = current;
    }
    return previous;
}

unsigned int TOstelJsonObject::GetJsonArraySize(const std::string& name) const {
    return static_cast<unsigned int>(json_array_size(Find(m_Json, name)));
}

TOstelJsonObject TOstelJsonObject::GetObject(const std::string& name) const {
    return TOstelJsonObject(json_deep_copy(Find(m_Json, name)));
}

TOstelJsonObject TOstelJsonObject::GetObjectRef(const std::string& name) const {
    return TOstelJsonObject(json_incref(Find(m_Json, name)));
}

std::string TOstelJsonObject::EncodeToString(int indent) const {
    TEncoding encoding;
    const bool isDone = json_dump_callback(m_Json, &Append, &encoding, EncodingFlags(indent)) == 0;
    return isDone && encoding.isWhole ? std::move(encoding.text) : std::string();
}

bool TOstelJsonObject::DumpToFile(const std::string& path, int indent) const {
    return !HasNul(path) && json_dump_file(m_Json, path.c_str(), EncodingFlags(indent)) != -1;
}

bool TOstelJsonObject::DecodeFromString(const std::string& text) {
    m_ErrorText.clear();
    if (text.empty()) {
        return false;
    }
    json_error_t error;
    json_decref(m_Json);
    // Of the text's whole length: what stands behind a NUL must not be left out unnoticed.
    m_Json = json_loadb(text.data(), text.size(), 0, &error);
    if (m_Json == nullptr) {
        m_ErrorText = ErrorText(error);
    }
    return m_Json != nullptr;
}

bool TOstelJsonObject::LoadFile(const std::string& path) {
    m_ErrorText.clear();
    json_error_t error;
    json_decref(m_Json);
    m_Json = json_load_file(HasNul(path) ? "" : path.c_str(), 0, &error);
    if (m_Json == nullptr) {
        m_ErrorText = ErrorText(error);
    }
    return m_Json != nullptr;
}

TOstelJsonObject::TOstelJsonType TOstelJsonObject::GetJsonObjectType(void* value) const {
    if (value == nullptr) {
        return JSON_TYPE_UNKNOWN;
    }
    switch (json_typeof(Raw(value))) {
        case JSON_OBJECT:
            return JSON_TYPE_OBJECT;
        case JSON_ARRAY:
            return JSON_TYPE_ARRAY;
        case JSON_STRING:
            return JSON_TYPE_STRING;
        case JSON_INTEGER:
            return JSON_TYPE_INTEGER;
        case JSON_REAL:
            return JSON_TYPE_REAL;
        case JSON_TRUE:
        case JSON_FALSE:
            return JSON_TYPE_BOOLEAN;
        case JSON_NULL:
            return JSON_TYPE_NULL;
    }
    return JSON_TYPE_UNKNOWN;
}

void* TOstelJsonObject::GetJsonObject(const std::string& name, unsigned int index) const {
    json_t* const value = Find(m_Json, name);
    // An index beyond the end yields the array itself: that is how callers ask for the whole.
    json_t* const element = json_array_get(value, index);
    return element != nullptr ? element : value;
}

int TOstelJsonObject::SetJsonObject(const std::string& name, void* value) {
    json_t* const stolen = value != nullptr ? Raw(value) : json_null();
    if (HasNul(name)) {
        json_decref(stolen);
        return -1;
    }
    return json_object_set_new(m_Json, name.c_str(), stolen);
}

void* TOstelJsonObject::NewJsonArray() const {
    return json_array();
}

int TOstelJsonObject::AppendJsonArray(void** array, void* value) {
    if (*array == nullptr) {
        *array = NewJsonArray();
    }
    return json_array_append_new(Raw(*array), Raw(value));
}

template <typename T>
T TOstelJsonObject::GetJsonValue(const void* value, const T& defaultValue) const {
    const json_t* const json = Raw(value);
    if constexpr (std::is_same_v<T, TOstelJsonObject>) {
        return json_is_object(json) ? TOstelJsonObject(json_deep_copy(json)) : defaultValue;
    } else if constexpr (std::is_same_v<T, std::string>) {
        return json_is_string(json) ? std::string(json_string_value(json), json_string_length(json))
                                    : defaultValue;
    } else if constexpr (std::is_pointer_v<T>) {
        return json_is_string(json) ? json_string_value(json) : defaultValue;
    } else if constexpr (std::is_same_v<T, bool>) {
        return json_is_boolean(json) ? json_is_true(json) : defaultValue;
    } else if constexpr (std::is_same_v<T, double>) {
        return json_is_number(json) ? json_number_value(json) : defaultValue;
    } else if constexpr (std::is_same_v<T, long>) {
        // 32 bits on every machine, so that a document means the same on all of them.
        return json_is_integer(json) ? static_cast<std::int32_t>(json_integer_value(json))
                                     : defaultValue;
    } else {
        // Integers keep their low bits: what reads a number knows its width.
        return json_is_integer(json) ? static_cast<T>(json_integer_value(json)) : defaultValue;
    }
}

template OSTEL_API TOstelJsonObject TOstelJsonObject::GetJsonValue(const void*,
                                                                   const TOstelJsonObject&) const;
template OSTEL_API std::string TOstelJsonObject::GetJsonValue(const void*,
                                                              const std::string&) const;
template OSTEL_API const char* TOstelJsonObject::GetJsonValue(const void*,
                                                              const char* const&) const;
template OSTEL_API bool TOstelJsonObject::GetJsonValue(const void*, const bool&) const;
template OSTEL_API unsigned short TOstelJsonObject::GetJsonValue(const void*,
                                                                 const unsigned short&) const;
template OSTEL_API int TOstelJsonObject::GetJsonValue(const void*, const int&) const;
template OSTEL_API long TOstelJsonObject::GetJsonValue(const void*, const long&) const;
template OSTEL_API long long TOstelJsonObject::GetJsonValue(const void*, const long long&) const;
template OSTEL_API double TOstelJsonObject::GetJsonValue(const void*, const double&) const;

template <typename T>
void* TOstelJsonObject::ToJson(const T& value) const {
    if constexpr (std::is_same_v<T, TOstelJsonObject>) {
        return json_deep_copy(value.m_Json);
    } else if constexpr (std::is_same_v<T, std::string>) {
        return json_stringn(value.data(), value.size());
    } else if constexpr (std::is_pointer_v<T>) {
        return json_string(value);
    } else if constexpr (std::is_same_v<T, bool>) {
        return json_boolean(value);
    } else if constexpr (std::is_same_v<T, double>) {
        return json_real(value);
    } else if constexpr (std::is_same_v<T, char>) {
        return json_integer(static_cast<signed char>(value));
    } else {
        return json_integer(static_cast<json_int_t>(value));
    }
}

void* TOstelJsonObject::ToJson(const char* value) const {
    return json_string(value);
}
void* TOstelJsonObject::ToJson(char* value) const {
    return json_string(value);
}

template OSTEL_API void* TOstelJsonObject::ToJson(const TOstelJsonObject&) const;
template OSTEL_API void* TOstelJsonObject::ToJson(const std::string&) const;
template OSTEL_API void* TOstelJsonObject::ToJson(const char* const&) const;
template OSTEL_API void* TOstelJsonObject::ToJson(char* const&) const;
template OSTEL_API void* TOstelJsonObject::ToJson(const char&) const;
template OSTEL_API void* TOstelJsonObject::ToJson(const unsigned short&) const;
template OSTEL_API void* TOstelJsonObject::ToJson(const unsigned int&) const;
template OSTEL_API void* TOstelJsonObject::ToJson(const unsigned long&) const;
template OSTEL_API void* TOstelJsonObject::ToJson(const int&) const;
template OSTEL_API void* TOstelJsonObject::ToJson(const long&) const;
template OSTEL_API void* TOstelJsonObject::ToJson(const long long&) const;
template OSTEL_API void* TOstelJsonObject::ToJson(const double&) const;
template OSTEL_API void* TOstelJsonObject::ToJson(const bool&) const;

void TOstelJsonObject::GetPropertySequence(const std::string& name,
                                           std::vector<TOstelJsonObject>& out) const {
    out.clear();
    const unsigned int size = GetJsonArraySize(name);
    out.reserve(size);
    for (unsigned int i = 0; i < size; ++i) {
        out.push_back(GetPropertyValue(name, TOstelJsonObject(), i));
    }
}

int TOstelJsonObject::SetPropertySequence(const std::string& name,
                                          const std::vector<TOstelJsonObject>& in) {
    void* array = NewJsonArray();
    for (const TOstelJsonObject& element : in) {
        AppendJsonArray(&array, ToJson<TOstelJsonObject>(element));
    }
    return SetJsonObject(name, array);
}
