#ifndef GATEWAY_REMOTE_FIXTURE_H
#define GATEWAY_REMOTE_FIXTURE_H

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "CertificateMaker.h"
#include "ChildProcess.h"
#include "GatewayFixture.h"
#include "TempDir.h"
#include "TlsPeer.h"

// What the gateway shares with other units; made before it, which needs them.
struct TRemoteFiles {
    TRemoteFiles() : unit(certificates.Unit("gateway")) {
        std::filesystem::create_directories(directory.Path() / "files");
        std::ofstream(directory.File("files/log.txt")) << "the log\n";
        std::ofstream(directory.File("secret")) << "secret\n";
        std::ofstream(directory.File("files/most")) << std::string(1048575, 'x');
        std::ofstream(directory.File("files/more")) << std::string(1048576, 'x');
    }

    CertificateMaker certificates;
    std::string unit;
    TempDir directory;
    std::string host = TlsPeer::FreeHost();
};

// The gateway as other units see it: the real program, asked over mutual TLS.
class GatewayRemote : private TRemoteFiles, public Gateway {
protected:
    explicit GatewayRemote(const std::string& program = OSTEL_GATEWAY)
        : Gateway({"--remote-address", host, "--certs", unit, "--files", directory.File("files")},
                  program),
          m_Host(host),
          m_Unit(certificates.Unit("application")) {
        EXPECT_TRUE(m_App.EnableSecureRemote(m_Unit + "ostel.cert.pem", m_Unit + "ostel.key.pem",
                                             m_Unit + "ostelRoot.cert.pem"));
    }

    // A request as it goes over the connection: the document of its answer.
    std::string Ask(const std::string& request, const std::vector<std::string>& more = {}) const {
        std::vector<std::string> command = {"openssl",
                                            "s_client",
                                            "-quiet",
                                            "-connect",
                                            m_Host + ":42042",
                                            "-cert",
                                            m_Unit + "ostel.cert.pem",
                                            "-key",
                                            m_Unit + "ostel.key.pem",
                                            "-CAfile",
                                            m_Unit + "ostelRoot.cert.pem"};
        command.insert(command.end(), more.begin(), more.end());
        const std::string answer = RunProgram(command, request).output;
        return answer.size() > 8 ? answer.substr(8) : "no answer";
    }

    const std::string m_Host;
    const std::string m_Unit;
};

#endif
