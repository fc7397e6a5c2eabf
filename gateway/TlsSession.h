#ifndef TLS_SESSION_H
#define TLS_SESSION_H

#include <chrono>
#include <memory>
#include <string>

struct ssl_ctx_st;
struct ssl_st;

// Ends all waiting of the sessions that watch it.
class TStopSignal {
public:
    TStopSignal();
    TStopSignal(const TStopSignal&) = delete;
    TStopSignal& operator=(const TStopSignal&) = delete;
    ~TStopSignal();

    void Raise() const;
    // Readable once it was raised.
    int Descriptor() const { return m_Descriptor; }

private:
    int m_Descriptor;
};

using TDeadline = std::chrono::steady_clock::time_point;

// Until the descriptor is ready for what poll calls `events`: false at the deadline, or once the
// signal was raised.
bool WaitFor(int descriptor, short events, const TStopSignal& stop, TDeadline deadline);

// This unit's certificate and key, and the root that peers' certificates have to chain to. TLS 1.2
// or later, in both directions. Throws std::runtime_error with the cause.
class TTlsContext {
public:
    // `directory` holds "ostel.cert.pem", "ostel.key.pem" and "ostelRoot.cert.pem".
    explicit TTlsContext(const std::string& directory);

    ssl_ctx_st* Get() const { return m_Context.get(); }

private:
    struct TFree {
        void operator()(ssl_ctx_st* context) const;
    };

    std::unique_ptr<ssl_ctx_st, TFree> m_Context;
};

// A TLS session on a connected socket in which no operation waits beyond the deadline.
class TTlsSession {
public:
    enum class TRole { SERVER, CLIENT };

    // Takes the socket over, which must not block.
    TTlsSession(int socket, const TTlsContext& context, TRole role, const TStopSignal& stop,
                TDeadline deadline);
    TTlsSession(const TTlsSession&) = delete;
    TTlsSession& operator=(const TTlsSession&) = delete;
    ~TTlsSession();

    bool Handshake();
    // What arrives, at least one byte; empty at the end, after a failure and at the deadline.
    std::string ReadSome();
    bool ReadExactly(std::size_t length, std::string& bytes);
    bool Write(const std::string& bytes);
    // Ends the session and takes in what still comes, at most so many bytes, until the peer ends it
    // as well: a socket that is closed with something unread in it loses what the peer has not
    // taken yet.
    void End(std::size_t most);

private:
    void SayGoodbye();

    // The operation's positive result, or 0.
    template <typename TOperation>
    int Run(TOperation operation);

    struct TFree {
        void operator()(ssl_st* session) const;
    };

    int m_Socket;
    const TStopSignal& m_Stop;
    TRole m_Role;
    TDeadline m_Deadline;
    bool m_IsOpen = false;
    std::unique_ptr<ssl_st, TFree> m_Session;
};

#endif
