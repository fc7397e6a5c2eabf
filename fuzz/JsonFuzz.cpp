// A text becomes a JSON value, and every accessor is asked for everything in it.
#include <vector>

#include "Fuzz.h"
#include "TOstelJsonObject.h"

namespace {

constexpr unsigned int FAR_AWAY = 1000000;

template <typename T>
void ReadAs(const TOstelJsonObject& object, const std::string& name, const T& other) {
    object.GetPropertyValue<T>(name, other);
    object.GetPropertyValue<T>(name, other, 0);
    object.GetPropertyValue<T>(name, other, FAR_AWAY);
    Fuzz::Require(
        object.GetPropertyValue<T>(name + "?", other) == other || object.HasProperty(name + "?"),
        "what is not there has its default");
}

void ReadEveryWay(const TOstelJsonObject& object, const std::string& name) {
    ReadAs<bool>(object, name, true);
    ReadAs<std::string>(object, name, "x");
    ReadAs<unsigned short>(object, name, 7);
    ReadAs<int>(object, name, 7);
    ReadAs<long>(object, name, 7);
    ReadAs<long long>(object, name, 7);
    ReadAs<double>(object, name, 7);
    const char* const none = nullptr;
    const char* const text = object.GetPropertyValue(name, none);
    Fuzz::Require(
        (text != nullptr) == (object.GetPropertyType(name) == TOstelJsonObject::JSON_TYPE_STRING),
        "texts and only texts are texts");
    object.GetPropertyValue(name, TOstelJsonObject()).EncodeToString(2);
}

void LookAt(TOstelJsonObject& object, const std::string& name) {
    const auto type = object.GetPropertyType(name);
    Fuzz::Require(object.HasProperty(name) && type != TOstelJsonObject::JSON_TYPE_UNKNOWN,
                  "a property is there and has a type");
    Fuzz::Require(
        object.GetObject(name).EncodeToString(-1) == object.GetObjectRef(name).EncodeToString(-1),
        "a copy equals what it was made of");
    ReadEveryWay(object, name);

    std::vector<TOstelJsonObject> sequence;
    object.GetPropertySequence(name, sequence);
    const unsigned int size = object.GetJsonArraySize(name);
    Fuzz::Require(sequence.size() == size, "a sequence has all elements");
    const auto sequenceType = object.GetSequenceType(name);
    Fuzz::Require((sequenceType == TOstelJsonObject::JSON_TYPE_NULL) || size != 0 ||
                      type != TOstelJsonObject::JSON_TYPE_ARRAY,
                  "an empty array is a sequence of null");
    if (sequenceType == TOstelJsonObject::JSON_TYPE_OBJECT) {
        const std::string before = object.GetObject(name).EncodeToString(-1);
        Fuzz::Require(object.SetPropertySequence(name, sequence) == 0 &&
                          object.GetObject(name).EncodeToString(-1) == before,
                      "a sequence that is put back changes nothing");
    }
}

void CheckEncoding(const TOstelJsonObject& object) {
    const std::string compact = object.EncodeToString(-1);
    for (const int indent : {-1, 0, 2}) {
        TOstelJsonObject again;
        Fuzz::Require(again.DecodeFromString(object.EncodeToString(indent)) &&
                          again.EncodeToString(-1) == compact,
                      "what is encoded decodes to the same");
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    TOstelJsonObject object;
    if (!object.DecodeFromString(Fuzz::ToText(data, size))) {
        Fuzz::Require(size == 0 || !object.GetErrorText().empty(), "a failure has a text");
        Fuzz::Require(size == 0 || object.EncodeToString(-1).empty(), "a failure leaves no value");
        ReadEveryWay(object, "NAME");
        Fuzz::Require(size == 0 || object.SetPropertyValue<int>("NAME", 1) == -1,
                      "nothing can be put where there is no value");
        return 0;
    }
    CheckEncoding(object);
    const std::vector<std::string> names = object.GetProperties();
    Fuzz::Require(names.empty() == object.IsEmpty(), "an object with properties is not empty");
    for (const std::string& name : names) {
        LookAt(object, name);
    }
    CheckEncoding(object);
    for (const std::string& name : names) {
        Fuzz::Require(object.RemoveProperty(name) && !object.HasProperty(name),
                      "a property can be removed");
    }
    Fuzz::Require(object.IsEmpty(), "nothing is left");
    return 0;
}
