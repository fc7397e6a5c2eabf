#include "LogEnds.h"

#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <stdexcept>

namespace {

std::mutex systemLogMutex;
std::vector<std::pair<int, std::string>> systemLog;

// Puts one end of a socket in the place of `descriptor` and returns the other end. A packet socket
// keeps the borders between one write and the next.
int Replace(int descriptor) {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0 ||
        dup2(ends[1], descriptor) != descriptor) {
        throw std::runtime_error("no socket in the place of a standard stream");
    }
    close(ends[1]);
    return ends[0];
}

std::vector<std::string> Packets(int descriptor) {
    std::vector<std::string> packets;
    std::string packet(1 << 20, '\0');
    ssize_t length = 0;
    while ((length = recv(descriptor, packet.data(), packet.size(), MSG_DONTWAIT)) > 0) {
        packets.push_back(packet.substr(0, static_cast<std::size_t>(length)));
    }
    return packets;
}

void PutBack(int original, int descriptor, int readEnd) {
    dup2(original, descriptor);
    close(original);
    close(readEnd);
}

}  // namespace

// Takes the place of the C library's function for the library under test.
__attribute__((visibility("default"))) void syslog(int priority, const char* format, ...) {
    std::array<char, 4096> text{};
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    const std::lock_guard<std::mutex> lock(systemLogMutex);
    systemLog.emplace_back(priority, text.data());
}

namespace LogEnds {

TStandardOutput::TStandardOutput()
    : m_Original(dup(STDOUT_FILENO)), m_ReadEnd(Replace(STDOUT_FILENO)) {}

TStandardOutput::~TStandardOutput() {
    PutBack(m_Original, STDOUT_FILENO, m_ReadEnd);
}

std::vector<std::string> TStandardOutput::Writes() const {
    return Packets(m_ReadEnd);
}

TStandardError::TStandardError()
    : m_Original(dup(STDERR_FILENO)), m_ReadEnd(Replace(STDERR_FILENO)) {}

TStandardError::~TStandardError() {
    PutBack(m_Original, STDERR_FILENO, m_ReadEnd);
}

std::string TStandardError::Text() const {
    std::string text;
    for (const std::string& packet : Packets(m_ReadEnd)) {
        text += packet;
    }
    return text;
}

std::vector<std::pair<int, std::string>> SystemLog() {
    const std::lock_guard<std::mutex> lock(systemLogMutex);
    return systemLog;
}

std::vector<std::string> FileLines(const std::string& path) {
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

}  // namespace LogEnds
