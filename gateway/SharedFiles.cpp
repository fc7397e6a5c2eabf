#include "SharedFiles.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace {

class TDescriptor {
public:
    explicit TDescriptor(int descriptor) : m_Descriptor(descriptor) {}
    TDescriptor(const TDescriptor&) = delete;
    TDescriptor& operator=(const TDescriptor&) = delete;
    ~TDescriptor() {
        if (m_Descriptor >= 0) {
            close(m_Descriptor);
        }
    }
    int Get() const { return m_Descriptor; }

private:
    int m_Descriptor;
};

constexpr int MOST_ATTEMPTS = 1000;

// Asked for nothing but that: a time or a number that does not fit would be an error.
bool IsRegularFile(int file) {
    struct statx status {};
    return statx(file, "", AT_EMPTY_PATH, STATX_TYPE, &status) == 0 && S_ISREG(status.stx_mode);
}

// The kernel itself keeps the whole resolution below the directory, so that nobody who changes a
// link in between can lead it elsewhere. Without blocking, since a FIFO may be waiting there.
int OpenBeneath(int directory, const std::string& name) {
    open_how how{};
    how.flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    long file = -1;
    int attempts = 0;
    do {
        file = syscall(SYS_openat2, directory, name.c_str(), &how, sizeof how);
        // A ".." is not followed while anything is renamed, wherever that is.
    } while (file < 0 && errno == EAGAIN && ++attempts < MOST_ATTEMPTS);
    return static_cast<int>(file);
}

}  // namespace

TSharedFiles::TSharedFiles(const std::string& directory) {
    if (directory.empty()) {
        return;
    }
    m_Directory = open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (m_Directory < 0) {
        throw std::runtime_error(directory + ": " + std::strerror(errno));
    }
    // An old kernel or a sandbox may not have it; then every file would seem to be missing.
    const TDescriptor itself(OpenBeneath(m_Directory, "."));
    if (itself.Get() < 0 && (errno == ENOSYS || errno == EPERM)) {
        const std::string cause = std::strerror(errno);
        close(m_Directory);
        throw std::runtime_error(directory + ": openat2: " + cause);
    }
}

TSharedFiles::~TSharedFiles() {
    if (m_Directory >= 0) {
        close(m_Directory);
    }
}

std::optional<std::string> TSharedFiles::Read(const std::string& name, std::size_t most) const {
    if (m_Directory < 0 || name.find('\0') != std::string::npos) {
        return std::nullopt;
    }
    const TDescriptor file(OpenBeneath(m_Directory, name));
    if (file.Get() < 0 || !IsRegularFile(file.Get())) {
        return std::nullopt;
    }
    // One byte more than allowed tells a file that is too long, or that grows meanwhile.
    std::string bytes(most + 1, '\0');
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t size = read(file.Get(), &bytes[done], bytes.size() - done);
        if (size < 0 && errno == EINTR) {
            continue;
        }
        if (size < 0) {
            return std::nullopt;
        }
        if (size == 0) {
            break;
        }
        done += static_cast<std::size_t>(size);
    }
    bytes.resize(done);
    return done <= most ? std::optional<std::string>(std::move(bytes)) : std::nullopt;
}
