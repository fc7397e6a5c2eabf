#include "RemoteService.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "RemoteProtocol.h"
#include "TOstelJsonObject.h"
#include "zt_logging.h"

namespace {

using TClock = std::chrono::steady_clock;
using RemoteProtocol::TDocumentEnd;

constexpr std::chrono::milliseconds BREATH{100};

sockaddr_in ToAddress(const std::string& text) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(RemoteProtocol::PORT);
    if (inet_pton(AF_INET, text.c_str(), &address.sin_addr) != 1) {
        throw std::runtime_error(text + ": not an IPv4 address");
    }
    return address;
}

std::string ToText(const sockaddr_in& address) {
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &address.sin_addr, text.data(), text.size());
    return text.data();
}

const sockaddr* Plain(const sockaddr_in& address) {
    return static_cast<const sockaddr*>(static_cast<const void*>(&address));
}

sockaddr* Plain(sockaddr_in& address) {
    return static_cast<sockaddr*>(static_cast<void*>(&address));
}

int Listen(const std::string& text) {
    const sockaddr_in address = ToAddress(text);
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const int on = 1;
    if (listener < 0 || setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        bind(listener, Plain(address), sizeof address) != 0 || listen(listener, SOMAXCONN) != 0) {
        const std::string cause = std::strerror(errno);
        if (listener >= 0) {
            close(listener);
        }
        throw std::runtime_error(text + ":" + std::to_string(RemoteProtocol::PORT) + ": " + cause);
    }
    return listener;
}

// A socket that is connected, or -1.
int Connect(const std::string& text, const TStopSignal& stop, TDeadline deadline) {
    const sockaddr_in address = ToAddress(text);
    const int connecting = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (connecting < 0) {
        return -1;
    }
    int error = connect(connecting, Plain(address), sizeof address) == 0 ? 0 : errno;
    if (error == EINPROGRESS && WaitFor(connecting, POLLOUT, stop, deadline)) {
        socklen_t size = sizeof error;
        getsockopt(connecting, SOL_SOCKET, SO_ERROR, &error, &size);
    }
    if (error != 0) {
        close(connecting);
        return -1;
    }
    return connecting;
}

}  // namespace

TRemoteService::TRemoteService(const TSettings& settings, const TTlsContext& context,
                               TAnswer answer)
    : m_Settings(settings),
      m_Context(context),
      m_Answer(std::move(answer)),
      m_Listener(Listen(settings.address)) {
    try {
        m_Threads.reserve(m_Settings.connections);
        while (m_Threads.size() < m_Settings.connections) {
            m_Threads.emplace_back([this] { Run(); });
        }
    } catch (const std::exception&) {
        // Too few threads for the whole service; those that run already must not outlive it.
        Stop();
        throw;
    }
}

TRemoteService::~TRemoteService() {
    Stop();
}

void TRemoteService::Stop() {
    m_Stop.Raise();
    for (std::thread& thread : m_Threads) {
        thread.join();
    }
    close(m_Listener);
}

void TRemoteService::Run() {
    while (true) {
        if (!WaitFor(m_Listener, POLLIN, m_Stop, TDeadline::max())) {
            return;
        }
        sockaddr_in peer{};
        socklen_t size = sizeof peer;
        const int connected = accept4(m_Listener, Plain(peer), &size, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (connected >= 0) {
            ServeSafely(connected, ToText(peer));
        } else if (errno != EAGAIN && errno != ECONNABORTED && errno != EINTR) {
            // Out of descriptors, say; the connection stays where it is, so do not spin on it.
            WaitFor(-1, 0, m_Stop, TClock::now() + BREATH);
        }
    }
}

// Whatever one request runs out of, memory or threads say, the others are served.
void TRemoteService::ServeSafely(int socket, const std::string& peerAddress) {
    try {
        Serve(socket, peerAddress);
    } catch (const std::exception& error) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s: %s", peerAddress.c_str(), error.what());
    }
}

void TRemoteService::Serve(int socket, const std::string& peerAddress) {
    TTlsSession session(socket, m_Context, TTlsSession::TRole::SERVER, m_Stop,
                        TClock::now() + m_Settings.limit);
    if (!session.Handshake()) {
        ztLogging_log(ZT_LOG_LEVEL_WARNING, "%s: no TLS session", peerAddress.c_str());
        return;
    }
    std::string request;
    TDocumentEnd end;
    auto state = TDocumentEnd::TState::OPEN;
    while (state == TDocumentEnd::TState::OPEN && end.Length() <= RemoteProtocol::LARGEST_REQUEST) {
        const std::string piece = session.ReadSome();
        if (piece.empty()) {
            ztLogging_log(ZT_LOG_LEVEL_WARNING, "%s: no complete request", peerAddress.c_str());
            return;
        }
        request += piece;
        state = end.Take(piece);
    }
    // Anything but one whole document of a fitting size is answered as malformed.
    const bool isWhole =
        state == TDocumentEnd::TState::COMPLETE && end.Length() <= RemoteProtocol::LARGEST_REQUEST;
    // How much of what follows has come along depends on the moment, so that it must not matter.
    request.resize(isWhole ? end.Length() : 0);
    if (session.Write(m_Answer(request, peerAddress))) {
        session.End(RemoteProtocol::LARGEST_REQUEST);
    }
}

bool SendRemoteEvent(const TTlsContext& context, const std::string& address,
                     const std::string& name, const std::string& data, const TStopSignal& stop,
                     TDeadline deadline) {
    const int connected = Connect(address, stop, deadline);
    if (connected < 0) {
        return false;
    }
    TTlsSession session(connected, context, TTlsSession::TRole::CLIENT, stop, deadline);
    std::string lengths;
    std::string document;
    std::uint32_t length = 0;
    if (!session.Handshake() || !session.Write(RemoteProtocol::EventRequest(name, data)) ||
        !session.ReadExactly(2 * sizeof length, lengths)) {
        return false;
    }
    std::memcpy(&length, lengths.data(), sizeof length);
    TOstelJsonObject answer;
    return length <= RemoteProtocol::LARGEST_DOCUMENT && session.ReadExactly(length, document) &&
           answer.DecodeFromString(document) &&
           answer.GetPropertyValue<std::string>("STATUS", "") == "OK";
}
