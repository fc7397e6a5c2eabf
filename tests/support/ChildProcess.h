#ifndef CHILD_PROCESS_H
#define CHILD_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "TempDir.h"

// A program that runs beside the test. Its output goes to files that can be read at any time. It is
// killed with the object, and dies with the test program.
class ChildProcess {
public:
    explicit ChildProcess(const std::vector<std::string>& command, const std::string& input = "");
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    void Signal(int number) const;

    // Waits for its end: the exit status, or minus the signal that ended it. Fails the test and
    // kills the program when it has not ended in time.
    int Wait(std::chrono::milliseconds limit = std::chrono::seconds(30));

    std::string Output() const;
    std::string Errors() const;
    bool WaitForOutput(const std::string& part,
                       std::chrono::milliseconds limit = std::chrono::seconds(30)) const;
    bool WaitForErrors(const std::string& part) const;
    pid_t Pid() const { return m_Pid; }

private:
    TempDir m_Dir;
    pid_t m_Pid;
    bool m_Ended = false;
    int m_Status = 0;
};

struct TFinished {
    int status;
    std::string output;
    std::string errors;
};

// Runs a program to its end.
TFinished RunProgram(const std::vector<std::string>& command, const std::string& input = "",
                     std::chrono::milliseconds limit = std::chrono::seconds(30));

#endif
