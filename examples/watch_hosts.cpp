// Prints the hosts on the LAN, and then every change to them until Ctrl-C.
#include <signal.h>

#include <cstdio>
#include <string>
#include <vector>

#include "TOstelApplication.h"

namespace {

const std::string HOSTS = "Device.Hosts.";

// Called on the library's worker thread, one call at a time. What takes long belongs elsewhere:
// while an observer works, no other event is handled.
class THostWatcher : public IOstelDataModelChangeObserver, public IOstelCpeClientStateObserver {
public:
    void OnDataModelParamChanged(const std::string& name, const std::string& value) override {
        if (name.compare(0, HOSTS.size(), HOSTS) == 0) {
            Print("changed", name, value);
        }
    }

    void OnCpeClientStateChanged(TOstelCpeClientState state, const std::string& macAddress,
                                 const std::string& hostName) override {
        Print(state == DISCONNECTED ? "left" : "came", macAddress, hostName);
    }

private:
    static void Print(const char* what, const std::string& subject, const std::string& detail) {
        std::printf("%s: %s %s\n", what, subject.c_str(), detail.c_str());
        std::fflush(stdout);
    }
};

}  // namespace

int main() {
    // Blocked before the library starts its thread, so that only the wait below takes them.
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);

    TOstelApplication& application = *TOstelApplication::GetInstance();
    application.Initialize(OSTEL_DATA_PROBER);
    if (!application.IsInitialized()) {
        std::fprintf(stderr, "no bus\n");
        return 1;
    }

    // First the observers, then the question: so no change falls between the two.
    THostWatcher watcher;
    application.AddDataModelChangeObserver(&watcher);
    application.AddCpeClientStateObserver(&watcher);

    std::vector<std::vector<std::pair<std::string, std::string>>> results;
    if (application.GetParamArray({HOSTS + "Host.*.HostName"}, results) != RC_SUCCESS) {
        std::fprintf(stderr, "the hosts cannot be read\n");
    } else {
        for (const auto& [name, value] : results[0]) {
            std::printf("%s = %s\n", name.c_str(), value.c_str());
        }
    }
    std::fflush(stdout);

    int signal = 0;
    sigwait(&stop, &signal);
    // Observers are not owned: they are removed before they go.
    application.RemoveCpeClientStateObserver(&watcher);
    application.RemoveDataModelChangeObserver(&watcher);
    return results.empty() ? 1 : 0;
}
