#ifndef T_OSTEL_RAW_SOCKET_H
#define T_OSTEL_RAW_SOCKET_H

#include <cstddef>
#include <string>
#include <vector>

#include "OstelApi.h"

// Moves bytes over a connected stream socket, which it owns and closes. Knows nothing of messages.
//
// Every failure is a false result and a log line, and leaves the object usable; nothing throws. A
// peer that is gone fails a write and never ends the process with SIGPIPE, whose disposition is
// left alone. There is no time-out: an operation waits as long as the descriptor makes it wait; set
// SO_RCVTIMEO and SO_SNDTIMEO on the descriptor, or shut it down, to bound that.
//
// One object serves one thread at a time. The order of the virtual operations and of the members is
// part of the binary interface.
class OSTEL_API TOstelRawSocket {
public:
    explicit TOstelRawSocket(int socket);
    TOstelRawSocket(const TOstelRawSocket&) = delete;
    TOstelRawSocket& operator=(const TOstelRawSocket&) = delete;

    virtual ~TOstelRawSocket();

    // Exactly `length` bytes, in as many receives as it takes. On failure `buffer` holds what came
    // before.
    virtual bool Read(char* buffer, std::size_t length) const;
    // One send; what it leaves over is not sent again but reported as a failure.
    virtual bool Write(const void* buffer, std::size_t length) const;
    // For texts: appends 512 bytes at a time, each chunk up to its first zero byte, until fewer
    // arrive; then it returns true, whether the peer is through, gone or in error. A peer that
    // sends a multiple of 512 bytes and keeps the connection open makes it wait for more.
    virtual bool ReadAll(std::string& out) const;

    // `out` has `length` bytes afterwards, on failure too; then what did not arrive is zero in new
    // bytes and the former content in others.
    bool Read(std::string& out, unsigned int length) const;
    bool Read(std::vector<char>& out, unsigned int length) const;
    bool Write(const std::string& text) const;
    bool Write(const std::vector<char>& data) const;

protected:
    int m_Socket;
};

#endif
