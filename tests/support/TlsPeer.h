#ifndef TLS_PEER_H
#define TLS_PEER_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct ssl_ctx_st;
struct ssl_st;

// Another unit's remote service, which does as the test scripts it: on port 42042 of a loopback
// address that no other process uses. It takes one connection after the other on a thread of its
// own.
class TlsPeer {
public:
    struct TSettings {
        std::string certificates;  // a unit's directory; empty for plain TCP
        bool showCertificate = true;
        int onlyVersion = 0;  // such as TLS1_2_VERSION; 0 for whatever TLS offers
    };

    class TConnection {
    public:
        // What arrives at once; empty at the end.
        std::string Receive();
        void Send(const std::string& bytes);

    private:
        friend class TlsPeer;
        int m_Descriptor = -1;
        ssl_st* m_Ssl = nullptr;
        TlsPeer* m_Peer = nullptr;
    };

    // Run for each connection, behind a handshake that succeeded; the connection ends with it.
    using TScript = std::function<void(TConnection&)>;

    TlsPeer(TSettings settings, TScript script);
    // Answers each request with these bytes.
    TlsPeer(TSettings settings, const std::string& answer);
    TlsPeer(const TlsPeer&) = delete;
    TlsPeer& operator=(const TlsPeer&) = delete;
    ~TlsPeer();

    const std::string& Host() const { return m_Host; }
    // What Receive gave.
    std::vector<std::string> Requests() const;
    bool WaitForRequest() const;
    // The names in the clients' certificates, one for each handshake that succeeded.
    std::vector<std::string> Clients() const;

    // How many connections are over, good and bad, their descriptors closed.
    int Ended() const { return m_Ended; }

    // An answer as it goes over the connection.
    static std::string Framed(const std::string& json, const std::string& binary = "");
    static std::string Length(std::uint32_t length);

    // An address of this process's own at which nobody listens.
    static std::string FreeHost();
    static std::string AnotherFreeHost();

private:
    void Listen();
    void Serve();
    void Talk(int descriptor);

    const TSettings m_Settings;
    const TScript m_Script;
    const std::string m_Host;
    ssl_ctx_st* m_Context;
    int m_Listener;
    std::atomic<bool> m_Running{true};
    std::atomic<int> m_Ended{0};
    mutable std::mutex m_Mutex;
    mutable std::condition_variable m_Grown;
    std::vector<std::string> m_Requests;
    std::vector<std::string> m_Clients;
    std::thread m_Thread;
};

#endif
