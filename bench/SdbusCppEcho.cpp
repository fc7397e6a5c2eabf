// Round trips on the C++ bindings of systemd's bus library.
#include <sdbus-c++/sdbus-c++.h>

#include <cstdio>
#include <memory>
#include <string>
#include <tuple>

#include "Echo.h"

namespace {

class TClient : public IEchoClient {
public:
    explicit TClient(const std::string& id)
        : m_Connection(sdbus::createSystemBusConnection()),
          m_Proxy(sdbus::createProxy(*m_Connection, EchoNames::Bus(id), EchoNames::Path(id))) {}

    std::string Call(const std::string& request) override {
        std::string text;
        std::int32_t code = -1;
        m_Proxy->callMethod(EchoNames::METHOD)
            .onInterface(EchoNames::INTERFACE)
            .withArguments(request)
            .storeResultsTo(text, code);
        return text;
    }

private:
    std::unique_ptr<sdbus::IConnection> m_Connection;
    std::unique_ptr<sdbus::IProxy> m_Proxy;
};

void Serve(const std::string& id, const std::string& reply) {
    const auto connection = sdbus::createSystemBusConnection();
    const auto object = sdbus::createObject(*connection, EchoNames::Path(id));
    object->registerMethod(EchoNames::METHOD)
        .onInterface(EchoNames::INTERFACE)
        .implementedAs([&reply](const std::string&) {
            return std::tuple<std::string, std::int32_t>(reply, 0);
        });
    object->finishRegistration();
    connection->requestName(EchoNames::Bus(id));
    std::puts("ready");
    std::fflush(stdout);
    connection->enterEventLoop();
}

}  // namespace

const TEcho SDBUS_CPP_ECHO = {"sdbus-c++", &Serve,
                              [](const std::string& id) -> std::unique_ptr<IEchoClient> {
                                  return std::make_unique<TClient>(id);
                              }};
