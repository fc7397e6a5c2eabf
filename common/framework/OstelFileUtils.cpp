// What one system call does, and the parts of paths.
#include "OstelFileUtils.h"

#include <libgen.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "OstelGenericUtils.h"
#include "OstelSystemPath.h"

namespace OstelFileUtils {

namespace {

constexpr std::size_t PATH_BUFFER_SIZE = 4096;
static_assert(PATH_BUFFER_SIZE >= PATH_MAX, "realpath fills its buffer up to PATH_MAX");

constexpr auto UNCHANGED = static_cast<unsigned int>(-1);

std::optional<struct stat> Stat(const std::string& path) {
    struct stat status = {};
    return stat(SystemPath(path), &status) == 0 ? std::make_optional(status) : std::nullopt;
}

std::optional<struct stat> StatLink(const std::string& path) {
    struct stat status = {};
    return lstat(SystemPath(path), &status) == 0 ? std::make_optional(status) : std::nullopt;
}

bool HasType(const std::optional<struct stat>& status, mode_t type) {
    return status && (status->st_mode & S_IFMT) == type;
}

template <typename Member, typename T>
bool GetStatus(const std::string& path, Member member, T& value) {
    const auto status = Stat(path);
    if (!status) {
        return false;
    }
    value = static_cast<T>((*status).*member);
    return true;
}

bool HasPoint(const std::string& base) {
    return base != "." && base != ".." && base.find('.') != std::string::npos;
}

}  // namespace

std::string GetError() {
    return std::strerror(errno);
}

bool CreateDirectory(const std::string& path, unsigned int mode) {
    return mkdir(SystemPath(path), mode) == 0;
}

bool CreateTemporaryDirectory(std::string& path, unsigned int mode) {
    std::string name = path + "_XXXXXX";
    if (*SystemPath(name) == '\0') {
        errno = ENOENT;
        return false;
    }
    if (mkdtemp(name.data()) == nullptr) {
        return false;
    }
    if (!ChangePermissions(name, mode)) {
        const int cause = errno;
        RemoveDirectory(name);
        errno = cause;
        return false;
    }
    path = name;
    return true;
}

bool CreateSymbolicLink(const std::string& target, const std::string& linkPath) {
    return symlink(SystemPath(target), SystemPath(linkPath)) == 0;
}

bool CreateHardLink(const std::string& existing, const std::string& newPath) {
    return link(SystemPath(existing), SystemPath(newPath)) == 0;
}

bool Rename(const std::string& from, const std::string& to) {
    return std::rename(SystemPath(from), SystemPath(to)) == 0;
}

bool Remove(const std::string& path) {
    return unlink(SystemPath(path)) == 0;
}

bool RemoveDirectory(const std::string& path) {
    return rmdir(SystemPath(path)) == 0;
}

bool ReadLink(const std::string& path, std::string& out) {
    char target[PATH_BUFFER_SIZE];
    const ssize_t length = readlink(SystemPath(path), target, sizeof target);
    if (length < 0) {
        return false;
    }
    out.assign(target, static_cast<std::size_t>(length));
    return true;
}

bool RealPath(const std::string& path, std::string& out) {
    char resolved[PATH_BUFFER_SIZE];
    if (realpath(SystemPath(path), resolved) == nullptr) {
        return false;
    }
    out = resolved;
    return true;
}

bool ChangeDirectory(const std::string& path) {
    return chdir(SystemPath(path)) == 0;
}

std::string GetCurrentDirectory() {
    char path[PATH_BUFFER_SIZE];
    return getcwd(path, sizeof path) != nullptr ? path : "";
}

bool ChangePermissions(const std::string& path, unsigned int mode) {
    return chmod(SystemPath(path), mode) == 0;
}

bool ChangeLinkOwner(const std::string& path, unsigned int owner) {
    return lchown(SystemPath(path), owner, UNCHANGED) == 0;
}

bool ChangeLinkGroup(const std::string& path, unsigned int group) {
    return lchown(SystemPath(path), UNCHANGED, group) == 0;
}

unsigned int SetCreationMask(unsigned int mask) {
    return umask(mask);
}

bool GetPermissions(const std::string& path, unsigned int& mode) {
    const auto status = Stat(path);
    if (!status) {
        return false;
    }
    mode = status->st_mode & 0xFFFU;
    return true;
}

bool GetDevice(const std::string& path, unsigned long long& device) {
    return GetStatus(path, &stat::st_dev, device);
}

bool GetOwner(const std::string& path, unsigned int& owner) {
    return GetStatus(path, &stat::st_uid, owner);
}

bool GetGroup(const std::string& path, unsigned int& group) {
    return GetStatus(path, &stat::st_gid, group);
}

bool GetModificationTime(const std::string& path, long& seconds) {
    const auto status = Stat(path);
    if (!status) {
        return false;
    }
    seconds = status->st_mtime;
    return true;
}

bool GetStatusChangeTime(const std::string& path, long& seconds) {
    const auto status = Stat(path);
    if (!status) {
        return false;
    }
    seconds = status->st_ctime;
    return true;
}

bool GetAccessTime(const std::string& path, long& seconds) {
    const auto status = Stat(path);
    if (!status) {
        return false;
    }
    seconds = status->st_atime;
    return true;
}

unsigned long long GetSize(const std::string& path) {
    unsigned long long size = 0;
    GetStatus(path, &stat::st_size, size);
    return size;
}

unsigned long GetHardLinkCount(const std::string& path) {
    unsigned long count = 0;
    GetStatus(path, &stat::st_nlink, count);
    return count;
}

bool GetAvailableSpace(const std::string& path, unsigned long long& bytes) {
    struct statvfs status = {};
    if (statvfs(SystemPath(path), &status) != 0) {
        return false;
    }
    bytes = static_cast<unsigned long long>(status.f_bsize) * status.f_bavail;
    return true;
}

bool Exists(const std::string& path) {
    return Stat(path).has_value();
}

bool IsDirectory(const std::string& path) {
    return HasType(Stat(path), S_IFDIR);
}

bool IsRegular(const std::string& path) {
    return HasType(Stat(path), S_IFREG);
}

bool IsFifo(const std::string& path) {
    return HasType(Stat(path), S_IFIFO);
}

bool IsSocket(const std::string& path) {
    return HasType(Stat(path), S_IFSOCK);
}

bool IsDevice(const std::string& path) {
    // Character devices only: applications tell the two kinds apart by IsDevice and IsBlock.
    return HasType(Stat(path), S_IFCHR);
}

bool IsSame(const std::string& a, const std::string& b) {
    const auto first = Stat(a);
    if (!first) {
        return false;
    }
    const auto second = Stat(b);
    return second && first->st_dev == second->st_dev && first->st_ino == second->st_ino;
}

bool IsSymbolicLink(const std::string& path) {
    return HasType(StatLink(path), S_IFLNK);
}

bool IsBlock(const std::string& path) {
    return HasType(StatLink(path), S_IFBLK);
}

bool ResizeFile(const std::string& path, unsigned long long length) {
    // The width of the device's file offsets, kept where they are wider: a length means the same on
    // both. From 2 GiB on it is negative there, and refused.
    return truncate(SystemPath(path), static_cast<off_t>(static_cast<std::uint32_t>(length))) == 0;
}

std::string GetDirName(const std::string& path) {
    std::string copy = path;
    return dirname(copy.data());
}

std::string GetBaseName(const std::string& path) {
    std::string copy = path;
    return basename(copy.data());
}

std::string AppendFilePath(const std::string& a, const std::string& b) {
    return a + "/" + b;
}

std::string GetFileNameFromPath(const std::string& path) {
    const auto fields = OstelGenericUtils::Split(path, '/');
    return fields.empty() ? "" : fields.back();
}

std::string GetFileExtension(const std::string& path) {
    const std::string base = GetBaseName(path);
    return HasPoint(base) ? base.substr(base.rfind('.')) : "";
}

std::string GetFileBaseName(const std::string& path) {
    const std::string base = GetBaseName(path);
    // Empty without a point: callers take it for "not a file that has a kind".
    return HasPoint(base) ? base.substr(0, base.find('.')) : "";
}

}  // namespace OstelFileUtils
