// The contents of files and directories, and whole trees of them.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <memory>

#include "OstelFileUtils.h"
#include "OstelSystemPath.h"

namespace OstelFileUtils {

namespace {

constexpr mode_t NEW_FILE_MODE = 0755;
constexpr unsigned int NEW_DIRECTORY_MODE = 0755;

using TChunk = std::array<char, 8192>;

// Closes without a trace: errno stays the cause of the failure that ended its scope.
class TDescriptor {
public:
    explicit TDescriptor(int descriptor) : m_Descriptor(descriptor) {}
    TDescriptor(const TDescriptor&) = delete;
    TDescriptor& operator=(const TDescriptor&) = delete;
    ~TDescriptor() {
        if (IsOpen()) {
            const int cause = errno;
            close(m_Descriptor);
            errno = cause;
        }
    }

    bool IsOpen() const { return m_Descriptor >= 0; }
    int Number() const { return m_Descriptor; }

private:
    int m_Descriptor;
};

struct TDirCloser {
    void operator()(DIR* directory) const { closedir(directory); }
};
using TDirStream = std::unique_ptr<DIR, TDirCloser>;

ssize_t ReadChunk(const TDescriptor& source, TChunk& chunk) {
    ssize_t count = 0;
    do {
        count = read(source.Number(), chunk.data(), chunk.size());
    } while (count < 0 && errno == EINTR);
    return count;
}

bool WriteAll(const TDescriptor& target, const char* data, std::size_t length) {
    while (length > 0) {
        const ssize_t count = write(target.Number(), data, length);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count == 0) {
            // Nor would it take anything when asked again.
            errno = ENOSPC;
        }
        if (count <= 0) {
            return false;
        }
        data += count;
        length -= static_cast<std::size_t>(count);
    }
    return true;
}

bool IsDots(const dirent& entry) {
    return std::strcmp(entry.d_name, ".") == 0 || std::strcmp(entry.d_name, "..") == 0;
}

// Where something goes that is put to `to`.
std::string TargetOf(const std::string& from, const std::string& to) {
    return IsDirectory(to) ? AppendFilePath(to, GetBaseName(from)) : to;
}

// IsDirectory that leaves the cause in errno in every case.
bool MustBeDirectory(const std::string& path) {
    if (IsDirectory(path)) {
        return true;
    }
    if (Exists(path)) {
        errno = ENOTDIR;
    }
    return false;
}

// Whether one directory is the other or lies in it, wherever links lead.
bool IsWithin(const std::string& inner, const std::string& outer) {
    std::string innerPath;
    std::string outerPath;
    if (!RealPath(inner, innerPath) || !RealPath(outer, outerPath)) {
        return false;
    }
    const std::string beginning = outerPath == "/" ? outerPath : outerPath + "/";
    return (innerPath + "/").compare(0, beginning.size(), beginning) == 0;
}

// A directory that is copied into itself meets its own copy in there, over and over.
bool RefuseCopyIntoItself() {
    errno = EINVAL;
    return false;
}

bool CopyLink(const std::string& from, const std::string& to) {
    Remove(to);
    std::string target;
    return ReadLink(from, target) && CreateSymbolicLink(target, to);
}

bool CopyEntry(const std::string& from, const std::string& to) {
    if (IsSymbolicLink(from)) {
        return CopyLink(from, to);
    }
    if (IsDirectory(from)) {
        CreateDirectory(to, NEW_DIRECTORY_MODE);
        return CopyDirectoryContent(from, to);
    }
    return CopyFile(from, to);
}

}  // namespace

const TDirIterator& TDirIterator::End() {
    static const TDirIterator end;
    return end;
}

TDirIterator::TDirIterator() : m_Dir(nullptr), m_Entry(nullptr) {}

TDirIterator::TDirIterator(const std::string& directory)
    : m_Dir(nullptr), m_Entry(nullptr), m_Path(directory + "/") {
    m_Dir = opendir(SystemPath(m_Path));
    Next();
}

// From the start: a stream's position cannot be handed on, and callers count on the first entry.
TDirIterator::TDirIterator(const TDirIterator& other)
    : m_Dir(opendir(SystemPath(other.m_Path))), m_Entry(nullptr), m_Path(other.m_Path) {
    Next();
}

TDirIterator::~TDirIterator() {
    if (m_Dir != nullptr) {
        closedir(m_Dir);
    }
}

void TDirIterator::Next() {
    if (m_Dir == nullptr) {
        return;
    }
    do {
        m_Entry = readdir(m_Dir);
    } while (m_Entry != nullptr && IsDots(*m_Entry));
}

TDirIterator& TDirIterator::operator++() {
    Next();
    return *this;
}

const TDirIterator TDirIterator::operator++(int) {
    TDirIterator copy(*this);
    Next();
    return copy;
}

std::string TDirIterator::GetName() const {
    return m_Entry != nullptr ? m_Entry->d_name : "";
}

std::string TDirIterator::GetFullPath() const {
    return m_Entry != nullptr ? m_Path + m_Entry->d_name : "";
}

bool TDirIterator::operator==(const TDirIterator& other) const {
    if (m_Dir == nullptr) {
        return other.m_Dir == nullptr;
    }
    if (m_Entry == nullptr) {
        return other.m_Entry == nullptr;
    }
    return GetFullPath() == other.GetFullPath();
}

bool CreateDirectoryRecursive(const std::string& path, unsigned int mode) {
    if (CreateDirectory(path, mode) || errno == EEXIST) {
        return true;
    }
    if (errno != ENOENT || *SystemPath(path) == '\0') {
        return false;
    }
    return CreateDirectoryRecursive(GetDirName(path), mode) && CreateDirectory(path, mode);
}

bool RemoveDirectoryRecursive(const std::string& path) {
    if (*SystemPath(path) == '\0') {
        // Its entries would be those of "/": a caller's unset path must not cost the whole system.
        errno = ENOENT;
        return false;
    }
    for (TDirIterator entry(path); entry != TDirIterator::End(); ++entry) {
        const std::string full = entry.GetFullPath();
        const bool isTree = IsDirectory(full) && !IsSymbolicLink(full);
        if (!(isTree ? RemoveDirectoryRecursive(full) : Remove(full))) {
            return false;
        }
    }
    return !Exists(path) || RemoveDirectory(path);
}

unsigned long long GetDirectorySizeRecursive(const std::string& path) {
    unsigned long long size = 0;
    for (TDirIterator entry(path); entry != TDirIterator::End(); ++entry) {
        const std::string full = entry.GetFullPath();
        if (IsDirectory(full)) {
            size += GetDirectorySizeRecursive(full);
        } else if (IsRegular(full)) {
            size += GetSize(full);
        }
    }
    return size;
}

bool Move(const std::string& from, const std::string& to) {
    // No copy across file systems: a move is whole or fails, and callers decide about copying.
    return Rename(from, TargetOf(from, to));
}

bool SyncDirectory(const std::string& path) {
    const TDirStream directory(opendir(SystemPath(path)));
    if (!directory) {
        return false;
    }
    // Not every file system can, and the entries are no worse for it.
    fsync(dirfd(directory.get()));
    return true;
}

bool IsDirEmpty(const std::string& path) {
    return TDirIterator(path) == TDirIterator::End();
}

bool GetFiles(const std::string& directory, std::set<std::string>& names) {
    // A missing directory is an empty one, too: callers list what may not be there yet.
    if (IsDirEmpty(directory)) {
        return true;
    }
    const TDirStream stream(opendir(SystemPath(directory)));
    if (!stream) {
        return false;
    }
    while (const dirent* const entry = readdir(stream.get())) {
        if (!IsDirectory(directory + entry->d_name)) {
            names.insert(entry->d_name);
        }
    }
    return true;
}

bool ReadFile(const std::string& path, std::string& out) {
    const TDescriptor source(open(SystemPath(path), O_RDONLY));
    if (!source.IsOpen()) {
        return false;
    }
    try {
        out.clear();
        out.reserve(static_cast<std::size_t>(GetSize(path)));
        TChunk chunk;
        ssize_t count = 0;
        while ((count = ReadChunk(source, chunk)) > 0) {
            out.append(chunk.data(), static_cast<std::size_t>(count));
        }
        return count == 0;
    } catch (const std::exception&) {
        errno = ENOMEM;
        return false;
    }
}

bool WriteFile(const std::string& path, const std::string& data, bool append, bool sync) {
    const int flags = O_WRONLY | O_CREAT | (append ? O_APPEND : O_TRUNC) | (sync ? O_SYNC : 0);
    const TDescriptor target(open(SystemPath(path), flags, NEW_FILE_MODE));
    return target.IsOpen() && WriteAll(target, data.data(), data.size());
}

bool CopyFile(const std::string& from, const std::string& to) {
    const std::string path = TargetOf(from, to);
    const TDescriptor source(open(SystemPath(from), O_RDONLY));
    if (!source.IsOpen()) {
        return false;
    }
    const TDescriptor target(open(SystemPath(path), O_WRONLY | O_CREAT | O_TRUNC, NEW_FILE_MODE));
    if (!target.IsOpen()) {
        return false;
    }
    TChunk chunk;
    ssize_t count = 0;
    while ((count = ReadChunk(source, chunk)) > 0) {
        if (!WriteAll(target, chunk.data(), static_cast<std::size_t>(count))) {
            return false;
        }
    }
    return count == 0;
}

bool CopyDirectory(const std::string& from, const std::string& to) {
    if (!MustBeDirectory(from)) {
        return false;
    }
    const std::string target = TargetOf(from, to);
    if (IsWithin(GetDirName(target), from)) {
        return RefuseCopyIntoItself();
    }
    CreateDirectory(target, NEW_DIRECTORY_MODE);
    return CopyDirectoryContent(from, target);
}

bool CopyDirectoryContent(const std::string& from, const std::string& to) {
    if (!MustBeDirectory(from) || !MustBeDirectory(to)) {
        return false;
    }
    if (IsWithin(to, from) && !IsSame(to, from)) {
        return RefuseCopyIntoItself();
    }
    for (TDirIterator entry(from); entry != TDirIterator::End(); ++entry) {
        if (!CopyEntry(entry.GetFullPath(), AppendFilePath(to, entry.GetName()))) {
            return false;
        }
    }
    return true;
}

}  // namespace OstelFileUtils
