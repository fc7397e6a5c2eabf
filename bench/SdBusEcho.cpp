// Round trips on systemd's bus library.
#include <systemd/sd-bus.h>

#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

#include "Echo.h"

namespace {

struct TUnref {
    void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using TBus = std::unique_ptr<sd_bus, TUnref>;
using TMessage = std::unique_ptr<sd_bus_message, TUnref>;

void Require(int result) {
    if (result < 0) {
        throw std::runtime_error("sd-bus failed with " + std::to_string(result));
    }
}

TBus Connect() {
    sd_bus* bus = nullptr;
    Require(sd_bus_open_system(&bus));
    return TBus(bus);
}

class TClient : public IEchoClient {
public:
    explicit TClient(const std::string& id)
        : m_Name(EchoNames::Bus(id)), m_Path(EchoNames::Path(id)), m_Bus(Connect()) {}

    std::string Call(const std::string& request) override {
        sd_bus_message* answer = nullptr;
        Require(sd_bus_call_method(m_Bus.get(), m_Name.c_str(), m_Path.c_str(),
                                   EchoNames::INTERFACE, EchoNames::METHOD, nullptr, &answer, "s",
                                   request.c_str()));
        const TMessage owned(answer);
        const char* text = nullptr;
        std::int32_t code = -1;
        Require(sd_bus_message_read(answer, "si", &text, &code));
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
    Require(sd_bus_add_object(bus.get(), nullptr, EchoNames::Path(id).c_str(), &Answer,
                              const_cast<std::string*>(&reply)));
    Require(sd_bus_request_name(bus.get(), EchoNames::Bus(id).c_str(), 0));
    std::puts("ready");
    std::fflush(stdout);
    while (true) {
        const int processed = sd_bus_process(bus.get(), nullptr);
        Require(processed);
        if (processed == 0) {
            Require(sd_bus_wait(bus.get(), UINT64_MAX));
        }
    }
}

}  // namespace

const TEcho SD_BUS_ECHO = {"sd-bus", &Serve,
                           [](const std::string& id) -> std::unique_ptr<IEchoClient> {
                               return std::make_unique<TClient>(id);
                           }};
