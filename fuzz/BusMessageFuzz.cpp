// Bus messages of every kind and signature, through the handlers that take them from the bus.
#include <dbus/dbus.h>

#include <array>
#include <memory>

#include "Fuzz.h"
#include "TOstelDBus.h"

namespace {

constexpr int READ_ARGUMENTS = 3;
// The bus library builds no signature of more than 255 characters, and does not check that.
constexpr int DEEPEST = 2;
constexpr int MOST_ARGUMENTS = 8;

struct TRelease {
    void operator()(DBusMessage* message) const { dbus_message_unref(message); }
};
using TMessage = std::unique_ptr<DBusMessage, TRelease>;

// What the handlers are to make of a message.
struct TExpected {
    std::string text;
    int number = -1;
    int arguments = 0;
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
    int OnMethodCall(const std::string&, const std::string& request, std::string& reply) override {
        Take(request);
        reply = request;
        return static_cast<int>(request.size());
    }
    void OnEvent(const std::string&, const std::string& payload) override { Take(payload); }

    const std::string& Data() const { return m_Data; }
    int Told() const { return m_Told; }

private:
    void Take(const std::string& data) {
        m_Data = data;
        ++m_Told;
    }

    std::string m_Data;
    int m_Told = 0;
};

std::string Text(Fuzz::TCursor& cursor) {
    std::string text = cursor.Bytes(cursor.Byte() % 32);
    const bool isFit =
        text.find('\0') == std::string::npos && dbus_validate_utf8(text.c_str(), nullptr);
    return isFit ? text : "com.Kaven.Ostel.KTA";
}

void AppendText(DBusMessageIter& iter, int type, const std::string& text) {
    const char* const characters = text.c_str();
    Fuzz::Require(dbus_message_iter_append_basic(&iter, type, &characters), "a text fits");
}

// Of any fixed type: the bus library takes from the value what the type needs.
void AppendFixed(DBusMessageIter& iter, int type, Fuzz::TCursor& cursor, TExpected* expected) {
    std::uint64_t value = 0;
    for (int i = 0; i < 4; ++i) {
        value = value << 8U | cursor.Byte();
    }
    if (type == DBUS_TYPE_BOOLEAN) {
        value &= 1U;
    } else if (type == DBUS_TYPE_UNIX_FD) {
        value = STDERR_FILENO;
    }
    if (expected != nullptr && type == DBUS_TYPE_INT32) {
        expected->number = static_cast<int>(value);
    }
    Fuzz::Require(dbus_message_iter_append_basic(&iter, type, &value), "a number fits");
}

void AppendContainer(DBusMessageIter& iter, Fuzz::TCursor& cursor, int depth);

// `expected` is null below the top.
void AppendOne(DBusMessageIter& iter, Fuzz::TCursor& cursor, int depth, TExpected* expected) {
    static constexpr std::array<int, 13> TYPES = {
        DBUS_TYPE_STRING, DBUS_TYPE_INT32,  DBUS_TYPE_BYTE,        DBUS_TYPE_BOOLEAN,
        DBUS_TYPE_INT16,  DBUS_TYPE_UINT16, DBUS_TYPE_UINT32,      DBUS_TYPE_INT64,
        DBUS_TYPE_UINT64, DBUS_TYPE_DOUBLE, DBUS_TYPE_OBJECT_PATH, DBUS_TYPE_SIGNATURE,
        DBUS_TYPE_UNIX_FD};
    const std::size_t choice = cursor.Byte() % (TYPES.size() + 4);
    if (choice >= TYPES.size()) {
        AppendContainer(iter, cursor, depth);
        return;
    }
    const int type = TYPES.at(choice);
    if (type == DBUS_TYPE_STRING) {
        const std::string text = Text(cursor);
        AppendText(iter, type, text);
        if (expected != nullptr) {
            expected->text = text;
        }
    } else if (type == DBUS_TYPE_OBJECT_PATH || type == DBUS_TYPE_SIGNATURE) {
        AppendText(iter, type, type == DBUS_TYPE_SIGNATURE ? "a{sv}" : "/com/Kaven/Ostel");
    } else {
        AppendFixed(iter, type, cursor, expected);
    }
}

void AppendContainer(DBusMessageIter& iter, Fuzz::TCursor& cursor, int depth) {
    static constexpr std::array<const char*, 6> ELEMENTS = {"s", "i", "(si)", "{sv}", "as", "v"};
    DBusMessageIter inner;
    const unsigned int kind = cursor.Byte() % 3;
    if (kind == 0) {
        const char* const element = ELEMENTS.at(cursor.Byte() % ELEMENTS.size());
        dbus_message_iter_open_container(&iter, DBUS_TYPE_ARRAY, element, &inner);
        for (int i = cursor.Byte() % 3; i > 0 && *element == 's'; --i) {
            AppendText(inner, DBUS_TYPE_STRING, Text(cursor));
        }
    } else if (kind == 1 && depth < DEEPEST) {
        dbus_message_iter_open_container(&iter, DBUS_TYPE_STRUCT, nullptr, &inner);
        for (int i = cursor.Byte() % 2; i >= 0; --i) {
            AppendOne(inner, cursor, depth + 1, nullptr);
        }
    } else {
        dbus_message_iter_open_container(&iter, DBUS_TYPE_VARIANT, "s", &inner);
        AppendText(inner, DBUS_TYPE_STRING, Text(cursor));
    }
    dbus_message_iter_close_container(&iter, &inner);
}

TMessage Make(Fuzz::TCursor& cursor, unsigned int kind) {
    static constexpr std::array<const char*, 4> MEMBERS = {"NAME", "NameAcquired", "NameLost",
                                                           "Another"};
    TMessage message(dbus_message_new(static_cast<int>(kind)));
    dbus_message_set_serial(message.get(), 1);
    dbus_message_set_path(message.get(), "/com/Kaven/Ostel");
    dbus_message_set_interface(message.get(), "com.Kaven.Ostel");
    if (cursor.Byte() % 8 != 0) {
        dbus_message_set_member(message.get(), MEMBERS.at(cursor.Byte() % MEMBERS.size()));
    }
    return message;
}

void HandOver(DBusMessage* message, const TExpected* expected) {
    TBus bus;
    TParty party;
    bus.AddMethodHandler("NAME", &party);
    bus.AddEventLstener(&party, "");
    std::string text;
    int number = 0;
    TBus::GetMessageValue(message, text, &number);
    bus.MessageHandler(message);
    const int told = party.Told();
    const bool isRight = party.Data() == text;
    bus.MonitorHandler(message);
    Fuzz::Require(told <= 1 && (told == 0 || isRight), "one is told once, and of the text");
    if (expected != nullptr) {
        Fuzz::Require(text == expected->text && number == expected->number,
                      "the last text and number of the first three arguments are taken");
    }
}

void BuildOne(Fuzz::TCursor& cursor, unsigned int kind) {
    const TMessage message = Make(cursor, kind);
    TExpected expected;
    DBusMessageIter iter;
    dbus_message_iter_init_append(message.get(), &iter);
    while (!cursor.AtEnd() && expected.arguments < MOST_ARGUMENTS) {
        const bool isRead = expected.arguments++ < READ_ARGUMENTS;
        AppendOne(iter, cursor, 0, isRead ? &expected : nullptr);
    }
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

// The first byte is the message's kind, or 0 for a message in bytes.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Fuzz::TCursor cursor(Fuzz::ToText(data, size));
    const unsigned int kind = cursor.Byte() % DBUS_NUM_MESSAGE_TYPES;
    if (kind == DBUS_MESSAGE_TYPE_INVALID) {
        ReadOne(cursor.Rest());
    } else {
        BuildOne(cursor, kind);
    }
    return 0;
}
