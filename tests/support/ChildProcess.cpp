#include "ChildProcess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <stdexcept>

#include "WaitUntil.h"

namespace {

std::string Contents(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

void Redirect(const char* path, int flags, int descriptor) {
    const int file = open(path, flags | O_CLOEXEC, 0600);
    dup2(file, descriptor);
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& command, const std::string& input) {
    std::ofstream(m_Dir.File("in"), std::ios::binary) << input;
    std::vector<char*> arguments;
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    // The child takes no memory: where a sanitizer is in the allocator's place, a thread that is in
    // there at the fork leaves it locked for good.
    const std::string in = m_Dir.File("in");
    const std::string out = m_Dir.File("out");
    const std::string err = m_Dir.File("err");
    m_Pid = fork();
    if (m_Pid < 0) {
        // A signal to process -1 would go to every process there is.
        throw std::runtime_error("fork");
    }
    if (m_Pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        // A shell has what it runs in the background ignore some of them, and so would all below.
        for (const int ignored : {SIGHUP, SIGINT, SIGQUIT}) {
            signal(ignored, SIG_DFL);
        }
        Redirect(in.c_str(), O_RDONLY, STDIN_FILENO);
        Redirect(out.c_str(), O_WRONLY | O_CREAT, STDOUT_FILENO);
        Redirect(err.c_str(), O_WRONLY | O_CREAT, STDERR_FILENO);
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
}

ChildProcess::~ChildProcess() {
    if (!m_Ended) {
        kill(m_Pid, SIGKILL);
        waitpid(m_Pid, nullptr, 0);
    }
}

void ChildProcess::Signal(int number) const {
    // The number of a process that was waited for may be another's by now.
    if (!m_Ended) {
        kill(m_Pid, number);
    }
}

int ChildProcess::Wait(std::chrono::milliseconds limit) {
    m_Ended =
        m_Ended || WaitUntil([&] { return waitpid(m_Pid, &m_Status, WNOHANG) == m_Pid; }, limit);
    if (!m_Ended) {
        ADD_FAILURE() << "the program did not end; it printed:\n" << Output() << Errors();
        return -SIGALRM;
    }
    return WIFEXITED(m_Status) ? WEXITSTATUS(m_Status) : -WTERMSIG(m_Status);
}

std::string ChildProcess::Output() const {
    return Contents(m_Dir.File("out"));
}
std::string ChildProcess::Errors() const {
    return Contents(m_Dir.File("err"));
}

bool ChildProcess::WaitForOutput(const std::string& part, std::chrono::milliseconds limit) const {
    return WaitUntil([&] { return Output().find(part) != std::string::npos; }, limit);
}

bool ChildProcess::WaitForErrors(const std::string& part) const {
    return WaitUntil([&] { return Errors().find(part) != std::string::npos; });
}

TFinished RunProgram(const std::vector<std::string>& command, const std::string& input,
                     std::chrono::milliseconds limit) {
    ChildProcess process(command, input);
    const int status = process.Wait(limit);
    return {status, process.Output(), process.Errors()};
}
