// Internal, not installed: the answer of another unit, which comes back behind the lengths of its
// two parts.
#ifndef OSTEL_REMOTE_RESPONSE_H
#define OSTEL_REMOTE_RESPONSE_H

#include <string>
#include <vector>

#include "TOstelRawSocket.h"

namespace OstelRemoteResponse {

// Whether an answer came whole; what is wrong with one is logged. `binary`, the second part, may be
// null, and is then left on the socket.
bool Read(const TOstelRawSocket& socket, std::string& reply, std::vector<char>* binary);

}  // namespace OstelRemoteResponse

#endif
