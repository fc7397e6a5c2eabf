// Round trips on systemd's bus library.
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "Echo.h"
#include "SdBus.h"

using SdBus::Checked;
using SdBus::TBus;
using SdBus::TMessage;

namespace {

TBus Connect() {
    sd_bus* bus = nullptr;
    Checked(sd_bus_open_system(&bus), "sd_bus_open_system");
    return TBus(bus);
}

class TClient : public IEchoClient {
public:
    explicit TClient(const std::string& id)
        : m_Name(EchoNames::Bus(id)), m_Path(EchoNames::Path(id)), m_Bus(Connect()) {}

    std::string Call(const std::string& request) override {
        sd_bus_message* answer = nullptr;
        Checked(
            sd_bus_call_method(m_Bus.get(), m_Name.c_str(), m_Path.c_str(), EchoNames::INTERFACE,
                               EchoNames::METHOD, nullptr, &answer, "s", request.c_str()),
            "sd_bus_call_method");
        const TMessage owned(answer);
        const char* text = nullptr;
        std::int32_t code = -1;
        Checked(sd_bus_message_read(answer, "si", &text, &code), "sd_bus_message_read");
        return text;
    }

private:
    std::string m_Name;
    std::string m_Path;
    TBus m_Bus;
};

int Answer(sd_bus_message* call, void* reply, sd_bus_error*) {
    return sd_bus_reply_method_return(call, "si", static_cast<const std::string*>(reply)->c_str(),
                                      0);
}

void Serve(const std::string& id, const std::string& reply) {
    const TBus bus = Connect();
    Checked(sd_bus_add_object(bus.get(), nullptr, EchoNames::Path(id).c_str(), &Answer,
                              const_cast<std::string*>(&reply)),
            "sd_bus_add_object");
    Checked(sd_bus_request_name(bus.get(), EchoNames::Bus(id).c_str(), 0), "sd_bus_request_name");
    std::puts("ready");
    std::fflush(stdout);
    SdBus::Serve(bus.get());
}

}  // namespace

const TEcho SD_BUS_ECHO = {"sd-bus", &Serve,
                           [](const std::string& id) -> std::unique_ptr<IEchoClient> {
                               return std::make_unique<TClient>(id);
                           }};
