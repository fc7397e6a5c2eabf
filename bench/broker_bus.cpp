// A bus of dbus-broker on a machine that systemd has not started: broker_bus PATH
//
// dbus-broker takes its sockets and its policy from a controller, which the system's is only under
// systemd. This one gives it one listening socket and a policy that forbids nothing.
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <system_error>

#include "SdBus.h"

using SdBus::Checked;

namespace {

int CheckedCall(int result, const char* what) {
    return Checked(result < 0 ? -errno : result, what);
}

int ListenAt(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        throw std::system_error(ENAMETOOLONG, std::generic_category(), path);
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    const int listener =
        CheckedCall(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), "socket");
    CheckedCall(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address),
                path.c_str());
    CheckedCall(listen(listener, SOMAXCONN), "listen");
    return listener;
}

// The end at which the broker is controlled.
int StartBroker() {
    std::array<int, 2> ends{};
    CheckedCall(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), "socketpair");
    if (CheckedCall(fork(), "fork") == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const std::string end = std::to_string(ends[1]);
        fcntl(ends[1], F_SETFD, 0);
        execlp("dbus-broker", "dbus-broker", "--controller", end.c_str(), "--machine-id",
               "0123456789abcdef0123456789abcdef", "--max-bytes", "1073741824", "--max-fds", "4096",
               "--max-matches", "1000000", "--max-objects", "1000000", nullptr);
        std::perror("dbus-broker");
        _exit(127);
    }
    close(ends[1]);
    return ends[0];
}

SdBus::TBus ControlAt(int end) {
    sd_bus* made = nullptr;
    Checked(sd_bus_new(&made), "a connection to the broker");
    SdBus::TBus control(made);
    Checked(sd_bus_set_fd(made, end, end), "the broker's socket");
    Checked(sd_bus_start(made), "the broker's connection");
    return control;
}

// What a user may: connect, own names, send and receive; each rule allows and matches everything.
constexpr auto RULES = "bta(btbs)a(btssssuutt)a(btssssuutt)";
constexpr std::uint64_t PRIORITY = 1;
constexpr std::uint32_t EVERY_USER = UINT32_MAX;

void AppendPolicy(sd_bus_message* message) {
    const std::string rules = std::string("(") + RULES + ")";
    const std::string users = "(u" + rules + ")";
    const std::string groups = "(buu" + rules + ")";
    const std::string policy = "a" + users + "a" + groups + "a(ss)bs";
    Checked(sd_bus_message_open_container(message, 'v', ("(" + policy + ")").c_str()), "a variant");
    Checked(sd_bus_message_open_container(message, 'r', policy.c_str()), "a policy");
    const std::uint64_t any = 0;
    Checked(sd_bus_message_append(message, ("a" + users).c_str(), 1, EVERY_USER, 1, PRIORITY,  //
                                  1, 1, PRIORITY, 1, "",                                       //
                                  1, 1, PRIORITY, "", "", "", "", 0, 0, any, UINT64_MAX,       //
                                  1, 1, PRIORITY, "", "", "", "", 0, 0, any, UINT64_MAX),
            "the rules");
    Checked(sd_bus_message_append(message, ("a" + groups + "a(ss)bs").c_str(), 0, 0, 0, "system"),
            "the rest of the policy");
    Checked(sd_bus_message_close_container(message), "a policy's end");
    Checked(sd_bus_message_close_container(message), "a variant's end");
}

void AddListener(sd_bus* control, int listener) {
    sd_bus_message* made = nullptr;
    Checked(sd_bus_message_new_method_call(control, &made, nullptr, "/org/bus1/DBus/Broker",
                                           "org.bus1.DBus.Broker", "AddListener"),
            "a call");
    const SdBus::TMessage call(made);
    Checked(sd_bus_message_append(made, "oh", "/org/bus1/DBus/Listener/0", listener), "a listener");
    AppendPolicy(made);
    Checked(sd_bus_call(control, made, 0, nullptr, nullptr), "AddListener");
}

void Serve(const std::string& path) {
    const SdBus::TBus control = ControlAt(StartBroker());
    AddListener(control.get(), ListenAt(path));
    std::puts("ready");
    std::fflush(stdout);
    SdBus::Serve(control.get());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: broker_bus PATH\n", stderr);
        return 64;
    }
    try {
        Serve(argv[1]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "broker_bus: %s\n", error.what());
        return 1;
    }
}
