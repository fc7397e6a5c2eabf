// The development gateway: serves a data model on any PC, as the dispatcher of a device does.
#include <signal.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>

#include "DataModel.h"
#include "Dispatcher.h"
#include "ModelLoader.h"
#include "Presence.h"
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

// The model installed beside the program, or the one in the source tree it was built from.
std::string DefaultModelFile() {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    const auto installed =
        program.parent_path().parent_path() / "share/ostel/models/home-gateway.json";
    return std::filesystem::exists(installed, error) ? installed.string() : OSTEL_SOURCE_MODEL;
}

// Blocked before any thread starts, so that all of them inherit it and only Wait takes them.
class TStopSignals {
public:
    TStopSignals() {
        sigemptyset(&m_Signals);
        sigaddset(&m_Signals, SIGINT);
        sigaddset(&m_Signals, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &m_Signals, nullptr);
    }

    void Wait() const {
        int signal = 0;
        sigwait(&m_Signals, &signal);
    }

private:
    sigset_t m_Signals{};
};

void Restore(TDataModel& model, const TStore& store) {
    for (const auto& [name, value] : store.Load()) {
        if (!model.Restore(name, value)) {
            ztLogging_log(ZT_LOG_LEVEL_WARNING,
                          "The model has no place for the stored value of %s; it is kept",
                          name.c_str());
        }
    }
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

void Serve(const std::string& modelFile, const std::string& stateFile) {
    const TStopSignals stopSignals;
    TDataModel model;
    LoadModel(modelFile, model);
    TStore store(stateFile);
    Restore(model, store);

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
        throw std::runtime_error(
            "cannot connect to the bus (DBUS_SYSTEM_BUS_ADDRESS names another than the system's)");
    }
    const std::unique_ptr<TPresence> presence = WatchPresence(send);
    std::cout << "ostel-gateway: ready, " << model.Size() << " parameters" << std::endl;
    stopSignals.Wait();
}

int Run(int argc, char** argv) {
    CLI::App app("Serves a data model to the applications on this machine's bus.");
    app.name("ostel-gateway");
    std::string modelFile = DefaultModelFile();
    std::string stateFile = DefaultStateFile();
    app.add_option("--model", modelFile, "Data model to serve, a JSON file")->capture_default_str();
    app.add_option("--state", stateFile, "File that keeps what was committed")
        ->capture_default_str();
    app.set_version_flag("--version", TOstelApplication::GetInstance()->GetVersion());
    app.footer("Example: ostel-gateway --model my-product.json --state /tmp/state.sqlite");
    CLI11_PARSE(app, argc, argv);
    Serve(modelFile, stateFile);
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Run(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "ostel-gateway: " << error.what() << std::endl;
        return EXIT_FAILURE;
    }
}
