#include "RemoteProtocol.h"

#include <cstring>

#include "TOstelJsonObject.h"

namespace RemoteProtocol {

namespace {

std::string Length(std::size_t length) {
    const auto number = static_cast<std::uint32_t>(length);
    std::string bytes(sizeof number, '\0');
    std::memcpy(&bytes[0], &number, sizeof number);
    return bytes;
}

}  // namespace

std::string Framed(const std::string& document, const std::string& binary) {
    return Length(document.size()) + Length(binary.size()) + document + binary;
}

std::string EventRequest(const std::string& name, const std::string& data) {
    TOstelJsonObject request;
    request.SetPropertyValue("REQUEST_TYPE", std::string("SEND_EVENT"));
    request.SetPropertyValue("EVENT_NAME", name);
    request.SetPropertyValue("EVENT_DATA", data);
    return request.EncodeToString(-1);
}

TDocumentEnd::TState TDocumentEnd::Take(const std::string& piece) {
    for (auto next = piece.begin(); m_State == TState::OPEN && next != piece.end(); ++next) {
        const char c = *next;
        ++m_Length;
        if (m_IsInText) {
            m_IsInText = m_IsEscaped || c != '"';
            m_IsEscaped = !m_IsEscaped && c == '\\';
        } else if (c == '{' || c == '[') {
            m_State = m_Depth == 0 && c == '[' ? TState::WRONG : TState::OPEN;
            ++m_Depth;
        } else if (m_Depth == 0) {
            const bool isBlank = c == ' ' || c == '\t' || c == '\r' || c == '\n';
            m_State = isBlank ? TState::OPEN : TState::WRONG;
        } else if (c == '}' || c == ']') {
            --m_Depth;
            m_State = m_Depth == 0 ? TState::COMPLETE : TState::OPEN;
        } else {
            m_IsInText = c == '"';
        }
    }
    return m_State;
}

}  // namespace RemoteProtocol
