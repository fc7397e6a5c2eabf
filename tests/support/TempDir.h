#ifndef TEMP_DIR_H
#define TEMP_DIR_H

#include <filesystem>
#include <string>

// A directory that lives as long as the object, with all that is in it.
class TempDir {
public:
    TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    ~TempDir();

    const std::filesystem::path& Path() const { return m_Path; }
    std::string File(const std::string& name) const { return (m_Path / name).string(); }

private:
    std::filesystem::path m_Path;
};

#endif
