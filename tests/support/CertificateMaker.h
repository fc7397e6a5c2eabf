#ifndef CERTIFICATE_MAKER_H
#define CERTIFICATE_MAKER_H

#include <string>

#include "TempDir.h"

// Certificates of units, made by the openssl program while the test runs. Each unit is a directory
// with the three files that a unit has; its path ends in "/". All of them trust the same root.
class CertificateMaker {
public:
    CertificateMaker();

    std::string Unit(const std::string& name);
    std::string Expired(const std::string& name);
    std::string SelfSigned(const std::string& name);
    // Issued by a root of the same name that nobody here trusts.
    std::string Foreign(const std::string& name);
    // Its key belongs to another certificate.
    std::string WrongKey(const std::string& name);
    // Its key is of another kind altogether.
    std::string WrongKindOfKey(const std::string& name);
    std::string KeyWithPassPhrase(const std::string& name, const std::string& passPhrase);

private:
    std::string Directory(const std::string& name);
    void MakeRoot(const std::string& stem) const;
    std::string Issue(const std::string& name, const std::string& root, const std::string& days);

    TempDir m_Dir;
};

#endif
