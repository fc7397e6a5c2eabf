#ifndef SOCKET_CALLS_H
#define SOCKET_CALLS_H

#include <string>
#include <vector>

// Sees the socket calls of the library under test, and can make one fail. Add SocketCalls.cpp to
// the sources of a test program: its functions take the place of the system's.
namespace SocketCalls {

struct TConnect {
    int family;
    unsigned int length;
};
struct TOption {
    int level;
    int option;
    int value;
};

// All so far, on any thread.
std::vector<TConnect> Connects();
std::vector<TOption> Options();
// The flags of each send of just these bytes.
std::vector<int> SendsOf(const std::string& bytes);

// From now on.
void FailOption(int level, int option);
void FailSendsOf(const std::string& bytes);

void Clear();

}  // namespace SocketCalls

#endif
