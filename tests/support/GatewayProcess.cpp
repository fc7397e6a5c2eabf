#include "GatewayProcess.h"

#include <gtest/gtest.h>

#include <chrono>

GatewayProcess::GatewayProcess(std::string program, std::vector<std::string> options)
    : m_Program(std::move(program)),
      m_Options(std::move(options)),
      m_StateFile(m_Dir.File("state.sqlite")) {
    Start();
}

void GatewayProcess::Start() {
    std::vector<std::string> command = {m_Program, "--state", m_StateFile};
    command.insert(command.end(), m_Options.begin(), m_Options.end());
    m_Process = std::make_unique<ChildProcess>(command);
    // A full model takes its time under a sanitizer.
    EXPECT_TRUE(m_Process->WaitForOutput("ostel-gateway: ready, ", std::chrono::seconds(60)))
        << m_Process->Errors();
}

void GatewayProcess::KillAndRestart() {
    m_Process.reset();
    Start();
}
