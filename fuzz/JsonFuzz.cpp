// A text becomes a JSON value, and every accessor is asked for everything in it.
#include <cstring>
#include <type_traits>
#include <vector>

#include "Fuzz.h"
#include "TOstelJsonObject.h"

namespace {

using TType = TOstelJsonObject::TOstelJsonType;

// Copies of what lies deeper cost more than they show.
constexpr int DEEPEST = 3;
constexpr unsigned int FAR_AWAY = 1000000;

std::string Compact(const TOstelJsonObject& object) {
    return object.EncodeToString(-1);
}

// Two levels deep, where a copy that is not deep shares its values with what it was made of.
void Empty(TOstelJsonObject& object) {
    for (const std::string& name : object.GetProperties()) {
        object.GetObjectRef(name).Clear();
    }
    object.Clear();
}

// A property, or an element of one.
struct TPlace {
    const TOstelJsonObject& object;
    std::string name;
    unsigned int index = TOstelJsonObject::WHOLE_PROPERTY;
    TType type = object.GetJsonObjectType(object.GetJsonObject(name, index));

    template <typename T>
    T Get(const T& defaultValue) const {
        return object.GetPropertyValue<T>(name, defaultValue, index);
    }
};

template <typename T>
bool IsReadFrom(TType type) {
    if constexpr (std::is_same_v<T, std::string>) {
        return type == TOstelJsonObject::JSON_TYPE_STRING;
    } else if constexpr (std::is_same_v<T, bool>) {
        return type == TOstelJsonObject::JSON_TYPE_BOOLEAN;
    } else {
        return type == TOstelJsonObject::JSON_TYPE_INTEGER ||
               (std::is_same_v<T, double> && type == TOstelJsonObject::JSON_TYPE_REAL);
    }
}

// What is put into an object of its own is read there. One for all of it, since to make one for
// each would be most of the work.
template <typename T, typename TRead = T>
void Put(const T& value, const TRead& expected, const TRead& other) {
    static TOstelJsonObject object;
    Fuzz::Require(object.SetPropertyValue<T>("A", value) == 0 &&
                      object.GetPropertyValue<TRead>("A", other) == expected,
                  "what was put is read");
    Fuzz::Require(object.GetPropertyValue<TRead>("B", other) == other,
                  "what is not there has its default");
}

template <typename T>
T ReadAs(const TPlace& place, const T& one, const T& other) {
    T value = place.Get(one);
    const bool isRead = IsReadFrom<T>(place.type);
    Fuzz::Require(place.Get(other) == (isRead ? value : other) && (isRead || value == one),
                  "what is of another type, and nothing else, has the default");
    if (isRead) {
        Put<T>(value, value, value == one ? other : one);
    }
    return value;
}

// The numbers of every width, also those that are only written.
template <typename T>
void WriteCut(long long number) {
    const T cut = static_cast<T>(number);
    const auto expected = static_cast<long long>(cut);
    Put<T, long long>(cut, expected, ~expected);
}

void WriteNumbers(long long number) {
    // A char is written as a signed one, also on machines where it has no sign.
    const long long low = ((number % 256 + 256 + 128) % 256) - 128;
    Put<char, long long>(static_cast<char>(number), low, low + 1);
    WriteCut<unsigned short>(number);
    WriteCut<unsigned int>(number);
    WriteCut<unsigned long>(number);
    WriteCut<int>(number);
    WriteCut<long>(number);
    WriteCut<long long>(number);
}

void ReadNumbers(const TPlace& place) {
    const auto number = ReadAs<long long>(place, 7, -7);
    const auto narrow = ReadAs<int>(place, 7, -7);
    const auto fixed = ReadAs<long>(place, 7, -7);
    const auto natural = ReadAs<unsigned short>(place, 7, 8);
    const auto real = ReadAs<double>(place, 0.5, -0.5);
    if (place.type == TOstelJsonObject::JSON_TYPE_INTEGER) {
        Fuzz::Require(narrow == static_cast<std::int32_t>(number) && fixed == narrow &&
                          natural == static_cast<unsigned short>(number) &&
                          real == static_cast<double>(number),
                      "a number is cut to its width");
        WriteNumbers(number);
    }
}

void ReadTexts(const TPlace& place) {
    const auto text = ReadAs<std::string>(place, "x", "y");
    const char* const none = nullptr;
    const char* const borrowed = place.Get(none);
    if (place.type != TOstelJsonObject::JSON_TYPE_STRING) {
        Fuzz::Require(borrowed == nullptr, "only texts are texts");
        return;
    }
    Fuzz::Require(borrowed != nullptr && std::strlen(borrowed) == std::strlen(text.c_str()) &&
                      text.compare(0, std::strlen(borrowed), borrowed) == 0,
                  "a borrowed text is the text up to its first zero");
    const std::string longer = text + '\0' + text;
    Put<std::string>(longer, longer, text);
    std::string own = borrowed;
    TOstelJsonObject object;
    object.SetPropertyValue<const char*>("A", borrowed);
    object.SetPropertyValue<char*>("B", own.data());
    object.SetJsonObject("C", object.ToJson(borrowed));
    object.SetJsonObject("D", object.ToJson(own.data()));
    for (const char* const name : {"A", "B", "C", "D"}) {
        Fuzz::Require(own == object.GetPropertyValue(name, none), "a text that was put is read");
    }
}

void ReadObjects(const TPlace& place) {
    static const TOstelJsonObject other = [] {
        TOstelJsonObject object;
        object.SetPropertyValue("?", 1);
        return object;
    }();
    TOstelJsonObject value = place.Get(other);
    if (place.type != TOstelJsonObject::JSON_TYPE_OBJECT) {
        Fuzz::Require(value.HasProperty("?"), "what is no object has the default");
        return;
    }
    const std::string before = Compact(value);
    TOstelJsonObject object;
    Fuzz::Require(object.SetPropertyValue("A", value) == 0 &&
                      Compact(object.GetPropertyValue("A", other)) == before,
                  "an object that was put is read");
    Empty(value);
    Fuzz::Require(Compact(object.GetObject("A")) == before && Compact(place.Get(other)) == before,
                  "an object is copied when it is put or read");
}

void ReadEveryWay(const TPlace& place) {
    ReadAs<bool>(place, true, false);
    ReadNumbers(place);
    ReadTexts(place);
    ReadObjects(place);
}

// A new value of the same kind and content; null where there is no way to make one.
void* Again(const TPlace& place) {
    switch (place.type) {
        case TOstelJsonObject::JSON_TYPE_OBJECT:
            return place.object.ToJson(place.Get(TOstelJsonObject()));
        case TOstelJsonObject::JSON_TYPE_STRING:
            return place.object.ToJson(place.Get<std::string>(""));
        case TOstelJsonObject::JSON_TYPE_INTEGER:
            return place.object.ToJson(place.Get<long long>(0));
        case TOstelJsonObject::JSON_TYPE_REAL:
            return place.object.ToJson(place.Get<double>(0));
        case TOstelJsonObject::JSON_TYPE_BOOLEAN:
            return place.object.ToJson(place.Get<bool>(false));
        default:
            return nullptr;
    }
}

void ReadElements(const TOstelJsonObject& object, const std::string& name) {
    const unsigned int size = object.GetJsonArraySize(name);
    const TType sequenceType = object.GetSequenceType(name);
    TOstelJsonObject other;
    void* array = other.NewJsonArray();
    bool isAgain = true;
    bool isUniform = true;
    for (unsigned int i = 0; i < size; ++i) {
        const TPlace element{object, name, i};
        ReadEveryWay(element);
        isUniform = isUniform && element.type == TPlace{object, name, 0}.type;
        Fuzz::Require(!isUniform || i + 1 < size || sequenceType == element.type,
                      "a sequence has the type of its elements");
        isAgain = other.AppendJsonArray(&array, Again(element)) == 0 && isAgain;
    }
    Fuzz::Require(isUniform || sequenceType == TOstelJsonObject::JSON_TYPE_UNKNOWN,
                  "a sequence of several types has none");
    Fuzz::Require(
        other.SetJsonObject("A", array) == 0 &&
            (!isAgain || Compact(other.GetObject("A")) == Compact(object.GetObject(name))),
        "an array that is built of the same elements is the same");
}

void LookInto(TOstelJsonObject& object, int depth);

void LookAtSequence(TOstelJsonObject& object, const std::string& name, int depth) {
    ReadElements(object, name);
    std::vector<TOstelJsonObject> sequence;
    object.GetPropertySequence(name, sequence);
    Fuzz::Require(sequence.size() == object.GetJsonArraySize(name), "a sequence has all elements");
    const TType sequenceType = object.GetSequenceType(name);
    Fuzz::Require((sequenceType == TOstelJsonObject::JSON_TYPE_NULL) || !sequence.empty(),
                  "an empty array is a sequence of null");
    if (sequenceType == TOstelJsonObject::JSON_TYPE_OBJECT) {
        const std::string before = Compact(object.GetObject(name));
        Fuzz::Require(object.SetPropertySequence(name, sequence) == 0 &&
                          Compact(object.GetObject(name)) == before,
                      "a sequence that is put back changes nothing");
    }
    for (TOstelJsonObject& element : sequence) {
        LookInto(element, depth + 1);
    }
}

void LookAtObject(const TOstelJsonObject& object, const std::string& name, int depth) {
    TOstelJsonObject copy = object.GetObject(name);
    const std::string before = Compact(copy);
    TOstelJsonObject shared = object.GetObjectRef(name);
    std::string fresh = "?";
    while (shared.HasProperty(fresh)) {
        fresh += '?';
    }
    Fuzz::Require(
        shared.SetPropertyValue(fresh, true) == 0 && object.GetObject(name).HasProperty(fresh),
        "what is put through a reference is seen");
    Fuzz::Require(!copy.HasProperty(fresh), "what is put through a reference is in no copy");
    Empty(copy);
    Fuzz::Require(shared.RemoveProperty(fresh) && Compact(object.GetObject(name)) == before,
                  "what is removed through a reference is gone, and nothing with a copy");
    LookInto(shared, depth + 1);
}

void LookAt(TOstelJsonObject& object, const std::string& name, int depth) {
    const TType type = object.GetPropertyType(name);
    Fuzz::Require(object.HasProperty(name) && type != TOstelJsonObject::JSON_TYPE_UNKNOWN,
                  "a property is there and has a type");
    const std::string beyond = name + '\0' + name;
    Fuzz::Require(!object.HasProperty(beyond) && !object.RemoveProperty(beyond) &&
                      object.SetPropertyValue(beyond, 1) == -1,
                  "there is nothing behind a zero in a name");
    Fuzz::Require(Compact(object.GetObject(name)) == Compact(object.GetObjectRef(name)),
                  "a copy equals what it was made of");
    const TPlace whole{object, name};
    Fuzz::Require(whole.type == type && TPlace({object, name, FAR_AWAY}).type == type,
                  "what is beyond the last element is the whole");
    ReadEveryWay(whole);
    if (type == TOstelJsonObject::JSON_TYPE_ARRAY) {
        LookAtSequence(object, name, depth);
    } else {
        Fuzz::Require(object.GetJsonArraySize(name) == 0 &&
                          object.GetSequenceType(name) == TOstelJsonObject::JSON_TYPE_UNKNOWN,
                      "only arrays are sequences");
    }
    if (type == TOstelJsonObject::JSON_TYPE_OBJECT) {
        LookAtObject(object, name, depth);
    }
}

void LookInto(TOstelJsonObject& object, int depth) {
    if (depth > DEEPEST) {
        return;
    }
    const std::vector<std::string> names = object.GetProperties();
    Fuzz::Require(names.empty() == object.IsEmpty(), "an object with properties is not empty");
    for (const std::string& name : names) {
        LookAt(object, name, depth);
    }
}

void CheckEncoding(const TOstelJsonObject& object) {
    const std::string compact = Compact(object);
    for (const int indent : {-1, 0, 2}) {
        TOstelJsonObject again;
        Fuzz::Require(again.DecodeFromString(object.EncodeToString(indent)) &&
                          Compact(again) == compact && again.GetErrorText().empty(),
                      "what is encoded decodes to the same");
    }
}

void CheckFile(const TOstelJsonObject& object, int indent) {
    static const Fuzz::TMemoryFile file;
    TOstelJsonObject again;
    Fuzz::Require(object.DumpToFile(file.Path(), indent) && again.LoadFile(file.Path()) &&
                      Compact(again) == Compact(object) && again.GetErrorText().empty(),
                  "what is dumped is loaded");
}

void CheckCopies(const TOstelJsonObject& object) {
    const std::string compact = Compact(object);
    TOstelJsonObject copy(object);
    TOstelJsonObject assigned;
    assigned.DecodeFromString("[");
    const std::string error = assigned.GetErrorText();
    assigned = object;
    const TOstelJsonObject& same = assigned;
    assigned = same;
    Fuzz::Require(Compact(copy) == compact && Compact(assigned) == compact, "copies are equal");
    Fuzz::Require(copy.GetErrorText().empty() && assigned.GetErrorText() == error,
                  "errors are not copied");
    Empty(copy);
    Fuzz::Require(Compact(object) == compact && Compact(assigned) == compact,
                  "a copy is no part of what it was made of");
    const bool isObject = compact[0] == '{';
    Empty(assigned);
    Fuzz::Require(Compact(object) == compact, "what was assigned is no part of where it is from");
    Fuzz::Require(assigned.Clear() == isObject &&
                      (assigned.SetPropertyValue("A", 1) == 0) == isObject &&
                      Compact(assigned) == (isObject ? "{\"A\":1}" : compact),
                  "objects and only objects can be cleared and written to");
}

// The same bytes out of a file.
void CheckFailure(const std::string& text, TOstelJsonObject& object) {
    if (text.empty()) {
        Fuzz::Require(Compact(object) == "{}", "the empty text changes nothing");
        return;
    }
    static const Fuzz::TMemoryFile file;
    file.Write(text);
    TOstelJsonObject loaded;
    Fuzz::Require(!loaded.LoadFile(file.Path()) && !loaded.GetErrorText().empty(),
                  "what is no text is no file");
    Fuzz::Require(!object.GetErrorText().empty(), "a failure has a text");
    Fuzz::Require(Compact(object).empty() && object.IsEmpty() && object.GetProperties().empty(),
                  "a failure leaves no value");
    ReadEveryWay({object, "NAME"});
    Fuzz::Require(object.SetPropertyValue<int>("NAME", 1) == -1 && !object.Clear() &&
                      !object.RemoveProperty("NAME"),
                  "nothing can be put where there is no value");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    TOstelJsonObject object;
    const std::string text = Fuzz::ToText(data, size);
    if (!object.DecodeFromString(text)) {
        CheckFailure(text, object);
        return 0;
    }
    CheckEncoding(object);
    CheckFile(object, size % 2 == 0 ? -1 : 2);
    CheckCopies(object);
    const std::string before = Compact(object);
    LookInto(object, 0);
    Fuzz::Require(Compact(object) == before, "who looks changes nothing");
    for (const std::string& name : object.GetProperties()) {
        Fuzz::Require(object.RemoveProperty(name) && !object.HasProperty(name),
                      "a property can be removed");
    }
    Fuzz::Require(object.IsEmpty(), "nothing is left");
    return 0;
}
