#include "OstelRemoteResponse.h"

#include <cstdint>

#include "zt_logging.h"

namespace OstelRemoteResponse {

namespace {

constexpr std::uint32_t MAX_JSON_LENGTH = 4096;
constexpr std::uint32_t MAX_BINARY_LENGTH = 0xFFFFF;

// The lengths come in the byte order of the units, which is this machine's.
bool ReadLength(const TOstelRawSocket& socket, std::uint32_t& length) {
    return socket.Read(reinterpret_cast<char*>(&length), sizeof(length));
}

bool ReadBinary(const TOstelRawSocket& socket, std::uint32_t length, std::vector<char>& binary) {
    if (length > MAX_BINARY_LENGTH) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "RemotOstel: The Blob length is too big %zu.",
                      std::size_t{length});
        binary.resize(0);
        return false;
    }
    if (!socket.Read(binary, length)) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "RemotOstel: Failed to read Blob.");
        binary.resize(0);
        return false;
    }
    return true;
}

}  // namespace

bool Read(const TOstelRawSocket& socket, std::string& reply, std::vector<char>* binary) {
    std::uint32_t jsonLength = 0;
    if (!ReadLength(socket, jsonLength) || jsonLength == 0 || jsonLength > MAX_JSON_LENGTH) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR,
                      "RemotOstel: failed to read the JSON length in response or the value is "
                      "wrong. JSON size is %zu. MAX = %d",
                      std::size_t{jsonLength}, static_cast<int>(MAX_JSON_LENGTH));
        return false;
    }
    std::uint32_t binaryLength = 0;
    if (!ReadLength(socket, binaryLength)) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR,
                      "RemotOstel: failed to read the Blob length in response.");
        return false;
    }
    if (!socket.Read(reply, jsonLength)) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "RemotOstel: Failed to read Json from the socket.");
        return false;
    }
    return binary == nullptr || ReadBinary(socket, binaryLength, *binary);
}

}  // namespace OstelRemoteResponse
