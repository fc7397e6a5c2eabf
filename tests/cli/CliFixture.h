#ifndef CLI_FIXTURE_H
#define CLI_FIXTURE_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ChildProcess.h"
#include "GatewayProcess.h"
#include "PrivateBus.h"

// Runs the tool to its end.
inline TFinished Cli(std::vector<std::string> arguments, const std::string& input = "") {
    arguments.insert(arguments.begin(), OSTELCLI);
    return RunProgram(arguments, input);
}

class Ostelcli : public testing::Test {
protected:
    Ostelcli() : m_Gateway(OSTEL_GATEWAY) {}

    PrivateBus m_Bus;
    GatewayProcess m_Gateway;
};

#endif
