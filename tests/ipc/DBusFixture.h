#ifndef D_BUS_FIXTURE_H
#define D_BUS_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "PrivateBus.h"
#include "RawPeer.h"
#include "RecordingLog.h"
#include "RuntimeErrorOf.h"
#include "TOstelDBus.h"
#include "WaitUntil.h"

// The transport with what it keeps to itself in reach.
class TOpenDBus : public TOstelDBus {
public:
    using TOstelDBus::BecomeMonitor;
    using TOstelDBus::GetMessageValue;
    using TOstelDBus::MessageHandler;
    using TOstelDBus::MonitorHandler;
    using TOstelDBus::RegisterBusName;
    using TOstelDBus::ReleaseBusName;
    using TOstelDBus::Reply;

    // The workers call virtual operations, so they end before the object begins to.
    ~TOpenDBus() override { TOpenDBus::Stop(); }

    // How long a worker waits that nobody wakes, from its next wait on.
    void SetDispatchTimeout(std::chrono::milliseconds timeout);

    bool IsRunning() const { return m_Running; }
    const std::string& Name() const { return m_Name; }
    std::size_t Workers() const { return m_Workers.size(); }
};

class TEventLog : public IOstelIpcEventListener {
public:
    void OnEvent(const std::string& name, const std::string& data) override {
        if (then) {
            then(name);
        }
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Events.push_back(name + "=" + data);
    }
    std::vector<std::string> Events() const {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        return m_Events;
    }
    bool WaitFor(const std::string& event) const {
        return WaitUntil([&] {
            const auto events = Events();
            return std::find(events.begin(), events.end(), event) != events.end();
        });
    }
    std::function<void(const std::string&)> then;

private:
    mutable std::mutex m_Mutex;
    std::vector<std::string> m_Events;
};

class TCallHandler : public IOstelIpcMethodHandler {
public:
    using TAnswer = std::function<int(const std::string& data, std::string& reply)>;
    explicit TCallHandler(TAnswer answer) : m_Answer(std::move(answer)) {}
    int OnMethodCall(const std::string&, const std::string& data, std::string& reply) override {
        return m_Answer(data, reply);
    }

private:
    TAnswer m_Answer;
};

class DBus : public testing::Test {
protected:
    // A call with one text argument to an application, and its reply's text and code.
    static std::pair<std::string, int> CallAs(RawPeer& peer, const std::string& id,
                                              const std::string& member, const std::string& text) {
        DBusMessage* const call = RawPeer::NewCall(id, member);
        const char* const characters = text.c_str();
        dbus_message_append_args(call, DBUS_TYPE_STRING, &characters, DBUS_TYPE_INVALID);
        return Result(peer.Call(call, 5000));
    }

    static std::pair<std::string, int> Result(DBusMessage* reply) {
        const char* text = nullptr;
        dbus_int32_t code = 0;
        if (reply == nullptr || !dbus_message_get_args(reply, nullptr, DBUS_TYPE_STRING, &text,
                                                       DBUS_TYPE_INT32, &code, DBUS_TYPE_INVALID)) {
            return {"no reply", -1000};
        }
        const std::pair<std::string, int> result(text, code);
        dbus_message_unref(reply);
        return result;
    }

    // Waits until the name has an owner on the bus, or has none.
    static bool WaitForName(const std::string& name, bool owned) {
        return WaitUntil([&] { return HasOwner(name) == owned; });
    }

    static bool HasOwner(const std::string& name);

    PrivateBus m_Bus;
};

#endif
