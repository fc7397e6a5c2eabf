// The same without the library: what any program pays that is an application on the bus, with a
// connection for its name and the events, one for its requests, and a thread that serves.
#include <dbus/dbus.h>
#include <jansson.h>
#include <openssl/ssl.h>

#include <string>
#include <thread>

#include "DirtyMemory.h"
#include "Echo.h"
#include "RawBus.h"

int main() {
    const RawBus::TConnection server = RawBus::Connect();
    const RawBus::TConnection client = RawBus::Connect();
    dbus_bus_add_match(server.get(), "interface='com.Kaven.Ostel.Ostel'", nullptr);
    RawBus::TakeName(server.get(), "OSTEL_APP_SIMULATOR");
    std::thread worker([&] {
        while (dbus_connection_read_write_dispatch(server.get(), -1)) {
        }
    });
    worker.detach();
    json_t* const request = json_pack("{s:s}", "NAME", "Device.DeviceInfo.SerialNumber");
    char* const text = json_dumps(request, JSON_COMPACT);
    const std::string reply = RawBus::Call(client.get(), "OSTEL_DISPATCHER", text);
    json_t* const document = json_loads(reply.c_str(), 0, nullptr);
    const json_t* const params = json_object_get(document, "PARAMS");
    const std::string value =
        json_string_value(json_object_get(json_array_get(params, 0), "VALUE"));
    // Keeps the TLS library among those that are loaded; a request on the bus needs nothing of it.
    if (value.empty() || TLS_client_method() == nullptr) {
        return 1;
    }
    ReportDirtyMemoryAndWait();
}
