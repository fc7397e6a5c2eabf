#ifndef T_OSTEL_SSL_SOCKET_H
#define T_OSTEL_SSL_SOCKET_H

#include <string>

#include "OstelApi.h"
#include "TOstelRawSocket.h"

struct ssl_ctx_st;
struct ssl_st;

// A TLS session on a connected socket, both of which it owns. Everything that the plain socket's
// header says holds here, too.
//
// The constructor shakes hands and waits for the peer as long as that takes. It never throws and
// keeps no failure: a handshake that failed is a log line, and every later read and write fails.
// The destructor tells the peer of the end without waiting for its answer.
class OSTEL_API TOstelSslSocket : public TOstelRawSocket {
public:
    // The context is an SSL_CTX, shared with the caller. With null there is no session.
    TOstelSslSocket(int socket, ssl_ctx_st* context, bool isServer);
    ~TOstelSslSocket() override;

    using TOstelRawSocket::Read;
    using TOstelRawSocket::Write;

    bool Read(char* buffer, std::size_t length) const override;
    // `buffer` is text with a zero somewhere, at `length` or behind it: all of it up to there goes
    // into the log at level 6. The operations that take a string or a vector see to that zero.
    bool Write(const void* buffer, std::size_t length) const override;
    // As on the plain socket, but the end and an error are failures here; what came before stays
    // appended.
    bool ReadAll(std::string& out) const override;

protected:
    ssl_st* m_Ssl;
};

#endif
