// The library as the server of round trips. As the client it is called as applications call it.
#include <cstdio>
#include <memory>

#include <unistd.h>

#include "Echo.h"
#include "TOstelIpc.h"

namespace {

class THandler : public IOstelIpcMethodHandler {
public:
    explicit THandler(const std::string& reply) : m_Reply(reply) {}

    int OnMethodCall(const std::string&, const std::string&, std::string& reply) override {
        reply = m_Reply;
        return 0;
    }

private:
    const std::string& m_Reply;
};

void Serve(const std::string& id, const std::string& text) {
    THandler handler(text);
    TOstelIpc& ipc = *getOstelIpcInstance();
    ipc.AddMethodHandler(EchoNames::METHOD, &handler);
    ipc.Init(id);
    ipc.Run();
    std::puts("ready");
    std::fflush(stdout);
    while (true) {
        pause();
    }
}

}  // namespace

const TEcho OSTEL_ECHO = {"ostel", &Serve, nullptr};
