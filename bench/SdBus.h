#ifndef SD_BUS_H
#define SD_BUS_H

#include <systemd/sd-bus.h>

#include <cstdint>
#include <memory>
#include <system_error>

// What systemd's bus library gives, owned, and its results.
namespace SdBus {

struct TUnref {
    void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using TBus = std::unique_ptr<sd_bus, TUnref>;
using TMessage = std::unique_ptr<sd_bus_message, TUnref>;

// The result, which is a negative error number where there is none.
inline int Checked(int result, const char* what) {
    if (result < 0) {
        throw std::system_error(-result, std::generic_category(), what);
    }
    return result;
}

// Does what there is to do on the connection, and never returns.
inline void Serve(sd_bus* bus) {
    while (true) {
        if (Checked(sd_bus_process(bus, nullptr), "sd_bus_process") == 0) {
            Checked(sd_bus_wait(bus, UINT64_MAX), "sd_bus_wait");
        }
    }
}

}  // namespace SdBus

#endif
