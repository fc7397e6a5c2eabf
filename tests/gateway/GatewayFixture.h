#ifndef GATEWAY_FIXTURE_H
#define GATEWAY_FIXTURE_H

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "GatewayProcess.h"
#include "PrivateBus.h"
#include "RawPeer.h"
#include "TOstelApplication.h"

// The gateway as applications see it: the real program on a private bus, and this process as an
// application.
class Gateway : public testing::Test {
protected:
    explicit Gateway(const std::vector<std::string>& options = {},
                     const std::string& program = OSTEL_GATEWAY)
        : m_Gateway(program, options), m_App(*TOstelApplication::GetInstance()) {
        m_App.Initialize(OSTEL_CLI);
    }

    std::string Value(const std::string& name) {
        std::string value = "not read";
        m_App.GetParam(name, value);
        return value;
    }

    // A request as it goes over the bus: the reply's text and code.
    static std::pair<std::string, int> Request(RawPeer& peer, const std::string& type,
                                               const std::string& text) {
        DBusMessage* const call = RawPeer::NewCall("OSTEL_DISPATCHER", type);
        const char* const characters = text.c_str();
        dbus_message_append_args(call, DBUS_TYPE_STRING, &characters, DBUS_TYPE_INVALID);
        return Reply(peer, call);
    }

    static std::pair<std::string, int> Reply(RawPeer& peer, DBusMessage* call) {
        DBusMessage* const reply = peer.Call(call, 20000);
        const char* replyText = nullptr;
        dbus_int32_t code = 0;
        if (reply == nullptr || !dbus_message_get_args(reply, nullptr, DBUS_TYPE_STRING, &replyText,
                                                       DBUS_TYPE_INT32, &code, DBUS_TYPE_INVALID)) {
            return {"no reply", -1000};
        }
        const std::pair<std::string, int> result(replyText, code);
        dbus_message_unref(reply);
        return result;
    }

    PrivateBus m_Bus;
    GatewayProcess m_Gateway;
    TOstelApplication& m_App;
};

#endif
