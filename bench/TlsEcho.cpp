// Another unit's remote service that has one answer.
#include <unistd.h>

#include <cstdio>

#include "Echo.h"
#include "TlsPeer.h"

namespace {

// The line that it writes is the address at which it listens.
void Serve(const std::string& certificates, const std::string& reply) {
    const TlsPeer peer({certificates}, TlsPeer::Framed(reply));
    std::puts(peer.Host().c_str());
    std::fflush(stdout);
    while (true) {
        pause();
    }
}

}  // namespace

const TEcho TLS_ECHO = {"tls", &Serve, nullptr};
