#include "GatewayProcess.h"

#include <gtest/gtest.h>

GatewayProcess::GatewayProcess(std::string program)
    : m_Program(std::move(program)), m_StateFile(m_Dir.File("state.sqlite")) {
    Start();
}

void GatewayProcess::Start() {
    m_Process =
        std::make_unique<ChildProcess>(std::vector<std::string>{m_Program, "--state", m_StateFile});
    EXPECT_TRUE(m_Process->WaitForOutput("ostel-gateway: ready, ")) << m_Process->Errors();
}

void GatewayProcess::KillAndRestart() {
    m_Process.reset();
    Start();
}
