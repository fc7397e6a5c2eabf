#include "TlsSession.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace {

constexpr int VERIFY_DEPTH = 3;

// A key with a pass phrase cannot be loaded; asking for it would wait at a terminal.
int NoPassPhrase(char*, int, int, void*) {
    return -1;
}

// What OpenSSL derives from a certificate it keeps there with the first use. Done before the root
// is shared, no two handshakes do it at once.
void Prepare(X509_STORE* roots) {
    STACK_OF(X509_OBJECT)* const objects = X509_STORE_get0_objects(roots);
    for (int i = 0; i < sk_X509_OBJECT_num(objects); ++i) {
        X509* const root = X509_OBJECT_get0_X509(sk_X509_OBJECT_value(objects, i));
        if (root != nullptr) {
            X509_check_purpose(root, -1, 0);
        }
    }
}

[[noreturn]] void FailTls(const std::string& what) {
    std::array<char, 256> cause{};
    ERR_error_string_n(ERR_get_error(), cause.data(), cause.size());
    ERR_clear_error();
    throw std::runtime_error(what + ": " + cause.data());
}

}  // namespace

TStopSignal::TStopSignal() : m_Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (m_Descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

TStopSignal::~TStopSignal() {
    close(m_Descriptor);
}

void TStopSignal::Raise() const {
    eventfd_write(m_Descriptor, 1);
}

bool WaitFor(int descriptor, short events, const TStopSignal& stop, TDeadline deadline) {
    using std::chrono::milliseconds;
    while (true) {
        const auto left =
            std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left <= milliseconds::zero()) {
            return false;
        }
        const auto timeout =
            std::min<milliseconds::rep>(left.count(), std::numeric_limits<int>::max());
        std::array<pollfd, 2> descriptors = {
            {{descriptor, events, 0}, {stop.Descriptor(), POLLIN, 0}}};
        const int ready = poll(descriptors.data(), descriptors.size(), static_cast<int>(timeout));
        if (ready > 0) {
            return descriptors[1].revents == 0;
        }
        if (ready < 0 && errno != EINTR) {
            return false;
        }
    }
}

void TTlsContext::TFree::operator()(ssl_ctx_st* context) const {
    SSL_CTX_free(context);
}

TTlsContext::TTlsContext(const std::string& directory) : m_Context(SSL_CTX_new(TLS_method())) {
    const std::string certificate = directory + "/ostel.cert.pem";
    const std::string key = directory + "/ostel.key.pem";
    const std::string root = directory + "/ostelRoot.cert.pem";
    SSL_CTX* const context = m_Context.get();
    if (context == nullptr || SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION) != 1) {
        FailTls("TLS");
    }
    if (SSL_CTX_use_certificate_file(context, certificate.c_str(), SSL_FILETYPE_PEM) != 1) {
        FailTls(certificate);
    }
    SSL_CTX_set_default_passwd_cb(context, &NoPassPhrase);
    if (SSL_CTX_use_PrivateKey_file(context, key.c_str(), SSL_FILETYPE_PEM) != 1 ||
        SSL_CTX_check_private_key(context) != 1) {
        FailTls(key);
    }
    if (SSL_CTX_load_verify_locations(context, root.c_str(), nullptr) != 1) {
        FailTls(root);
    }
    Prepare(SSL_CTX_get_cert_store(context));
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    SSL_CTX_set_verify_depth(context, VERIFY_DEPTH);
    // Each connection carries one request: a session is never resumed, so none need be kept.
    SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
}

void TTlsSession::TFree::operator()(ssl_st* session) const {
    SSL_free(session);
}

TTlsSession::TTlsSession(int socket, const TTlsContext& context, TRole role,
                         const TStopSignal& stop, TDeadline deadline)
    : m_Socket(socket),
      m_Stop(stop),
      m_Role(role),
      m_Deadline(deadline),
      m_Session(SSL_new(context.Get())) {
    if (m_Session != nullptr && SSL_set_fd(m_Session.get(), socket) != 1) {
        m_Session.reset();
    }
}

TTlsSession::~TTlsSession() {
    SayGoodbye();
    m_Session.reset();
    close(m_Socket);
}

template <typename TOperation>
int TTlsSession::Run(TOperation operation) {
    while (m_Session != nullptr) {
        ERR_clear_error();
        const int result = operation(m_Session.get());
        if (result > 0) {
            return result;
        }
        const int error = SSL_get_error(m_Session.get(), result);
        const bool wantsRead = error == SSL_ERROR_WANT_READ;
        if ((!wantsRead && error != SSL_ERROR_WANT_WRITE) ||
            !WaitFor(m_Socket, wantsRead ? POLLIN : POLLOUT, m_Stop, m_Deadline)) {
            // After an error nothing more may be sent, not even that the session ends.
            m_IsOpen = m_IsOpen && (wantsRead || error == SSL_ERROR_ZERO_RETURN);
            break;
        }
    }
    return 0;
}

bool TTlsSession::Handshake() {
    const auto shake = m_Role == TRole::SERVER ? SSL_accept : SSL_connect;
    m_IsOpen = Run([shake](SSL* session) { return shake(session); }) > 0;
    return m_IsOpen;
}

std::string TTlsSession::ReadSome() {
    std::array<char, 4096> buffer{};
    const int size = Run([&buffer](SSL* session) {
        return SSL_read(session, buffer.data(), static_cast<int>(buffer.size()));
    });
    return {buffer.data(), static_cast<std::size_t>(size)};
}

bool TTlsSession::ReadExactly(std::size_t length, std::string& bytes) {
    bytes.resize(length);
    std::size_t done = 0;
    while (done < length) {
        const int size = Run([&](SSL* session) {
            return SSL_read(session, &bytes[done], static_cast<int>(length - done));
        });
        if (size == 0) {
            return false;
        }
        done += static_cast<std::size_t>(size);
    }
    return true;
}

bool TTlsSession::Write(const std::string& bytes) {
    // Without partial writes, a write is done or has failed.
    return bytes.empty() ||
           Run([&bytes](SSL* session) {
               return SSL_write(session, bytes.data(), static_cast<int>(bytes.size()));
           }) > 0;
}

void TTlsSession::SayGoodbye() {
    if (std::exchange(m_IsOpen, false)) {
        ERR_clear_error();
        SSL_shutdown(m_Session.get());
    }
}

void TTlsSession::End(std::size_t most) {
    SayGoodbye();
    shutdown(m_Socket, SHUT_WR);
    std::array<char, 4096> ignored{};
    std::size_t taken = 0;
    while (taken < most && WaitFor(m_Socket, POLLIN, m_Stop, m_Deadline)) {
        const ssize_t size = recv(m_Socket, ignored.data(), ignored.size(), 0);
        if (size <= 0) {
            return;
        }
        taken += static_cast<std::size_t>(size);
    }
}
