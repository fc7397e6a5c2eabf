#include "TempDir.h"

#include <cstdlib>
#include <system_error>

TempDir::TempDir() {
    std::string name = (std::filesystem::temp_directory_path() / "ostel-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), name);
    }
    m_Path = name;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(m_Path, ignored);
}
