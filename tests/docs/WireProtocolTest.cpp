// What docs/wire-protocol.md shows is what the gateway and the library say and hear.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "CertificateMaker.h"
#include "ChildProcess.h"
#include "GatewayProcess.h"
#include "Markdown.h"
#include "PrivateBus.h"
#include "RawPeer.h"
#include "TOstelApplication.h"
#include "TlsPeer.h"
#include "WaitUntil.h"

namespace {

using testing::ElementsAreArray;

// A line of a capture: its mark, and the words behind it.
struct TLine {
    char mark;
    std::string text;

    // The first word, and what follows it.
    std::string Head() const { return text.substr(0, text.find(' ')); }
    std::string Tail() const {
        const std::size_t blank = text.find(' ');
        return blank == std::string::npos ? "" : text.substr(blank + 1);
    }
};

std::vector<TLine> Captures(const std::string& language) {
    std::vector<TLine> lines;
    for (const std::string& block : Markdown("docs/wire-protocol.md").Blocks(language)) {
        std::istringstream text(block);
        for (std::string line; std::getline(text, line);) {
            lines.push_back({line.at(0), line.substr(2)});
        }
    }
    return lines;
}

std::string Call(RawPeer& peer, const std::string& method, const std::string& text) {
    DBusMessage* const call = RawPeer::NewCall("OSTEL_DISPATCHER", method);
    const char* const characters = text.c_str();
    dbus_message_append_args(call, DBUS_TYPE_STRING, &characters, DBUS_TYPE_INVALID);
    DBusMessage* const reply = peer.Call(call, 10000);
    const char* answer = "no answer";
    dbus_int32_t code = -1000;
    std::string result;
    if (reply != nullptr && dbus_message_get_args(reply, nullptr, DBUS_TYPE_STRING, &answer,
                                                  DBUS_TYPE_INT32, &code, DBUS_TYPE_INVALID)) {
        result = std::to_string(code) + (*answer == '\0' ? "" : " ") + answer;
        dbus_message_unref(reply);
    }
    return result;
}

// The events that the peer has heard since it was asked last.
class TEvents {
public:
    explicit TEvents(const RawPeer& peer) : m_Peer(peer) {}

    std::vector<std::string> Next(std::size_t count) {
        EXPECT_TRUE(WaitUntil([&] { return All().size() >= m_Seen + count; }));
        const auto all = All();
        const std::vector<std::string> next(all.begin() + static_cast<std::ptrdiff_t>(m_Seen),
                                            all.end());
        m_Seen = all.size();
        return next;
    }

private:
    std::vector<std::string> All() const {
        std::vector<std::string> events;
        for (const RawPeer::TMessage& message : m_Peer.Received()) {
            if (message.type == DBUS_MESSAGE_TYPE_SIGNAL &&
                message.interface == "com.Kaven.Ostel.Ostel" &&
                message.member.rfind("APP_", 0) != 0) {
                events.push_back(message.member + " " + message.text);
            }
        }
        return events;
    }

    const RawPeer& m_Peer;
    std::size_t m_Seen = 0;
};

// The lines with that mark that follow directly.
std::vector<std::string> Following(const std::vector<TLine>& lines, std::size_t& at, char mark) {
    std::vector<std::string> texts;
    for (; at + 1 < lines.size() && lines[at + 1].mark == mark; ++at) {
        texts.push_back(lines[at + 1].text);
    }
    return texts;
}

TEST(WireProtocol, TheBusIsAsItSays) {
    const PrivateBus bus;
    const GatewayProcess gateway(OSTEL_GATEWAY);
    RawPeer peer("OSTEL_PEER");
    TEvents events(peer);
    const std::vector<TLine> lines = Captures("bus");
    std::set<std::string> methods;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        ASSERT_EQ(lines[i].mark, '>') << lines[i].text;
        const TLine request = lines[i];
        methods.insert(request.Head());
        const std::vector<std::string> answer{Call(peer, request.Head(), request.Tail())};
        EXPECT_THAT(Following(lines, i, '<'), ElementsAreArray(answer)) << request.text;
        const std::vector<std::string> announced = Following(lines, i, '!');
        EXPECT_THAT(events.Next(announced.size()), ElementsAreArray(announced)) << request.text;
    }
    EXPECT_EQ(methods.size(), 15U);
}

TEST(WireProtocol, AnApplicationStopsAsItSays) {
    const PrivateBus bus;
    ChildProcess monitor({"dbus-monitor", "--system", "member='Disconnected'"});
    // Its own name is lost when it has become a monitor.
    ASSERT_TRUE(monitor.WaitForOutput("member=NameLost")) << monitor.Errors();
    TOstelApplication::GetInstance()->Initialize(OSTEL_APP_SIMULATOR);
    getOstelIpcInstance()->Stop();
    const std::vector<std::string> shown = Markdown("docs/wire-protocol.md").Blocks("monitor");
    ASSERT_EQ(shown.size(), 1U);
    // Nothing follows: it has no arguments.
    EXPECT_TRUE(monitor.WaitForOutput(shown[0])) << monitor.Output();
    monitor.Signal(SIGTERM);
    monitor.Wait();
    EXPECT_EQ(monitor.Output().find("member=Disconnected") + 20, monitor.Output().size());
}

// An application's observers, as calls in the notation of the document. The test gives them its
// events on its own thread; whatever the gateway announces meanwhile comes on another one.
struct TObservers : IOstelObserver,
                    IOstelCpeClientStateObserver,
                    IOstelDataModelChangeObserver,
                    IOstelAppStateObserver,
                    IOstelDataModelChangeObserverRemote {
    void OnEvent(const std::string& name, const std::string& data) override {
        Add("OnEvent", Quoted(name) + ", " + Quoted(data));
    }
    void OnCpeClientStateChanged(TOstelCpeClientState state, const std::string& macAddress,
                                 const std::string& hostName) override {
        Add("OnCpeClientStateChanged",
            std::to_string(state) + ", " + Quoted(macAddress) + ", " + Quoted(hostName));
    }
    void OnDataModelParamChanged(const std::string& name, const std::string& value) override {
        Add("OnDataModelParamChanged", Quoted(name) + ", " + Quoted(value));
    }
    void OnAppStateChanged(TOstelAppState state, const std::string& appName) override {
        Add("OnAppStateChanged", std::to_string(state) + ", " + Quoted(appName));
    }
    void OnDataModelChangeRemote(const std::string& name, const std::string& value,
                                 const std::string& serialNumber) override {
        Add("OnDataModelChangeRemote",
            Quoted(name) + ", " + Quoted(value) + ", " + Quoted(serialNumber));
    }

    static std::string Quoted(const std::string& text) { return '"' + text + '"'; }
    void Add(const std::string& operation, const std::string& arguments) {
        if (std::this_thread::get_id() == m_Owner) {
            calls.push_back(operation + "(" + arguments + ")");
        }
    }
    std::vector<std::string> calls;

private:
    const std::thread::id m_Owner = std::this_thread::get_id();
};

class WireProtocolRemote : public testing::Test {
protected:
    WireProtocolRemote() {
        std::filesystem::create_directories(m_Directory.Path() / "files");
        std::ofstream(m_Directory.File("files/status.txt")) << "up for a day";
        m_Gateway = std::make_unique<GatewayProcess>(
            OSTEL_GATEWAY, std::vector<std::string>{"--remote-address", m_Host, "--certs",
                                                    m_Certificates.Unit("gateway"), "--files",
                                                    m_Directory.File("files")});
        EXPECT_TRUE(m_App.EnableSecureRemote(m_Unit + "ostel.cert.pem", m_Unit + "ostel.key.pem",
                                             m_Unit + "ostelRoot.cert.pem"));
        m_App.Initialize(OSTEL_APP_SIMULATOR);
    }

    PrivateBus m_Bus;
    CertificateMaker m_Certificates;
    const std::string m_Unit = m_Certificates.Unit("application");
    TempDir m_Directory;
    const std::string m_Host = TlsPeer::FreeHost();
    std::unique_ptr<GatewayProcess> m_Gateway;
    TOstelApplication& m_App = *TOstelApplication::GetInstance();
};

TEST_F(WireProtocolRemote, OtherUnitsAreAnsweredAsItSays) {
    const RawPeer peer;
    TEvents events(peer);
    const std::vector<TLine> lines = Captures("tls");
    ASSERT_GT(lines.size(), 14U);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        ASSERT_EQ(lines[i].mark, '>') << lines[i].text;
        const std::string request = lines[i].text;
        std::string reply;
        std::vector<char> binary;
        EXPECT_TRUE(m_App.PerformRemoteRequest(request, m_Host, reply, &binary));
        EXPECT_THAT(Following(lines, i, '<'), ElementsAreArray({reply})) << request;
        std::vector<std::string> files;
        if (!binary.empty()) {
            files.emplace_back(binary.data(), binary.size());
        }
        EXPECT_THAT(Following(lines, i, '+'), ElementsAreArray(files)) << request;
        const std::vector<std::string> announced = Following(lines, i, '!');
        EXPECT_THAT(events.Next(announced.size()), ElementsAreArray(announced)) << request;
    }
}

TEST_F(WireProtocolRemote, AnAnswerHasTheBytesThatItShows) {
    const std::string answer =
        RunProgram({"openssl", "s_client", "-quiet", "-connect", m_Host + ":42042", "-cert",
                    m_Unit + "ostel.cert.pem", "-key", m_Unit + "ostel.key.pem", "-CAfile",
                    m_Unit + "ostelRoot.cert.pem"},
                   R"({"REQUEST_TYPE":"COMMIT"})")
            .output;
    std::ostringstream bytes;
    for (const char byte : answer) {
        static const char* const digits = "0123456789abcdef";
        const auto value = static_cast<unsigned char>(byte);
        bytes << (bytes.tellp() == 0 ? "" : " ") << digits[value / 16] << digits[value % 16];
    }
    EXPECT_THAT(Markdown("docs/wire-protocol.md").Blocks("hex"),
                ElementsAreArray({bytes.str() + "\n"}));
}

TEST_F(WireProtocolRemote, EventsReachTheObserversThatItNames) {
    TObservers observers;
    m_App.AddObserver(&observers);
    m_App.AddCpeClientStateObserver(&observers);
    m_App.AddDataModelChangeObserver(&observers);
    m_App.AddAppStateChangeObserver(&observers);
    std::vector<TOstelApplication::TOstelAppParam> params{{"Device.Time.NTPServer1", ""}};
    ASSERT_EQ(m_App.AddDataModelChangeObserverRemote(m_Host, params, &observers), RC_SUCCESS);
    const std::vector<TLine> lines = Captures("event");
    ASSERT_GE(lines.size(), 20U);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        ASSERT_EQ(lines[i].mark, '!') << lines[i].text;
        const TLine event = lines[i];
        observers.calls.clear();
        m_App.TOstelEventListener::OnEvent(event.Head(), event.Tail());
        EXPECT_THAT(Following(lines, i, '='), ElementsAreArray(observers.calls)) << event.text;
    }
    m_App.RemoveObserver(&observers);
    m_App.RemoveCpeClientStateObserver(&observers);
    m_App.RemoveDataModelChangeObserver(&observers);
    m_App.RemoveAppStateChangeObserver(&observers);
    EXPECT_EQ(
        m_App.RemoveDataModelChangeObserverRemote(m_Host, {"Device.Time.NTPServer1"}, &observers),
        RC_SUCCESS);
}

}  // namespace
