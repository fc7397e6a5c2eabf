// Requests to other units.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>

#include "Application.h"
#include "Comparison.h"
#include "Rows.h"
#include "ServerProcess.h"

namespace {

struct TFree {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    void operator()(SSL* ssl) const { SSL_free(ssl); }
};
using TContext = std::unique_ptr<SSL_CTX, TFree>;
using TSession = std::unique_ptr<SSL, TFree>;

void Require(bool done, const char* what) {
    if (!done) {
        throw std::runtime_error(what);
    }
}

TContext NewContext(const std::string& directory) {
    TContext context(SSL_CTX_new(TLS_client_method()));
    Require(SSL_CTX_use_certificate_file(context.get(), (directory + "ostel.cert.pem").c_str(),
                                         SSL_FILETYPE_PEM) == 1 &&
                SSL_CTX_use_PrivateKey_file(context.get(), (directory + "ostel.key.pem").c_str(),
                                            SSL_FILETYPE_PEM) == 1 &&
                SSL_CTX_load_verify_locations(
                    context.get(), (directory + "ostelRoot.cert.pem").c_str(), nullptr) == 1,
            "the certificates");
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
    return context;
}

void ReadAll(SSL* ssl, void* buffer, std::size_t length) {
    auto* place = static_cast<char*>(buffer);
    while (length > 0) {
        std::size_t received = 0;
        Require(SSL_read_ex(ssl, place, length, &received) == 1, "SSL_read_ex");
        place += received;
        length -= received;
    }
}

// As little as a client can do: one handshake, one write, and the reads that the answer's two
// lengths and its text take.
std::string RawRequest(SSL_CTX* context, const std::string& host, const std::string& request) {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(42042);
    inet_pton(AF_INET, host.c_str(), &address.sin_addr);
    Require(connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0,
            "connect");
    TSession ssl(SSL_new(context));
    SSL_set_fd(ssl.get(), descriptor);
    Require(SSL_connect(ssl.get()) == 1, "SSL_connect");
    SSL_write(ssl.get(), request.data(), static_cast<int>(request.size()));
    std::uint32_t textLength = 0;
    std::uint32_t binaryLength = 0;
    ReadAll(ssl.get(), &textLength, sizeof(textLength));
    ReadAll(ssl.get(), &binaryLength, sizeof(binaryLength));
    std::string reply(textLength, '\0');
    ReadAll(ssl.get(), reply.data(), reply.size());
    SSL_shutdown(ssl.get());
    ssl.reset();
    close(descriptor);
    return reply;
}

}  // namespace

void RemoteGetParam(benchmark::State& state) {
    const char* const certificates = std::getenv("OSTEL_BENCH_CERTIFICATES");
    if (certificates == nullptr) {
        state.SkipWithError("OSTEL_BENCH_CERTIFICATES names no unit's certificates");
        return;
    }
    const std::string directory = std::string(certificates) + "/";
    const std::string reply = R"({"STATUS":"OK",)" + Reply("KV0123456789").substr(1);
    const ServerProcess peer(ServerProcess::Role("tls", directory, reply));
    const std::string& host = peer.FirstLine();
    const std::string request = R"({"REQUEST_TYPE":"GET_PARAM","NAME":")" + PARAMETER + R"("})";
    TOstelApplication& application = *TOstelApplication::GetInstance();
    application.SetCertPath(directory);
    const TContext context = NewContext(directory);
    Compare(
        state, {"minimal TLS client", "us", AtMost(1.10)}, 10,
        [&] {
            std::vector<TOstelApplication::TOstelAppParam> params;
            Require(application.GetParamRemote(host, PARAMETER, params));
            Require(params.size() == 1, "no parameter in the answer");
        },
        [&] { Require(RawRequest(context.get(), host, request) == reply, "another answer"); });
}
