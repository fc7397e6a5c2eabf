#ifndef SERVER_PROCESS_H
#define SERVER_PROCESS_H

#include <sys/types.h>

#include <string>
#include <vector>

// A program that serves, ready when the constructor returns: it has written its first line. It is
// killed with the object, and dies with the benchmark.
class ServerProcess {
public:
    explicit ServerProcess(const std::vector<std::string>& command);
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;
    ~ServerProcess();

    const std::string& FirstLine() const { return m_FirstLine; }

    // This program in one of its serving roles.
    static std::vector<std::string> Role(const std::string& kind, const std::string& argument,
                                         const std::string& input = "");

private:
    pid_t m_Pid;
    std::string m_FirstLine;
};

#endif
