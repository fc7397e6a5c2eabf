#ifndef REMOTE_SERVICE_H
#define REMOTE_SERVICE_H

#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "TlsSession.h"

// Takes the connections of other units, each with one request. As many threads as there may be
// connections accept and serve them; the next ones wait in the system's queue until a thread is
// free, for as long as those before them take: silent peers can hold up the others, each for the
// limit. A peer that shows no certificate of the root, asks for too much or takes too long is cut
// off.
class TRemoteService {
public:
    struct TSettings {
        std::string address;                                         // IPv4, of this unit
        std::chrono::milliseconds limit = std::chrono::seconds(10);  // of a whole connection
        std::size_t connections = 32;
    };

    // Gives the bytes of the answer; the request is empty when it was none. Called on several
    // threads. What it throws is logged, and the connection closed.
    using TAnswer =
        std::function<std::string(const std::string& request, const std::string& peerAddress)>;

    // Throws std::runtime_error when it cannot listen or has too few threads.
    TRemoteService(const TSettings& settings, const TTlsContext& context, TAnswer answer);
    TRemoteService(const TRemoteService&) = delete;
    TRemoteService& operator=(const TRemoteService&) = delete;
    // Cuts off what is connected.
    ~TRemoteService();

private:
    void Run();
    void Stop();
    void ServeSafely(int socket, const std::string& peerAddress);
    void Serve(int socket, const std::string& peerAddress);

    const TSettings m_Settings;
    const TTlsContext& m_Context;
    const TAnswer m_Answer;
    TStopSignal m_Stop;
    int m_Listener;
    std::vector<std::thread> m_Threads;
};

// Delivers an event to another unit's service: false when that failed, was stopped or met the
// deadline.
bool SendRemoteEvent(const TTlsContext& context, const std::string& address,
                     const std::string& name, const std::string& data, const TStopSignal& stop,
                     TDeadline deadline);

#endif
