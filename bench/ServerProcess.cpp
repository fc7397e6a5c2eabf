#include "ServerProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

namespace {

std::string ReadLine(int descriptor) {
    std::string line;
    char c = '\0';
    while (read(descriptor, &c, 1) == 1 && c != '\n') {
        line += c;
    }
    return c == '\n' ? line : "";
}

}  // namespace

ServerProcess::ServerProcess(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    std::array<int, 2> output{};
    if (pipe2(output.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe2");
    }
    m_Pid = fork();
    if (m_Pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(output[1], STDOUT_FILENO);
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    close(output[1]);
    m_FirstLine = ReadLine(output[0]);
    close(output[0]);
    if (m_FirstLine.empty()) {
        throw std::runtime_error(command.front() + " does not start");
    }
}

ServerProcess::~ServerProcess() {
    kill(m_Pid, SIGKILL);
    waitpid(m_Pid, nullptr, 0);
}

std::vector<std::string> ServerProcess::Role(const std::string& kind, const std::string& argument,
                                             const std::string& input) {
    return {"/proc/self/exe", "--serve", kind, argument, input};
}
