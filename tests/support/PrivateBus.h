#ifndef PRIVATE_BUS_H
#define PRIVATE_BUS_H

#include <sys/types.h>

#include <string>

#include "TempDir.h"

// A message bus of the test's own, which the library takes for the system bus: the constructor puts
// its address into DBUS_SYSTEM_BUS_ADDRESS. The bus library reads that once in a process, so make
// this object before the first connection and only one in a process.
//
// The bus accepts connections when the constructor returns, and dies with the process.
class PrivateBus {
public:
    PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;
    ~PrivateBus();

    const std::string& Address() const { return m_Address; }

    // The bus goes away without a word, as in a crash. Start brings it back at the same address.
    void Kill();
    void Start();

private:
    TempDir m_Directory;
    std::string m_Address;
    pid_t m_Daemon;
};

#endif
