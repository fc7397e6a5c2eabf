#include "TlsPeer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <stdexcept>
#include <system_error>

namespace {

// Loopback is a network of 16 million addresses: one for each process and place. Nobody else uses
// those below 127.1.0.0.
std::string OwnAddress(unsigned int place) {
    const auto pid = static_cast<unsigned int>(getpid());
    const unsigned int second = 1 + place * 64 + pid % 4194304 / 65536;
    return "127." + std::to_string(second) + "." + std::to_string(pid / 256 % 256) + "." +
           std::to_string(pid % 256);
}

void Require(bool done, const char* what) {
    if (!done) {
        throw std::runtime_error(what);
    }
}

SSL_CTX* NewContext(const TlsPeer::TSettings& settings) {
    SSL_CTX* const context = SSL_CTX_new(TLS_server_method());
    const std::string& directory = settings.certificates;
    if (settings.showCertificate) {
        Require(SSL_CTX_use_certificate_file(context, (directory + "ostel.cert.pem").c_str(),
                                             SSL_FILETYPE_PEM) == 1 &&
                    SSL_CTX_use_PrivateKey_file(context, (directory + "ostel.key.pem").c_str(),
                                                SSL_FILETYPE_PEM) == 1,
                "the peer's certificate");
    }
    Require(SSL_CTX_load_verify_locations(context, (directory + "ostelRoot.cert.pem").c_str(),
                                          nullptr) == 1,
            "the peer's root");
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
    if (settings.onlyVersion != 0) {
        // Old versions are offered only at the lowest security level.
        Require(SSL_CTX_set_cipher_list(context, "ALL:@SECLEVEL=0") == 1 &&
                    SSL_CTX_set_min_proto_version(context, settings.onlyVersion) == 1 &&
                    SSL_CTX_set_max_proto_version(context, settings.onlyVersion) == 1,
                "the peer's version");
    }
    return context;
}

std::string NameOfClient(const SSL* ssl) {
    X509* const certificate = SSL_get_peer_certificate(ssl);
    std::array<char, 256> name{};
    X509_NAME_get_text_by_NID(X509_get_subject_name(certificate), NID_commonName, name.data(),
                              static_cast<int>(name.size()));
    X509_free(certificate);
    return name.data();
}

}  // namespace

std::string TlsPeer::TConnection::Receive() {
    std::string bytes(1 << 16, '\0');
    const auto length = m_Ssl != nullptr
                            ? SSL_read(m_Ssl, bytes.data(), static_cast<int>(bytes.size()))
                            : static_cast<int>(recv(m_Descriptor, bytes.data(), bytes.size(), 0));
    bytes.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
    const std::lock_guard<std::mutex> lock(m_Peer->m_Mutex);
    m_Peer->m_Requests.push_back(bytes);
    m_Peer->m_Grown.notify_all();
    return bytes;
}

void TlsPeer::TConnection::Send(const std::string& bytes) {
    if (bytes.empty()) {
        return;
    }
    if (m_Ssl != nullptr) {
        SSL_write(m_Ssl, bytes.data(), static_cast<int>(bytes.size()));
    } else {
        send(m_Descriptor, bytes.data(), bytes.size(), 0);
    }
}

TlsPeer::TlsPeer(TSettings settings, TScript script)
    : m_Settings(std::move(settings)),
      m_Script(std::move(script)),
      m_Host(OwnAddress(0)),
      m_Context(m_Settings.certificates.empty() ? nullptr : NewContext(m_Settings)),
      m_Listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    Listen();
    m_Thread = std::thread([this] { Serve(); });
}

TlsPeer::TlsPeer(TSettings settings, const std::string& answer)
    : TlsPeer(std::move(settings), [answer](TConnection& connection) {
          connection.Receive();
          connection.Send(answer);
      }) {}

TlsPeer::~TlsPeer() {
    m_Running = false;
    shutdown(m_Listener, SHUT_RDWR);
    m_Thread.join();
    close(m_Listener);
    SSL_CTX_free(m_Context);
}

void TlsPeer::Listen() {
    const int on = 1;
    setsockopt(m_Listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(42042);
    inet_pton(AF_INET, m_Host.c_str(), &address.sin_addr);
    if (bind(m_Listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(m_Listener, 16) != 0) {
        throw std::system_error(errno, std::generic_category(), m_Host);
    }
}

void TlsPeer::Serve() {
    sigset_t sigpipe;
    sigemptyset(&sigpipe);
    sigaddset(&sigpipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &sigpipe, nullptr);
    while (m_Running) {
        const int descriptor = accept4(m_Listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (descriptor != -1) {
            Talk(descriptor);
            close(descriptor);
            ++m_Ended;
        }
    }
}

void TlsPeer::Talk(int descriptor) {
    TConnection connection;
    connection.m_Descriptor = descriptor;
    connection.m_Peer = this;
    if (m_Context == nullptr) {
        m_Script(connection);
        return;
    }
    SSL* const ssl = SSL_new(m_Context);
    SSL_set_fd(ssl, descriptor);
    if (SSL_accept(ssl) == 1) {
        {
            const std::lock_guard<std::mutex> lock(m_Mutex);
            m_Clients.push_back(NameOfClient(ssl));
        }
        connection.m_Ssl = ssl;
        m_Script(connection);
        SSL_shutdown(ssl);
    }
    SSL_free(ssl);
}

std::vector<std::string> TlsPeer::Requests() const {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Requests;
}

bool TlsPeer::WaitForRequest() const {
    std::unique_lock<std::mutex> lock(m_Mutex);
    return m_Grown.wait_for(lock, std::chrono::seconds(30), [&] { return !m_Requests.empty(); });
}

std::vector<std::string> TlsPeer::Clients() const {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Clients;
}

std::string TlsPeer::Framed(const std::string& json, const std::string& binary) {
    return Length(static_cast<std::uint32_t>(json.size())) +
           Length(static_cast<std::uint32_t>(binary.size())) + json + binary;
}

std::string TlsPeer::Length(std::uint32_t length) {
    std::string bytes;
    for (unsigned int shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>(length >> shift & 0xFF);
    }
    return bytes;
}

std::string TlsPeer::FreeHost() {
    return OwnAddress(1);
}

std::string TlsPeer::AnotherFreeHost() {
    return OwnAddress(2);
}
