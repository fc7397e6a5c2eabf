#ifndef REMOTE_TEST_H
#define REMOTE_TEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <future>
#include <iterator>
#include <string>
#include <vector>

#include "CertificateMaker.h"
#include "RecordingLog.h"
#include "SocketCalls.h"
#include "TOstelApplication.h"
#include "TlsPeer.h"

// The TLS context is nobody's business but its owner's; what was set on it cannot be seen from
// outside in every case.
struct TTlsContext {
    friend ssl_ctx_st* TOstelApplication::*MemberOf(TTlsContext);
};

const char* const OK_REPLY = R"({"STATUS":"OK"})";

// The process's application object without any certificates, so that its requests are in plain
// text, and peers to send them to. It needs no bus.
class RemoteTest : public testing::Test {
protected:
    using TParam = TOstelApplication::TOstelAppParam;
    using TParams = std::vector<TParam>;

    RemoteTest() {
        m_App.SetCertPath("/nonexistent/");
        m_App.EnableSecureRemote("", "", "");
        RecordingLog::Clear();
        SocketCalls::Clear();
    }

    bool Perform(const std::string& host) {
        return m_App.PerformRemoteRequest("{}", host, m_Reply, nullptr);
    }

    // A request has no time-out of its own.
    void ExpectToWaitForASilentPeer() {
        std::promise<void> end;
        const TlsPeer peer({},
                           [released = end.get_future().share()](TlsPeer::TConnection& connection) {
                               connection.Receive();
                               released.wait();
                           });
        auto request =
            std::async(std::launch::async, [&] { return m_App.CommitRemote(peer.Host()); });
        ASSERT_TRUE(peer.WaitForRequest());
        EXPECT_EQ(request.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
        end.set_value();
        EXPECT_EQ(request.get(), RC_FAILURE);
    }

    SSL_CTX* Context() const { return m_App.*MemberOf(TTlsContext()); }

    // The application object's own lines; those of the sockets below it stand for themselves.
    static std::vector<std::string> Errors() {
        const std::vector<std::string> all = RecordingLog::Texts(2);
        std::vector<std::string> errors;
        std::copy_if(all.begin(), all.end(), std::back_inserter(errors), [](const auto& text) {
            return text.find("TOstelRawSocket::") == std::string::npos &&
                   text.find("TOstelSslSocket::") == std::string::npos;
        });
        return errors;
    }

    // The same without what each request in plain text says.
    static std::vector<std::string> ErrorsButPlainText() {
        std::vector<std::string> errors = Errors();
        for (const char* text : {"Unable to load Cert", "Failed to init SSL"}) {
            errors.erase(std::remove(errors.begin(), errors.end(), text), errors.end());
        }
        return errors;
    }

    TOstelApplication& m_App = *TOstelApplication::GetInstance();
    std::string m_Reply;
};

// With certificates in place.
class RemoteTlsTest : public RemoteTest {
protected:
    bool Enable(const std::string& directory) {
        return m_App.EnableSecureRemote(directory + "ostel.cert.pem", directory + "ostel.key.pem",
                                        directory + "ostelRoot.cert.pem");
    }

    CertificateMaker m_Certificates;
    const std::string m_Unit = m_Certificates.Unit("this unit");
};

MATCHER_P2(IsParam, name, value, "") {
    return arg.name == name && arg.value == value;
}

#endif
