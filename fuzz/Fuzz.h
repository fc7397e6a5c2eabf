// What the fuzzing programs share.
#ifndef FUZZ_H
#define FUZZ_H

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

// Called by the fuzzer with each input.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace Fuzz {

inline std::string ToText(const std::uint8_t* data, std::size_t size) {
    return {data, data + size};
}

// The fuzzer keeps the input that ends the process.
inline void Require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", what);
        std::abort();
    }
}

// Takes an input apart from its front. At its end all that comes is empty.
class TCursor {
public:
    explicit TCursor(std::string input) : m_Input(std::move(input)) {}

    bool AtEnd() const { return m_Position >= m_Input.size(); }

    unsigned char Byte() { return AtEnd() ? 0 : static_cast<unsigned char>(m_Input[m_Position++]); }

    // Up to the next line feed, or to the end.
    std::string Line() {
        const std::size_t start = m_Position;
        const std::size_t end = std::min(m_Input.find('\n', start), m_Input.size());
        m_Position = std::min(end + 1, m_Input.size());
        return m_Input.substr(start, end - start);
    }

    // At most so many bytes.
    std::string Bytes(std::size_t most) {
        std::string bytes = m_Input.substr(m_Position, most);
        m_Position += bytes.size();
        return bytes;
    }

    std::string Rest() { return Bytes(std::string::npos); }

private:
    std::string m_Input;
    std::size_t m_Position = 0;
};

// A file for code that wants a path; it is on no disk.
class TMemoryFile {
public:
    TMemoryFile()
        : m_Descriptor(memfd_create("fuzz", MFD_CLOEXEC)),
          m_Path("/proc/self/fd/" + std::to_string(m_Descriptor)) {
        Require(m_Descriptor >= 0, "there is a memory file");
    }
    TMemoryFile(const TMemoryFile&) = delete;
    TMemoryFile& operator=(const TMemoryFile&) = delete;
    ~TMemoryFile() { close(m_Descriptor); }

    const std::string& Path() const { return m_Path; }

    void Write(const std::string& content) const {
        const auto size = static_cast<ssize_t>(content.size());
        Require(ftruncate(m_Descriptor, 0) == 0 &&
                    pwrite(m_Descriptor, content.data(), content.size(), 0) == size,
                "the memory file takes the content");
    }

private:
    int m_Descriptor;
    std::string m_Path;
};

}  // namespace Fuzz

#endif
