#ifndef T_OSTEL_JSON_OBJECT_H
#define T_OSTEL_JSON_OBJECT_H

#include <string>
#include <vector>

#include "OstelApi.h"

struct json_t;

// The one JSON value type: every request, reply and event payload is one. Owns one JSON value,
// meant to be an object whose properties keep their order. Nothing here throws for what a document
// holds: failures are results (false, null, 0, the caller's default). Texts with a NUL in them are
// fine as values; there is no property, no file and no document under or in such a text.
//
// Copies are deep. Not safe for concurrent use; objects made by GetObjectRef share one value and
// so share that limit.
class OSTEL_API TOstelJsonObject {
public:
    enum TOstelJsonType {
        JSON_TYPE_OBJECT = 0,
        JSON_TYPE_ARRAY = 1,
        JSON_TYPE_STRING = 2,
        JSON_TYPE_INTEGER = 3,
        JSON_TYPE_REAL = 4,
        JSON_TYPE_BOOLEAN = 5,
        JSON_TYPE_NULL = 6,     // also the sequence type of an empty array
        JSON_TYPE_UNKNOWN = 7,  // no value, or a sequence of mixed types
    };

    // As an index: the property as a whole.
    static constexpr unsigned int WHOLE_PROPERTY = 0xFFFFFFFFU;

    // The empty object.
    TOstelJsonObject();
    // A copy starts without an error text; an assignment leaves the target's as it was.
    TOstelJsonObject(const TOstelJsonObject& other);
    TOstelJsonObject& operator=(const TOstelJsonObject& other);
    virtual ~TOstelJsonObject();

    bool IsEmpty() const;
    bool HasProperty(const std::string& name) const;
    bool RemoveProperty(const std::string& name);
    bool Clear();
    std::vector<std::string> GetProperties() const;
    TOstelJsonType GetPropertyType(const std::string& name) const;
    // The one type of an array's elements.
    TOstelJsonType GetSequenceType(const std::string& name) const;
    // 0 for what is not an array.
    unsigned int GetJsonArraySize(const std::string& name) const;

    // A deep copy of the property. Without such a property the result holds no value at all.
    TOstelJsonObject GetObject(const std::string& name) const;
    // Shares the property: changes through the result are seen here. Without such a property the
    // result holds no value at all.
    TOstelJsonObject GetObjectRef(const std::string& name) const;

    // An indent of -1 is compact. Empty when there is no value to encode.
    std::string EncodeToString(int indent) const;
    bool DumpToFile(const std::string& path, int indent) const;

    // After a failure the object holds no value at all, and GetErrorText tells why; the empty text
    // fails too, but leaves the object as it was. Check the result.
    bool DecodeFromString(const std::string& text);
    bool LoadFile(const std::string& path);
    const std::string& GetErrorText() const { return m_ErrorText; }

    // The raw layer, in values of the JSON library (json_t*). "Borrowed" values belong to this
    // object, "new" ones to the caller, and "stolen" ones are taken over from the caller, on
    // failure too.
    TOstelJsonType GetJsonObjectType(void* value) const;
    // Borrowed. An array's element when there is one of that index, the whole property otherwise.
    void* GetJsonObject(const std::string& name, unsigned int index) const;
    // Steals `value`; null stores JSON null. 0 on success, -1 on failure.
    int SetJsonObject(const std::string& name, void* value);
    // New.
    void* NewJsonArray() const;
    // Steals `value`; makes the array when there is none yet. 0 on success, -1 on failure.
    int AppendJsonArray(void** array, void* value);

    // Offered for TOstelJsonObject, bool, const char* (borrowed from the value), std::string,
    // unsigned short, int, long, long long and double. Integers are cut to their width, that of
    // long being 32 bits; only double takes two kinds, integers and reals.
    template <typename T>
    T GetJsonValue(const void* value, const T& defaultValue) const;

    // New. Offered for const char*, char*, std::string, char, unsigned short, unsigned int,
    // unsigned long, int, long, long long, double, bool and TOstelJsonObject. Null when the text
    // is null or not UTF-8, and when the number is not finite.
    template <typename T>
    void* ToJson(const T& value) const;
    void* ToJson(const char* value) const;
    void* ToJson(char* value) const;

    template <typename T>
    T GetPropertyValue(const std::string& name, const T& defaultValue,
                       unsigned int index = WHOLE_PROPERTY) const {
        return GetJsonValue<T>(GetJsonObject(name, index), defaultValue);
    }

    template <typename T>
    int SetPropertyValue(const std::string& name, const T& value) {
        return SetJsonObject(name, ToJson<T>(value));
    }

    // Replaces `out`; elements that are not objects become empty objects. Elements of `in` that
    // hold no value at all are left out.
    void GetPropertySequence(const std::string& name, std::vector<TOstelJsonObject>& out) const;
    int SetPropertySequence(const std::string& name, const std::vector<TOstelJsonObject>& in);

private:
    explicit TOstelJsonObject(json_t* owned);

    json_t* m_Json;
    std::string m_ErrorText;
};

#endif
