#include "TOstelSslSocket.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <array>
#include <cstdio>

#include "OstelSigpipe.h"
#include "zt_logging.h"

namespace {

// The full signatures, the source and the line in the log are searched for on the devices: they
// stay what they are when the source changes.
const char* const CONSTRUCTOR = "TOstelSslSocket::TOstelSslSocket(int, SSL_CTX*, bool)";
const char* const READ = "virtual bool TOstelSslSocket::Read(char*, size_t) const";
const char* const WRITE = "virtual bool TOstelSslSocket::Write(const void*, size_t) const";
const char* const READ_ALL = "virtual bool TOstelSslSocket::ReadAll(std::string&) const";
const char* const SENDING_SOURCE = "framework/TOstelSslSocket";
constexpr int SENDING_LINE = 102;

constexpr std::size_t CHUNK = 512;

struct TOutcome {
    int result;
    int error;  // what SSL_get_error makes of the result
};

// Any operation of a session may write, an alert for one. An error left behind by an earlier
// operation of this thread would be taken for this one's.
template <typename Operation>
TOutcome Run(SSL* ssl, Operation operation) {
    if (ssl == nullptr) {
        return {-1, SSL_ERROR_SSL};
    }
    const OstelSigpipeBlock block;
    ERR_clear_error();
    const int result = operation();
    // A session that did not get its descriptor has nothing that could be asked for the reason.
    return {result, SSL_get_rbio(ssl) != nullptr ? SSL_get_error(ssl, result) : SSL_ERROR_SSL};
}

}  // namespace

TOstelSslSocket::TOstelSslSocket(int socket, ssl_ctx_st* context, bool isServer)
    : TOstelRawSocket(socket), m_Ssl(SSL_new(context)) {
    const char* const role = isServer ? "Server" : "Client";
    if (m_Ssl == nullptr || SSL_set_fd(m_Ssl, socket) == 0) {
        ERR_print_errors_fp(stdout);
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s: %s SSL failed to init. Error code %d", CONSTRUCTOR,
                      role, m_Ssl != nullptr ? SSL_get_error(m_Ssl, 0) : SSL_ERROR_SSL);
    }
    if (m_Ssl == nullptr) {
        return;
    }
    const TOutcome handshake =
        Run(m_Ssl, [&] { return isServer ? SSL_accept(m_Ssl) : SSL_connect(m_Ssl); });
    if (handshake.result < 1) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR,
                      "%s: %s SSL failed to connect to the socket. Error code %d. Err : %ld.",
                      CONSTRUCTOR, role, handshake.error, SSL_get_verify_result(m_Ssl));
    }
}

TOstelSslSocket::~TOstelSslSocket() {
    Run(m_Ssl, [&] { return SSL_shutdown(m_Ssl); });
    SSL_free(m_Ssl);
}

bool TOstelSslSocket::Read(char* buffer, std::size_t length) const {
    while (length > 0) {
        std::size_t received = 0;
        const TOutcome reading =
            Run(m_Ssl, [&] { return SSL_read_ex(m_Ssl, buffer, length, &received); });
        if (reading.result < 1) {
            ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s: Failed to read from the socket. ret = %d", READ,
                          reading.error);
            return false;
        }
        buffer += received;
        length -= received;
    }
    return true;
}

bool TOstelSslSocket::Write(const void* buffer, std::size_t length) const {
    // The text as a whole, however much of it is sent: the lines are read to follow requests.
    ztLogging_log(ZT_LOG_LEVEL_DEBUG, "[%s:%d][%s]: %s, Sending %s.", SENDING_SOURCE, SENDING_LINE,
                  "Write", WRITE, buffer != nullptr ? static_cast<const char*>(buffer) : "");
    const TOutcome writing =
        Run(m_Ssl, [&] { return SSL_write(m_Ssl, buffer, static_cast<int>(length)); });
    if (writing.result >= 0 && static_cast<std::size_t>(writing.result) == length) {
        return true;
    }
    ztLogging_log(ZT_LOG_LEVEL_ERROR,
                  writing.result > 0 ? "%s: Failed to write the entire buffer. ret = %d"
                                     : "%s: Failed to write into the socket. ret = %d",
                  WRITE, writing.error);
    return false;
}

bool TOstelSslSocket::ReadAll(std::string& out) const {
    std::size_t received = CHUNK;
    while (received == CHUNK) {
        // Appended as text, as on the plain socket; unlike there, the end is a failure.
        std::array<char, CHUNK + 1> buffer{};
        const TOutcome reading =
            Run(m_Ssl, [&] { return SSL_read_ex(m_Ssl, buffer.data(), CHUNK, &received); });
        if (reading.result < 1) {
            ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s: Failed to read from the socket. ret = %d",
                          READ_ALL, reading.error);
            return false;
        }
        out += buffer.data();
    }
    return true;
}
