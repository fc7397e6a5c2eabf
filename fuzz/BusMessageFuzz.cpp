// Bus messages of every kind and signature, through the handlers that take them from the bus.
#include <dbus/dbus.h>

#include <array>
#include <memory>
#include <optional>
#include <string_view>

#include "Fuzz.h"
#include "TOstelDBus.h"

namespace {

constexpr int READ_ARGUMENTS = 3;
// What bounds a message: its signature bounds all else.
constexpr int DEEPEST_VARIANT = 8;
constexpr int MOST_VALUES = 24;

struct TRelease {
    void operator()(DBusMessage* message) const { dbus_message_unref(message); }
};
using TMessage = std::unique_ptr<DBusMessage, TRelease>;

// What the handlers are to make of a message.
struct TExpected {
    std::string text;
    int number = -1;
};

class TBus : public TOstelDBus {
public:
    using TOstelDBus::GetMessageValue;
    using TOstelDBus::MessageHandler;
    using TOstelDBus::MonitorHandler;
};

// Keeps what it is told.
class TParty : public IOstelIpcMethodHandler, public IOstelIpcEventListener {
public:
    struct TTold {
        std::string name;
        std::string data;
    };

    int OnMethodCall(const std::string& name, const std::string& request,
                     std::string& reply) override {
        OnEvent(name, request);
        reply = request;
        return static_cast<int>(request.size());
    }
    void OnEvent(const std::string& name, const std::string& payload) override {
        ++m_Times;
        m_Told = TTold{name, payload};
    }

    // Nothing is expected where there is no value. What it was told is forgotten.
    void RequireTold(const std::optional<TTold>& expected) {
        Fuzz::Require(m_Times == (expected ? 1 : 0), "a message is told of once, if at all");
        Fuzz::Require(
            !expected || (m_Told->name == expected->name && m_Told->data == expected->data),
            "a message is told of by its name, with its text");
        m_Times = 0;
        m_Told.reset();
    }

private:
    int m_Times = 0;
    std::optional<TTold> m_Told;
};

std::string Text(Fuzz::TCursor& cursor, dbus_bool_t (*isFit)(const char*, DBusError*),
                 const char* otherwise) {
    std::string text = cursor.Bytes(cursor.Byte() % 32);
    return text.find('\0') == std::string::npos && isFit(text.c_str(), nullptr) ? text : otherwise;
}

// What may stand in a signature, up to the first other byte, which is taken, too; of a single type
// up to its end. Without what is left open at the end, and empty when it is not valid.
std::string Signature(Fuzz::TCursor& cursor, bool isSingle) {
    constexpr std::string_view codes = "ybnqiuxtdhsogva(){}";
    std::string signature;
    std::size_t complete = 0;
    int depth = 0;
    while (signature.size() < DBUS_MAXIMUM_SIGNATURE_LENGTH && !(isSingle && complete > 0)) {
        const char next = static_cast<char>(cursor.Byte());
        if (codes.find(next) == std::string_view::npos) {
            break;
        }
        signature += next;
        depth += next == '(' || next == '{' ? 1 : 0;
        depth -= next == ')' || next == '}' ? 1 : 0;
        complete = depth == 0 && next != DBUS_TYPE_ARRAY ? signature.size() : complete;
    }
    signature.resize(complete);
    return dbus_signature_validate(signature.c_str(), nullptr) ? signature : "";
}

// Fills a message with values of any valid signature.
class TFiller {
public:
    explicit TFiller(Fuzz::TCursor& cursor) : m_Cursor(cursor) {}

    TExpected Fill(DBusMessage* message, const std::string& signature) {
        TExpected expected;
        DBusMessageIter arguments;
        dbus_message_iter_init_append(message, &arguments);
        DBusSignatureIter types;
        dbus_signature_iter_init(&types, signature.c_str());
        int appended = 0;
        while (dbus_signature_iter_get_current_type(&types) != DBUS_TYPE_INVALID) {
            AppendOne(arguments, types, appended++ < READ_ARGUMENTS ? &expected : nullptr);
            if (!dbus_signature_iter_next(&types)) {
                break;
            }
        }
        return expected;
    }

private:
    // `expected` is null where the handlers read nothing.
    void AppendOne(DBusMessageIter& to, const DBusSignatureIter& type, TExpected* expected) {
        --m_Left;
        switch (const int code = dbus_signature_iter_get_current_type(&type)) {
            case DBUS_TYPE_ARRAY:
            case DBUS_TYPE_STRUCT:
            case DBUS_TYPE_DICT_ENTRY:
                AppendContainer(to, code, type);
                break;
            case DBUS_TYPE_VARIANT:
                AppendVariant(to);
                break;
            case DBUS_TYPE_STRING:
            case DBUS_TYPE_OBJECT_PATH:
            case DBUS_TYPE_SIGNATURE:
                AppendText(to, code, expected);
                break;
            default:
                AppendFixed(to, code, expected);
                break;
        }
    }

    void AppendContainer(DBusMessageIter& to, int code, const DBusSignatureIter& type) {
        DBusSignatureIter types;
        dbus_signature_iter_recurse(&type, &types);
        DBusMessageIter inner;
        if (code == DBUS_TYPE_ARRAY) {
            char* const element = dbus_signature_iter_get_signature(&types);
            Open(to, code, element, inner);
            dbus_free(element);
            for (int i = m_Cursor.Byte() % 4; i > 0 && m_Left > 0; --i) {
                AppendOne(inner, types, nullptr);
            }
        } else {
            Open(to, code, nullptr, inner);
            do {
                AppendOne(inner, types, nullptr);
            } while (dbus_signature_iter_next(&types));
        }
        Close(to, inner);
    }

    void AppendVariant(DBusMessageIter& to) {
        std::string signature = Signature(m_Cursor, true);
        if (signature.empty() || m_Variants >= DEEPEST_VARIANT) {
            signature = DBUS_TYPE_STRING_AS_STRING;
        }
        DBusMessageIter inner;
        Open(to, DBUS_TYPE_VARIANT, signature.c_str(), inner);
        DBusSignatureIter type;
        dbus_signature_iter_init(&type, signature.c_str());
        ++m_Variants;
        AppendOne(inner, type, nullptr);
        --m_Variants;
        Close(to, inner);
    }

    void AppendText(DBusMessageIter& to, int code, TExpected* expected) {
        const std::string text = code == DBUS_TYPE_SIGNATURE ? Signature(m_Cursor, false)
                                 : code == DBUS_TYPE_STRING
                                     ? Text(m_Cursor, dbus_validate_utf8, "com.Kaven.Ostel.KTA")
                                     : Text(m_Cursor, dbus_validate_path, "/com/Kaven/Ostel");
        if (expected != nullptr && code == DBUS_TYPE_STRING) {
            expected->text = text;
        }
        const char* const characters = text.c_str();
        Fuzz::Require(dbus_message_iter_append_basic(&to, code, &characters), "a text fits");
    }

    // Of any fixed type: the bus library takes from the value what the type needs.
    void AppendFixed(DBusMessageIter& to, int code, TExpected* expected) {
        std::uint64_t value = 0;
        for (int i = 0; i < 4; ++i) {
            value = value << 8U | m_Cursor.Byte();
        }
        if (code == DBUS_TYPE_BOOLEAN) {
            value &= 1U;
        } else if (code == DBUS_TYPE_UNIX_FD) {
            value = STDERR_FILENO;
        } else if (code == DBUS_TYPE_INT32 && expected != nullptr) {
            expected->number = static_cast<int>(value);
        }
        Fuzz::Require(dbus_message_iter_append_basic(&to, code, &value), "a number fits");
    }

    static void Open(DBusMessageIter& to, int code, const char* content, DBusMessageIter& inner) {
        Fuzz::Require(dbus_message_iter_open_container(&to, code, content, &inner),
                      "a container fits");
    }

    static void Close(DBusMessageIter& to, DBusMessageIter& inner) {
        Fuzz::Require(dbus_message_iter_close_container(&to, &inner), "a container ends");
    }

    Fuzz::TCursor& m_Cursor;
    int m_Left = MOST_VALUES;  // then arrays are empty
    int m_Variants = 0;        // one in another
};

TMessage Make(Fuzz::TCursor& cursor, int kind) {
    static constexpr std::array<const char*, 5> MEMBERS = {"NAME", "NameAcquired", "NameLost",
                                                           "Another", nullptr};
    TMessage message(dbus_message_new(kind));
    dbus_message_set_serial(message.get(), 1);
    dbus_message_set_path(message.get(), "/com/Kaven/Ostel");
    dbus_message_set_interface(message.get(), "com.Kaven.Ostel");
    dbus_message_set_member(message.get(), MEMBERS.at(cursor.Byte() % MEMBERS.size()));
    return message;
}

std::optional<TParty::TTold> ExpectedTold(DBusMessage* message, const std::string& text) {
    const int type = dbus_message_get_type(message);
    const char* const member = dbus_message_get_member(message);
    const std::string name = member != nullptr ? member : "";
    const bool isTold = type == DBUS_MESSAGE_TYPE_SIGNAL ||
                        (type == DBUS_MESSAGE_TYPE_METHOD_CALL && name == "NAME");
    return isTold ? std::optional(TParty::TTold{name, text}) : std::nullopt;
}

std::optional<TParty::TTold> ExpectedOfMonitor(DBusMessage* message, const std::string& text) {
    constexpr std::string_view prefix = "com.Kaven.Ostel.";
    const char* const member = dbus_message_get_member(message);
    const std::string name = member != nullptr ? member : "";
    if (dbus_message_get_type(message) != DBUS_MESSAGE_TYPE_SIGNAL || text.rfind(prefix, 0) != 0 ||
        (name != "NameAcquired" && name != "NameLost")) {
        return std::nullopt;
    }
    return TParty::TTold{name == "NameAcquired" ? "APP_CONNECTED" : "APP_DISCONNECTED",
                         text.substr(prefix.size())};
}

// `expected` is null for a message that nobody here has built.
void HandOver(DBusMessage* message, const TExpected* expected) {
    static TParty party;
    static TBus& bus = []() -> TBus& {
        static TBus made;
        made.AddMethodHandler("NAME", &party);
        made.AddEventLstener(&party, "");
        return made;
    }();
    std::string text;
    int number = 0;
    TBus::GetMessageValue(message, text, &number);
    bus.MessageHandler(message);
    party.RequireTold(ExpectedTold(message, text));
    bus.MonitorHandler(message);
    party.RequireTold(ExpectedOfMonitor(message, text));
    if (expected != nullptr) {
        Fuzz::Require(text == expected->text && number == expected->number,
                      "the last text and number of the first three arguments are taken");
    }
}

void BuildOne(Fuzz::TCursor& cursor, int kind) {
    const TMessage message = Make(cursor, kind);
    const std::string signature = Signature(cursor, false);
    const TExpected expected = TFiller(cursor).Fill(message.get(), signature);
    Fuzz::Require(signature == dbus_message_get_signature(message.get()),
                  "a message is of the signature that was asked for");
    HandOver(message.get(), &expected);
}

// As it would come over the wire; most are turned down by the bus library.
void ReadOne(const std::string& bytes) {
    DBusError error = DBUS_ERROR_INIT;
    const TMessage message(
        dbus_message_demarshal(bytes.data(), static_cast<int>(bytes.size()), &error));
    dbus_error_free(&error);
    if (message) {
        HandOver(message.get(), nullptr);
    }
}

}  // namespace

// The first byte is the message's kind, or 0 for a message in bytes. The member, the signature and
// the values of one that is built follow.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Fuzz::TCursor cursor(Fuzz::ToText(data, size));
    const int kind = cursor.Byte() % DBUS_NUM_MESSAGE_TYPES;
    if (kind == DBUS_MESSAGE_TYPE_INVALID) {
        ReadOne(cursor.Rest());
    } else {
        BuildOne(cursor, kind);
    }
    return 0;
}
