// The service of other units, with clients that behave and clients that do not.
#include "RemoteService.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <new>
#include <system_error>

#include "CertificateMaker.h"
#include "ChildProcess.h"
#include "Emulated.h"
#include "RecordingLog.h"
#include "RemoteProtocol.h"
#include "Resources.h"
#include "ScarceThreads.h"
#include "TlsPeer.h"
#include "WaitUntil.h"

namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;

class RemoteService : public testing::Test {
protected:
    // As the gateway does.
    void SetUp() override { signal(SIGPIPE, SIG_IGN); }

    void Start(milliseconds limit = std::chrono::seconds(10), std::size_t connections = 32) {
        m_Service = std::make_unique<TRemoteService>(
            TRemoteService::TSettings{m_Host, limit, connections}, m_Context,
            [this](const std::string& request, const std::string&) {
                ++m_Requests;
                if (m_OnRequest) {
                    m_OnRequest();
                }
                return RemoteProtocol::Framed(request.empty() ? "malformed" : request, m_Binary);
            });
    }

    // A client with this unit's certificates that sends the text and waits for the end.
    std::vector<std::string> Client(const std::string& unit,
                                    const std::vector<std::string>& more = {}) const {
        std::vector<std::string> command = {"openssl",  "s_client",
                                            "-quiet",   "-verify_return_error",
                                            "-connect", m_Host + ":42042",
                                            "-cert",    unit + "ostel.cert.pem",
                                            "-key",     unit + "ostel.key.pem",
                                            "-CAfile",  unit + "ostelRoot.cert.pem"};
        command.insert(command.end(), more.begin(), more.end());
        return command;
    }

    // The answer's document; empty when there was none.
    std::string Ask(const std::string& text, const std::string& unit,
                    const std::vector<std::string>& more = {}) const {
        const TFinished client = RunProgram(Client(unit, more), text);
        return client.output.size() > 8 ? client.output.substr(8) : "";
    }

    // A busy machine may need longer for a request than the service has for it.
    bool IsServed() const {
        return WaitUntil([&] { return Ask("{}", m_Unit) == "{}"; });
    }

    int ConnectPlainly() const {
        const int connected = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(RemoteProtocol::PORT);
        inet_pton(AF_INET, m_Host.c_str(), &address.sin_addr);
        const void* const plain = &address;
        EXPECT_EQ(connect(connected, static_cast<const sockaddr*>(plain), sizeof address), 0);
        return connected;
    }

    // Whether the service ends the connection.
    static bool IsEnded(int connected) {
        const timeval limit = {10, 0};
        setsockopt(connected, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        char byte = 0;
        ssize_t size = 1;
        while (size > 0) {
            size = recv(connected, &byte, 1, 0);
        }
        return size == 0 || errno == ECONNRESET;
    }

    CertificateMaker m_Certificates;
    const std::string m_Unit = m_Certificates.Unit("unit");
    const TTlsContext m_Context{m_Unit};
    const std::string m_Host = TlsPeer::FreeHost();
    std::atomic<int> m_Requests{0};
    std::function<void()> m_OnRequest;  // set before the start, as is the next
    std::string m_Binary;
    std::unique_ptr<TRemoteService> m_Service;
};

TEST_F(RemoteService, AnswersADocumentAsSoonAsItIsComplete) {
    Start();
    EXPECT_EQ(Ask(R"({"a":"}"})", m_Unit), R"({"a":"}"})");
    EXPECT_EQ(Ask("  {}", m_Unit), "  {}");
}

TEST_F(RemoteService, TakesNothingThatFollowsADocument) {
    Start();
    EXPECT_EQ(Ask("{}garbage", m_Unit), "{}");
    EXPECT_EQ(Ask(std::string("{}\0{\"a\":1}", 10), m_Unit), "{}");
}

TEST_F(RemoteService, TakesRequestsOf64KibibytesAndNoMore) {
    Start();
    const auto document = [](std::size_t size) {
        return "{\"a\":\"" + std::string(size - 8, 'x') + "\"}";
    };
    EXPECT_TRUE(Ask(document(65536), m_Unit) == document(65536));
    EXPECT_EQ(Ask(document(65537), m_Unit), "malformed");
}

TEST_F(RemoteService, Has10SecondsAnd32ConnectionsUnlessToldOtherwise) {
    EXPECT_EQ(TRemoteService::TSettings().limit, std::chrono::seconds(10));
    EXPECT_EQ(TRemoteService::TSettings().connections, 32U);
}

TEST_F(RemoteService, AnswersWhatIsNoDocumentAsMalformed) {
    Start();
    for (const std::string& text :
         {std::string("[]"), std::string("nonsense"), std::string(70000, ' '),
          "{\"a\":\"" + std::string(70000, 'x') + "\"}"}) {
        EXPECT_EQ(Ask(text, m_Unit), "malformed") << text.substr(0, 20);
    }
}

TEST_F(RemoteService, TakesNoMoreThanItsLimitOfBlanks) {
    Start();
    const int before = Resources::Memory("VmHWM:");
    ChildProcess client(
        {"sh", "-c",
         "head -c 1000000000 /dev/zero | tr '\\0' ' ' | openssl s_client -quiet -connect " +
             m_Host + ":42042 -cert " + m_Unit + "ostel.cert.pem -key " + m_Unit +
             "ostel.key.pem -CAfile " + m_Unit + "ostelRoot.cert.pem; true"});
    EXPECT_EQ(client.Wait(), 0);
    EXPECT_EQ(m_Requests, 1);
    EXPECT_LT(Resources::Memory("VmHWM:") - before, 32 << 10);
}

TEST_F(RemoteService, WantsACertificateOfTheRoot) {
    Start();
    EXPECT_EQ(Ask("{}", m_Certificates.Unit("other")), "{}");
    for (const std::string& unit :
         {m_Certificates.SelfSigned("self"), m_Certificates.Foreign("foreign"),
          m_Certificates.Expired("expired")}) {
        EXPECT_EQ(Ask("{}", unit), "") << unit;
    }
    const TFinished none =
        RunProgram({"openssl", "s_client", "-quiet", "-connect", m_Host + ":42042"}, "{}");
    EXPECT_EQ(none.output, "");
    EXPECT_EQ(m_Requests, 1);
}

TEST_F(RemoteService, SpeaksTls12AndLaterOnly) {
    Start();
    EXPECT_EQ(Ask("{}", m_Unit, {"-tls1_2"}), "{}");
    EXPECT_EQ(Ask("{}", m_Unit, {"-tls1_3"}), "{}");
    EXPECT_EQ(Ask("{}", m_Unit, {"-tls1_1", "-cipher", "DEFAULT@SECLEVEL=0"}), "");
}

TEST_F(RemoteService, CutsOffWhoTakesTooLong) {
    Start(milliseconds(300));
    const int silent = ConnectPlainly();
    EXPECT_TRUE(IsEnded(silent));
    close(silent);
    // A session without a request, and one whose request never ends.
    EXPECT_EQ(Ask("", m_Unit), "");
    EXPECT_EQ(Ask("{\"a\":", m_Unit), "");
    EXPECT_EQ(m_Requests, 0);
}

TEST_F(RemoteService, ThoseBeyondTheLimitWaitTheirTurn) {
    std::atomic<int> served{0};
    std::atomic<int> most{0};
    // Each is served until one too many is, or long enough for the others to come.
    m_OnRequest = [&] {
        ++served;
        WaitUntil(
            [&] {
                most = std::max(most.load(), served.load());
                return most > 2;
            },
            milliseconds(300));
        --served;
    };
    Start(std::chrono::seconds(10), 2);
    std::vector<std::unique_ptr<ChildProcess>> clients;
    for (int i = 0; i < 6; ++i) {
        clients.push_back(std::make_unique<ChildProcess>(Client(m_Unit), "{}"));
    }
    for (const auto& client : clients) {
        EXPECT_EQ(client->Wait(), 0);
        EXPECT_THAT(client->Output(), HasSubstr("{}"));
    }
    EXPECT_EQ(most, 2);
}

TEST_F(RemoteService, WhoWaitsForAPlaceIsServedOnceSilentOnesAreCutOff) {
    Start(milliseconds(2000), 2);
    const int first = ConnectPlainly();
    const int second = ConnectPlainly();
    const int third = ConnectPlainly();
    EXPECT_EQ(Ask("{}", m_Unit), "{}");
    for (const int connected : {first, second, third}) {
        EXPECT_TRUE(IsEnded(connected));
        close(connected);
    }
}

TEST_F(RemoteService, SurvivesAThousandSilentConnectionsAtOnce) {
    // Both ends of each are this process's.
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 4096);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    // Enough for a handshake, also when the machine is busy.
    Start(milliseconds(OSTEL_SANITIZED ? 400 : 100));
    const auto before = Resources::Descriptors();
    std::vector<int> idle(1000);
    for (int& connected : idle) {
        connected = ConnectPlainly();
    }
    for (const int connected : idle) {
        EXPECT_TRUE(IsEnded(connected));
        close(connected);
    }
    EXPECT_TRUE(IsServed());
    EXPECT_TRUE(WaitUntil([&] { return Resources::Descriptors() == before; }));
}

TEST_F(RemoteService, KeepsNothingOfPeersThatSendGarbageOrLeave) {
    Start();
    const auto fail = [this](int count) {
        const std::string kinds[] = {"", "GET / HTTP/1.0\r\n\r\n", std::string(10000, '\xFF'),
                                     std::string("\x16\x03\x01\x02\x00\x01", 6)};
        for (int i = 0; i < count; ++i) {
            const std::string& bytes = kinds[i % 4];
            const int connected = ConnectPlainly();
            send(connected, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            shutdown(connected, SHUT_WR);
            EXPECT_TRUE(IsEnded(connected)) << bytes.substr(0, 10);
            close(connected);
        }
    };
    const auto before = Resources::Descriptors();
    // The first ones fill the caches of the C library and of OpenSSL.
    fail(200);
    const int memory = Resources::Memory("VmHWM:");
    fail(1000);
    EXPECT_TRUE(WaitUntil([&] { return Resources::Descriptors() == before; }));
    // The sanitizers keep what was freed, and look for leaks themselves.
    EXPECT_LT(Resources::Memory("VmHWM:") - memory, OSTEL_SANITIZED ? 1 << 20 : 4 << 10);
    EXPECT_EQ(Ask("{}", m_Unit), "{}");
}

TEST_F(RemoteService, OutlivesARequestThatCannotBeServed) {
    std::atomic<bool> fails{true};
    m_OnRequest = [&] {
        if (fails) {
            throw std::bad_alloc();
        }
    };
    Start(std::chrono::seconds(10), 1);
    EXPECT_EQ(Ask("{}", m_Unit), "");
    EXPECT_EQ(Ask("{}", m_Unit), "");
    // The line comes behind the end of the connection.
    EXPECT_TRUE(WaitUntil([] { return RecordingLog::Count(2, "127.0.0.1: std::bad_alloc") == 2; }));
    fails = false;
    EXPECT_EQ(Ask("{}", m_Unit), "{}");
}

TEST_F(RemoteService, SaysThatItHasTooFewThreads) {
    SKIP_WHERE_EMULATED("puts no limit on addresses");
    {
        const ScarceThreads scarce(2);
        EXPECT_THROW(Start(), std::system_error);
    }
    Start();
    EXPECT_EQ(Ask("{}", m_Unit), "{}");
}

// Connections that have just ended still hold the port.
TEST_F(RemoteService, StartsAgainAtOnce) {
    Start();
    EXPECT_EQ(Ask("{}", m_Unit), "{}");
    m_Service.reset();
    Start();
    EXPECT_EQ(Ask("{}", m_Unit), "{}");
}

TEST_F(RemoteService, EndsWithoutWaitingForItsPeers) {
    Start();
    const int silent = ConnectPlainly();
    const auto start = std::chrono::steady_clock::now();
    m_Service.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
    EXPECT_TRUE(IsEnded(silent));
    close(silent);
}

TEST_F(RemoteService, SaysWhyItCannotListen) {
    Start();
    const auto error = [&](const std::string& host) {
        try {
            const TRemoteService service({host}, m_Context, nullptr);
        } catch (const std::runtime_error& failure) {
            return std::string(failure.what());
        }
        return std::string();
    };
    EXPECT_EQ(error(m_Host), m_Host + ":42042: Address already in use");
    EXPECT_EQ(error("192.0.2.1"), "192.0.2.1:42042: Cannot assign requested address");
    EXPECT_EQ(error("localhost"), "localhost: not an IPv4 address");
}

class AClientOfTheRemoteService : public RemoteService {
protected:
    std::unique_ptr<TTlsSession> Connect() {
        const int connected = ConnectPlainly();
        EXPECT_EQ(fcntl(connected, F_SETFL, O_NONBLOCK), 0);
        auto client = std::make_unique<TTlsSession>(
            connected, m_Context, TTlsSession::TRole::CLIENT, m_Stop,
            std::chrono::steady_clock::now() + std::chrono::seconds(10));
        EXPECT_TRUE(client->Handshake());
        return client;
    }

    bool TakesAnswer(TTlsSession& client) const {
        std::string answer;
        return client.ReadExactly(8 + 2 + m_Binary.size(), answer);
    }

    TStopSignal m_Stop;
};

TEST_F(AClientOfTheRemoteService, LosesNothingByWhatItSendsBehindItsRequest) {
    m_Binary = std::string(RemoteProtocol::LARGEST_BINARY, 'x');
    Start();
    const auto client = Connect();
    const auto during = Resources::Descriptors();
    ASSERT_TRUE(client->Write("{}"));
    ASSERT_TRUE(WaitUntil([&] { return m_Requests == 1; }));
    ASSERT_TRUE(client->Write("\n"));
    // Time for the service to close its end, if it does not see to it that all has arrived.
    WaitUntil([&] { return Resources::Descriptors() < during; }, milliseconds(300));
    EXPECT_TRUE(TakesAnswer(*client));
}

TEST_F(AClientOfTheRemoteService, IsCutOffWhenItDoesNotTakeTheAnswer) {
    // More than the sockets' buffers hold.
    m_Binary = std::string(16 << 20, 'x');
    Start(milliseconds(3000), 1);
    const auto client = Connect();
    ASSERT_TRUE(client->Write("{}"));
    ASSERT_TRUE(WaitUntil([&] { return m_Requests == 1; }));
    // There is one thread, so that the next one comes when the first is over.
    ChildProcess next(Client(m_Unit), "{}");
    EXPECT_TRUE(WaitUntil([&] { return m_Requests == 2; }));
}

// It would be whole in the end.
TEST_F(AClientOfTheRemoteService, GainsNoTimeByASlowRequest) {
    Start(milliseconds(2000));
    const auto before = Resources::Descriptors();
    const auto client = Connect();
    EXPECT_TRUE(client->Write("{\"a\":["));
    const auto isCutOff = [&] { return Resources::Descriptors() == before + 1; };
    for (int piece = 0; piece < 60 && !WaitUntil(isCutOff, milliseconds(100)); ++piece) {
        client->Write("1,");
    }
    EXPECT_TRUE(isCutOff());
    client->Write("1]}");
    EXPECT_EQ(m_Requests, 0);
    EXPECT_TRUE(IsServed());
}

TEST_F(AClientOfTheRemoteService, MayNotStayForever) {
    Start(milliseconds(2000));
    const auto before = Resources::Descriptors();
    const auto client = Connect();
    ASSERT_TRUE(client->Write("{}"));
    EXPECT_TRUE(TakesAnswer(*client));
    EXPECT_TRUE(WaitUntil([&] { return Resources::Descriptors() == before + 1; }));
}

}  // namespace
