// Round trips on GLib's bus library.
#include <gio/gio.h>

#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

#include "Echo.h"

namespace {

struct TUnref {
    void operator()(GDBusConnection* connection) const { g_object_unref(connection); }
    void operator()(GVariant* value) const { g_variant_unref(value); }
    void operator()(GDBusNodeInfo* info) const { g_dbus_node_info_unref(info); }
    void operator()(GMainLoop* loop) const { g_main_loop_unref(loop); }
};
using TConnection = std::unique_ptr<GDBusConnection, TUnref>;
using TValue = std::unique_ptr<GVariant, TUnref>;

const char* const INTROSPECTION =
    "<node><interface name='com.Kaven.Ostel.Ostel'><method name='GET_PARAM'>"
    "<arg type='s' direction='in'/><arg type='s' direction='out'/><arg type='i' direction='out'/>"
    "</method></interface></node>";

void ThrowIfSet(GError* error) {
    if (error != nullptr) {
        const std::string text = error->message;
        g_error_free(error);
        throw std::runtime_error(text);
    }
}

TConnection Connect() {
    GError* error = nullptr;
    TConnection connection(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error));
    ThrowIfSet(error);
    return connection;
}

class TClient : public IEchoClient {
public:
    explicit TClient(const std::string& id)
        : m_Name(EchoNames::Bus(id)), m_Path(EchoNames::Path(id)), m_Connection(Connect()) {}

    std::string Call(const std::string& request) override {
        GError* error = nullptr;
        const TValue answer(g_dbus_connection_call_sync(
            m_Connection.get(), m_Name.c_str(), m_Path.c_str(), EchoNames::INTERFACE,
            EchoNames::METHOD, g_variant_new("(s)", request.c_str()), nullptr,
            G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error));
        ThrowIfSet(error);
        const char* text = nullptr;
        gint32 code = -1;
        g_variant_get(answer.get(), "(&si)", &text, &code);
        return text;
    }

private:
    std::string m_Name;
    std::string m_Path;
    TConnection m_Connection;
};

void Answer(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*, GVariant*,
            GDBusMethodInvocation* call, gpointer reply) {
    g_dbus_method_invocation_return_value(
        call, g_variant_new("(si)", static_cast<const std::string*>(reply)->c_str(), 0));
}

void SayReady(GDBusConnection*, const gchar*, gpointer) {
    std::puts("ready");
    std::fflush(stdout);
}

void Serve(const std::string& id, const std::string& reply) {
    const TConnection connection = Connect();
    GError* error = nullptr;
    const std::unique_ptr<GDBusNodeInfo, TUnref> node(
        g_dbus_node_info_new_for_xml(INTROSPECTION, &error));
    ThrowIfSet(error);
    const GDBusInterfaceVTable table = {&Answer, nullptr, nullptr, {}};
    g_dbus_connection_register_object(connection.get(), EchoNames::Path(id).c_str(),
                                      node->interfaces[0], &table, const_cast<std::string*>(&reply),
                                      nullptr, &error);
    ThrowIfSet(error);
    g_bus_own_name_on_connection(connection.get(), EchoNames::Bus(id).c_str(),
                                 G_BUS_NAME_OWNER_FLAGS_NONE, &SayReady, nullptr, nullptr, nullptr);
    const std::unique_ptr<GMainLoop, TUnref> loop(g_main_loop_new(nullptr, FALSE));
    g_main_loop_run(loop.get());
}

}  // namespace

const TEcho GDBUS_ECHO = {"gdbus", &Serve,
                          [](const std::string& id) -> std::unique_ptr<IEchoClient> {
                              return std::make_unique<TClient>(id);
                          }};
