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

std::string Framed(const std::string& document, const std::string& binary);

// Finds the end of a document in a text that arrives piece by piece.
class TDocumentEnd {
public:
    enum class TState { OPEN, COMPLETE, WRONG };

    // After this piece as well. Only an object is a request; what follows it does not matter.
    TState Take(const std::string& piece);

private:
    TState m_State = TState::OPEN;
    std::size_t m_Depth = 0;
    bool m_IsInText = false;
    bool m_IsEscaped = false;
};

}  // namespace RemoteProtocol

#endif
