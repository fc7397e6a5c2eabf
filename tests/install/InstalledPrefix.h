#ifndef INSTALLED_PREFIX_H
#define INSTALLED_PREFIX_H

#include <gtest/gtest.h>

#include "ChildProcess.h"

// The built project, installed into a directory that was empty before and that every user can read.
class InstalledPrefix {
public:
    InstalledPrefix() {
        std::filesystem::permissions(m_Dir.Path(), std::filesystem::perms(0755));
        const TFinished install =
            RunProgram({OSTEL_CMAKE, "--install", OSTEL_BUILD, "--prefix", m_Dir.Path()});
        EXPECT_EQ(install.status, 0) << install.output << install.errors;
    }

    std::string File(const std::string& name) const { return m_Dir.File(name); }
    const std::filesystem::path& Path() const { return m_Dir.Path(); }

private:
    TempDir m_Dir;
};

#endif
