// The development gateway: serves a data model on any PC, as the dispatcher of a device does.
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sysexits.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "BusWatch.h"
#include "DataModel.h"
#include "Dispatcher.h"
#include "ModelLoader.h"
#include "Presence.h"
#include "RemoteUnit.h"
#include "StandardPlaces.h"
#include "Store.h"
#include "TOstelApplication.h"
#include "zt_logging.h"

namespace {

std::string DefaultStateFile() {
    const char* const state = std::getenv("XDG_STATE_HOME");
    if (state != nullptr && *state == '/') {
        return std::string(state) + "/ostel-gateway/state.sqlite";
    }
    const char* const home = std::getenv("HOME");
    return std::string(home != nullptr ? home : ".") + "/.local/state/ostel-gateway/state.sqlite";
}

// Models are installed, and built, in the same place as seen from the program.
std::string DefaultModelFile() {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    return (program.parent_path().parent_path() / "share/ostel/models/home-gateway.json").string();
}

// Blocked before any thread starts, so that all of them inherit it and only Wait takes them.
class TStopSignals {
public:
    TStopSignals() {
        sigset_t signals{};
        sigemptyset(&signals);
        sigaddset(&signals, SIGINT);
        sigaddset(&signals, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        m_Descriptor = signalfd(-1, &signals, SFD_CLOEXEC);
        if (m_Descriptor < 0) {
            throw std::system_error(errno, std::generic_category(), "signalfd");
        }
    }
    TStopSignals(const TStopSignals&) = delete;
    TStopSignals& operator=(const TStopSignals&) = delete;
    ~TStopSignals() { close(m_Descriptor); }

    // Throws std::runtime_error when the bus goes away: whoever runs the gateway has to start it
    // again, on the next bus.
    void Wait(const TBusWatch& bus) const {
        std::array<pollfd, 2> descriptors = {
            {{m_Descriptor, POLLIN, 0}, {bus.Descriptor(), POLLIN, 0}}};
        while (true) {
            poll(descriptors.data(), descriptors.size(), -1);
            if (descriptors[0].revents != 0) {
                return;
            }
            if (!bus.IsConnected()) {
                throw std::runtime_error("the bus is gone");
            }
        }
    }

private:
    int m_Descriptor;
};

// The id would pass to this process without a word, each would answer out of its own state, and
// applications would be announced twice.
void RefuseASecondGateway(const TBusWatch& bus) {
    // One that has just been killed may still be on the bus's books.
    constexpr std::chrono::milliseconds WHILE_THE_BUS_NOTICES{1000};
    if (!bus.WaitUntilGone("OSTEL_DISPATCHER", WHILE_THE_BUS_NOTICES)) {
        throw std::runtime_error("another OSTEL_DISPATCHER is on this bus already");
    }
}

void Restore(TDataModel& model, const TStore& store) {
    const auto keep = [](bool restored, const std::string& name) {
        if (!restored) {
            ztLogging_log(ZT_LOG_LEVEL_WARNING,
                          "The model has no place for the stored value of %s; it is kept",
                          name.c_str());
        }
    };
    const TStore::TState state = store.Load();
    for (const auto& [path, present] : state.instances) {
        keep(model.RestoreInstance(path, present), path);
    }
    for (const auto& [name, value] : state.values) {
        keep(model.RestoreValue(name, value), name);
    }
}

struct TOptions {
    std::vector<std::string> models;
    std::string state = DefaultStateFile();
    std::size_t fill = 0;
    TRemoteUnit::TSettings remote;
};

TDataModel MakeModel(const TOptions& options) {
    TSchema schema;
    for (const std::string& file : options.models) {
        LoadModel(file, schema);
    }
    return TDataModel(std::move(schema), options.fill);
}

// Ends the workers, and with them the handlers, before what these work on is gone.
class TStopper {
public:
    explicit TStopper(TOstelIpc& ipc) : m_Ipc(ipc) {}
    TStopper(const TStopper&) = delete;
    TStopper& operator=(const TStopper&) = delete;
    ~TStopper() { m_Ipc.Stop(); }

private:
    TOstelIpc& m_Ipc;
};

// A bus may forbid watching; everything else is served nevertheless.
std::unique_ptr<TPresence> WatchPresence(const TPresence::TRelay& relay) {
    try {
        return std::make_unique<TPresence>(relay);
    } catch (const std::runtime_error& error) {
        std::cerr << "ostel-gateway: applications that come and go are not announced: "
                  << error.what() << std::endl;
        return nullptr;
    }
}

std::string ValueOf(const TDataModel& model, const std::string& name) {
    TDataModel::TValues values;
    return model.Get(name, values) == RC_SUCCESS && !values.empty() ? values[0].second : "";
}

void Serve(const TOptions& options) {
    const TStopSignals stopSignals;
    TDataModel model = MakeModel(options);
    TStore store(options.state);
    Restore(model, store);

    const TBusWatch bus;
    RefuseASecondGateway(bus);

    // Looked at before requests can change it.
    const std::size_t size = model.Size();
    const std::string serialNumber = ValueOf(model, "Device.DeviceInfo.SerialNumber");

    TOstelApplication& application = *TOstelApplication::GetInstance();
    TOstelIpc& ipc = *getOstelIpcInstance();
    const auto send = [&](const std::string& name, const std::string& data) {
        application.SendEvent(name, data);
    };
    TDispatcher dispatcher(model, store, send);
    const TStopper stopper(ipc);
    dispatcher.Register(ipc);
    application.Initialize(OSTEL_DISPATCHER);
    if (!application.IsInitialized()) {
        throw std::runtime_error("the bus does not admit the gateway");
    }
    const std::unique_ptr<TPresence> presence = WatchPresence(send);
    std::unique_ptr<TRemoteUnit> remote;
    if (!options.remote.address.empty()) {
        remote = std::make_unique<TRemoteUnit>(options.remote, serialNumber, dispatcher, ipc);
    }
    std::cout << "ostel-gateway: ready, " << size << " parameters" << std::endl;
    stopSignals.Wait(bus);
}

int Run(int argc, char** argv) {
    CLI::App app("Serves a data model to the applications on this machine's bus.");
    app.name("ostel-gateway");
    TOptions options;
    app.add_option("--model", options.models,
                   "Data model to serve, a JSON file or one of the Broadband Forum's XML files in "
                   "the full form; several are laid over each other [" +
                       DefaultModelFile() + "]")
        ->option_text("FILE");
    app.add_option("--state", options.state, "File that keeps what was committed")
        ->capture_default_str()
        ->option_text("FILE [" + options.state + "]");
    app.add_option("--fill", options.fill, "Fill every table up to so many instances, to test load")
        ->check(CLI::Range(0, 1000))
        ->option_text("N");
    CLI::Option* const remote = app.add_option("--remote-address", options.remote.address,
                                               "Serve other units at this address, on port 42042")
                                    ->check(CLI::ValidIPV4)
                                    ->option_text("IPV4");
    CLI::Option* const certificates =
        app.add_option("--certs", options.remote.certificates,
                       "Directory of ostel.cert.pem, ostel.key.pem and ostelRoot.cert.pem")
            ->option_text("DIR");
    remote->needs(certificates);
    app.add_option("--files", options.remote.files,
                   "Directory of the files that other units may fetch")
        ->needs(remote)
        ->option_text("DIR");
    app.set_version_flag("--version", TOstelApplication::GetInstance()->GetVersion());
    app.footer(
        "Exit status: 0 after SIGINT or SIGTERM, 64 for a wrong command line, 1 for whatever else\n"
        "keeps it from serving, which it says, the end of its bus included.\n\n"
        "Example: ostel-gateway --model tr-181-2-15-0-usp-full.xml --model my-product.json "
        "--state /tmp/state.sqlite");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_SUCCESS : EX_USAGE;
    }
    if (options.models.empty()) {
        options.models.push_back(DefaultModelFile());
    }
    Serve(options);
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
    HoldStandardPlaces(argv);
    // A peer that is gone is told by a failed write.
    signal(SIGPIPE, SIG_IGN);
    try {
        return Run(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "ostel-gateway: " << error.what() << std::endl;
        return EXIT_FAILURE;
    }
}
