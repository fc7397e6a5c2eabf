#ifndef OSTEL_FILE_UTILS_H
#define OSTEL_FILE_UTILS_H

#include <dirent.h>

#include <set>
#include <string>

#include "OstelApi.h"

// Files and directories by their paths. Nothing here logs, and a failure is no exception but a
// false result, 0 or the empty text; errno then tells the cause, and GetError names it. Outputs are
// set on success only, but where it says otherwise. A path with a NUL in it names nothing (ENOENT).
// Stateless, so callable from any thread; the creation mask and the current directory are the whole
// process's.
//
//     std::string text;
//     if (!OstelFileUtils::ReadFile("/etc/hostname", text)) {
//         std::cerr << "hostname: " << OstelFileUtils::GetError() << '\n';
//     }
//
// On the 32-bit device, files of 2 GiB and more fail like any other system call (EOVERFLOW).
namespace OstelFileUtils {

// Walks the entries of a directory but "." and "..", in the order in which the system has them. A
// directory that cannot be opened has none.
//
//     for (TDirIterator entry("/var/log"); entry != TDirIterator::End(); ++entry) {
//         std::cout << entry.GetFullPath() << '\n';
//     }
//
// One object serves one thread at a time. The order of the members is part of the binary interface.
class OSTEL_API TDirIterator {
public:
    static const TDirIterator& End();

    // As End().
    TDirIterator();
    explicit TDirIterator(const std::string& directory);
    // Opens the directory anew: a copy stands at the first entry, wherever `other` stands.
    TDirIterator(const TDirIterator& other);
    TDirIterator& operator=(const TDirIterator&) = delete;
    ~TDirIterator();

    void Next();
    TDirIterator& operator++();
    // The result is a copy, and so stands at the first entry.
    const TDirIterator operator++(int);

    // Both are empty at the end.
    std::string GetName() const;
    std::string GetFullPath() const;

    // By full path. Compare an iterator with End(), not End() with an iterator: End() equals only
    // what could not be opened.
    bool operator==(const TDirIterator& other) const;
    bool operator!=(const TDirIterator& other) const { return !(*this == other); }

private:
    DIR* m_Dir;
    dirent* m_Entry;
    std::string m_Path;
};

// The error text of errno.
OSTEL_API std::string GetError();

OSTEL_API bool CreateDirectory(const std::string& path, unsigned int mode);
// With its parents. True also when there is something of that name already, whatever it is.
OSTEL_API bool CreateDirectoryRecursive(const std::string& path, unsigned int mode);
// Appends "_" and six random characters to `path`. The mode is not subject to the creation mask.
OSTEL_API bool CreateTemporaryDirectory(std::string& path, unsigned int mode);
OSTEL_API bool CreateSymbolicLink(const std::string& target, const std::string& linkPath);
OSTEL_API bool CreateHardLink(const std::string& existing, const std::string& newPath);
OSTEL_API bool Rename(const std::string& from, const std::string& to);
OSTEL_API bool Remove(const std::string& path);
OSTEL_API bool RemoveDirectory(const std::string& path);
// Removes links in it, never what they lead to, and stops at the first failure. True also when
// there was nothing; the empty path and one with a NUL fail. When `path` itself is a link, the
// directory behind it is emptied and the result is false.
OSTEL_API bool RemoveDirectoryRecursive(const std::string& path);
// Into `to` when that is a directory, onto it otherwise; within one file system only (EXDEV).
OSTEL_API bool Move(const std::string& from, const std::string& to);

OSTEL_API bool ReadLink(const std::string& path, std::string& out);
OSTEL_API bool RealPath(const std::string& path, std::string& out);
OSTEL_API bool ChangeDirectory(const std::string& path);
OSTEL_API std::string GetCurrentDirectory();
// Writes a directory's entries to the disk, as far as the file system does; false only when it
// cannot be opened.
OSTEL_API bool SyncDirectory(const std::string& path);

OSTEL_API bool ChangePermissions(const std::string& path, unsigned int mode);
// These two change a link itself, not what it leads to.
OSTEL_API bool ChangeLinkOwner(const std::string& path, unsigned int owner);
OSTEL_API bool ChangeLinkGroup(const std::string& path, unsigned int group);
// Returns the mask so far.
OSTEL_API unsigned int SetCreationMask(unsigned int mask);

// The permission, set-id and sticky bits.
OSTEL_API bool GetPermissions(const std::string& path, unsigned int& mode);
OSTEL_API bool GetDevice(const std::string& path, unsigned long long& device);
OSTEL_API bool GetOwner(const std::string& path, unsigned int& owner);
OSTEL_API bool GetGroup(const std::string& path, unsigned int& group);
// Seconds since the epoch.
OSTEL_API bool GetModificationTime(const std::string& path, long& seconds);
OSTEL_API bool GetStatusChangeTime(const std::string& path, long& seconds);
OSTEL_API bool GetAccessTime(const std::string& path, long& seconds);
// 0 on failure.
OSTEL_API unsigned long long GetSize(const std::string& path);
OSTEL_API unsigned long GetHardLinkCount(const std::string& path);
// The sizes of all regular files in it. Follows links and knows no loops: links that lead back into
// the directory are counted until the system refuses to follow more.
OSTEL_API unsigned long long GetDirectorySizeRecursive(const std::string& path);
// What an ordinary user may still fill.
OSTEL_API bool GetAvailableSpace(const std::string& path, unsigned long long& bytes);

// These follow links: one that leads nowhere does not exist.
OSTEL_API bool Exists(const std::string& path);
OSTEL_API bool IsDirectory(const std::string& path);
OSTEL_API bool IsRegular(const std::string& path);
OSTEL_API bool IsFifo(const std::string& path);
OSTEL_API bool IsSocket(const std::string& path);
// A character device; IsBlock knows the others.
OSTEL_API bool IsDevice(const std::string& path);
OSTEL_API bool IsSame(const std::string& a, const std::string& b);
// These do not follow links.
OSTEL_API bool IsSymbolicLink(const std::string& path);
OSTEL_API bool IsBlock(const std::string& path);

// True also for a directory that cannot be opened.
OSTEL_API bool IsDirEmpty(const std::string& path);
// Adds the names of all that is in the directory but directories and links to them. `directory`
// ends in "/". One that cannot be opened counts as empty.
OSTEL_API bool GetFiles(const std::string& directory, std::set<std::string>& names);

// On failure `out` holds what was read; when the file could not be opened, it is untouched.
OSTEL_API bool ReadFile(const std::string& path, std::string& out);
// Replaces the file's content, or adds to it with `append`. With `sync` it returns when the data
// are on the disk. A new file has the mode 0755, less the creation mask.
OSTEL_API bool WriteFile(const std::string& path, const std::string& data, bool append, bool sync);
// Only the low 32 bits of `length` count.
OSTEL_API bool ResizeFile(const std::string& path, unsigned long long length);
// Into `to` when that is a directory, onto it otherwise; contents only, no permissions, owners and
// times. A file copied onto itself is emptied.
OSTEL_API bool CopyFile(const std::string& from, const std::string& to);
// Into `to` when that is a directory, to a new one of that name otherwise. Links are copied as
// links. Merges into what is there and stops at the first failure. Nothing is copied into itself
// (EINVAL).
OSTEL_API bool CopyDirectory(const std::string& from, const std::string& to);
// As CopyDirectory, from one directory right into the other.
OSTEL_API bool CopyDirectoryContent(const std::string& from, const std::string& to);

// Parts of a path; none of these looks at the file system. The first two as POSIX has them.
OSTEL_API std::string GetDirName(const std::string& path);
OSTEL_API std::string GetBaseName(const std::string& path);
OSTEL_API std::string AppendFilePath(const std::string& a, const std::string& b);
// The last of the pieces between "/"; one at the end adds no piece. Empty when there is none.
OSTEL_API std::string GetFileNameFromPath(const std::string& path);
// From the base name's last point on: ".gz" of "archive.tar.gz", ".profile" of ".profile".
OSTEL_API std::string GetFileExtension(const std::string& path);
// The base name up to its first point: "archive" of "archive.tar.gz"; empty when it has none.
OSTEL_API std::string GetFileBaseName(const std::string& path);

}  // namespace OstelFileUtils

#endif
