#ifndef SHARED_FILES_H
#define SHARED_FILES_H

#include <optional>
#include <string>

// The files below one directory that other units may have. Whatever a name holds, points up,
// absolute paths or symbolic links, nothing outside of the directory is ever opened.
class TSharedFiles {
public:
    // Throws std::runtime_error when it is not a directory, or the kernel (before Linux 5.6) cannot
    // keep names below it. Shares nothing when the path is empty.
    explicit TSharedFiles(const std::string& directory);
    TSharedFiles(const TSharedFiles&) = delete;
    TSharedFiles& operator=(const TSharedFiles&) = delete;
    ~TSharedFiles();

    // A regular file of at most so many bytes.
    std::optional<std::string> Read(const std::string& name, std::size_t most) const;

private:
    int m_Directory = -1;
};

#endif
