#ifndef REMOTE_PROTOCOL_H
#define REMOTE_PROTOCOL_H

#include <cstddef>
#include <cstdint>
#include <string>

// How units talk to each other: a request is a JSON document without any length; an answer is two
// lengths in the machine's byte order, a JSON document, and bytes such as a file's.
namespace RemoteProtocol {

constexpr std::uint16_t PORT = 42042;
constexpr std::size_t LARGEST_REQUEST = std::size_t{64} * 1024;
constexpr std::size_t LARGEST_DOCUMENT = 4096;
constexpr std::size_t LARGEST_BINARY = 1048575;

// By which a unit tells another of a parameter that has changed.
constexpr const char* CHANGE_EVENT = "REMOTE_DATA_MODEL_CHANGED";

// A request that broadcasts an event on the other unit's bus.
std::string EventRequest(const std::string& name, const std::string& data);

std::string Framed(const std::string& document, const std::string& binary);

// Finds the end of a document in a text that arrives piece by piece.
class TDocumentEnd {
public:
    enum class TState { OPEN, COMPLETE, WRONG };

    // After this piece as well. Only an object is a request; what follows it does not matter.
    TState Take(const std::string& piece);

    // How many bytes were looked at: when it is complete, those up to the end of the document.
    std::size_t Length() const { return m_Length; }

private:
    TState m_State = TState::OPEN;
    std::size_t m_Length = 0;
    std::size_t m_Depth = 0;
    bool m_IsInText = false;
    bool m_IsEscaped = false;
};

}  // namespace RemoteProtocol

#endif
