#include "OstelDocuments.h"

#include <dbus/dbus.h>

#include <cstring>
#include <new>

namespace {

// Looks at a text up to each of its NULs, and needs no memory: the JSON library has one answer for
// what is not UTF-8 and for what finds none.
bool IsUtf8(const std::string& text) {
    const char* const end = text.c_str() + text.size();
    for (const char* part = text.c_str(); part <= end; part += std::strlen(part) + 1) {
        if (!dbus_validate_utf8(part, nullptr)) {
            return false;
        }
    }
    return true;
}

}  // namespace

json_t* OstelDocuments::NewText(const std::string& text) {
    json_t* const json = json_stringn(text.data(), text.size());
    if (json == nullptr && IsUtf8(text)) {
        throw std::bad_alloc();
    }
    return json != nullptr ? json : json_null();
}

void OstelDocuments::Put(TOstelJsonObject& document, const char* name, json_t* value) {
    if (value == nullptr || document.SetJsonObject(name, value) != 0) {
        throw std::bad_alloc();
    }
}

void OstelDocuments::Put(TOstelJsonObject& document, const char* name, const std::string& text) {
    Put(document, name, NewText(text));
}

json_t* OstelDocuments::AppendNamed(json_t* array, const std::string& name) {
    json_t* const element = json_object();
    if (json_array_append_new(array, element) != 0 ||
        json_object_set_new(element, "NAME", NewText(name)) != 0) {
        throw std::bad_alloc();
    }
    return element;
}

// No text is empty but for want of memory.
std::string OstelDocuments::Encode(const TOstelJsonObject& request) {
    std::string text = request.EncodeToString(-1);
    if (text.empty()) {
        throw std::bad_alloc();
    }
    return text;
}
