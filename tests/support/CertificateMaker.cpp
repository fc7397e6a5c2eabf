#include "CertificateMaker.h"

#include <stdexcept>
#include <vector>

#include "ChildProcess.h"

namespace {

void OpenSsl(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "openssl");
    const TFinished finished = RunProgram(arguments);
    if (finished.status != 0) {
        throw std::runtime_error(finished.errors);
    }
}

std::vector<std::string> NewRequest(const std::string& name, const std::string& key) {
    return {
        "req",    "-new",    "-newkey", "ec",          "-pkeyopt", "ec_paramgen_curve:prime256v1",
        "-nodes", "-sha256", "-subj",   "/CN=" + name, "-keyout",  key};
}

void MakeSelfSigned(const std::string& name, const std::string& key, const std::string& cert) {
    auto arguments = NewRequest(name, key);
    arguments.insert(arguments.end(), {"-x509", "-days", "2", "-out", cert});
    OpenSsl(arguments);
}

}  // namespace

CertificateMaker::CertificateMaker() {
    MakeRoot("root");
}

std::string CertificateMaker::Unit(const std::string& name) {
    return Issue(name, "root", "2");
}

std::string CertificateMaker::Expired(const std::string& name) {
    return Issue(name, "root", "-1");
}

std::string CertificateMaker::SelfSigned(const std::string& name) {
    std::string directory = Directory(name);
    MakeSelfSigned(name, directory + "ostel.key.pem", directory + "ostel.cert.pem");
    return directory;
}

std::string CertificateMaker::Foreign(const std::string& name) {
    MakeRoot("foreign");
    return Issue(name, "foreign", "2");
}

std::string CertificateMaker::WrongKey(const std::string& name) {
    std::string directory = Unit(name);
    const std::string other = Unit(name + "-other");
    std::filesystem::copy_file(other + "ostel.key.pem", directory + "ostel.key.pem",
                               std::filesystem::copy_options::overwrite_existing);
    return directory;
}

std::string CertificateMaker::WrongKindOfKey(const std::string& name) {
    std::string directory = Unit(name);
    OpenSsl({"genpkey", "-algorithm", "ed25519", "-out", directory + "ostel.key.pem"});
    return directory;
}

std::string CertificateMaker::KeyWithPassPhrase(const std::string& name,
                                                const std::string& passPhrase) {
    std::string directory = Unit(name);
    const std::string plain = m_Dir.File(name + ".plain");
    std::filesystem::rename(directory + "ostel.key.pem", plain);
    OpenSsl({"pkey", "-in", plain, "-aes128", "-passout", "pass:" + passPhrase, "-out",
             directory + "ostel.key.pem"});
    return directory;
}

std::string CertificateMaker::Directory(const std::string& name) {
    std::string directory = m_Dir.File(name) + "/";
    std::filesystem::create_directory(directory);
    std::filesystem::copy_file(m_Dir.File("root.cert"), directory + "ostelRoot.cert.pem");
    return directory;
}

void CertificateMaker::MakeRoot(const std::string& stem) const {
    MakeSelfSigned("Test Root", m_Dir.File(stem + ".key"), m_Dir.File(stem + ".cert"));
}

std::string CertificateMaker::Issue(const std::string& name, const std::string& root,
                                    const std::string& days) {
    std::string directory = Directory(name);
    const std::string request = m_Dir.File(name + ".csr");
    auto arguments = NewRequest(name, directory + "ostel.key.pem");
    arguments.insert(arguments.end(), {"-out", request});
    OpenSsl(arguments);
    OpenSsl({"x509", "-req", "-sha256", "-in", request, "-CA", m_Dir.File(root + ".cert"), "-CAkey",
             m_Dir.File(root + ".key"), "-CAcreateserial", "-days", days, "-out",
             directory + "ostel.cert.pem"});
    return directory;
}
