#ifndef GATEWAY_PROCESS_H
#define GATEWAY_PROCESS_H

#include <memory>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "TempDir.h"

// The real gateway on the test's bus, ready to serve when the constructor returns.
class GatewayProcess {
public:
    explicit GatewayProcess(std::string program, std::vector<std::string> options = {});

    // A crash, and a start with the same state.
    void KillAndRestart();
    ChildProcess& Process() { return *m_Process; }
    const std::string& StateFile() const { return m_StateFile; }

private:
    void Start();

    TempDir m_Dir;
    std::string m_Program;
    std::vector<std::string> m_Options;
    std::string m_StateFile;
    std::unique_ptr<ChildProcess> m_Process;
};

#endif
