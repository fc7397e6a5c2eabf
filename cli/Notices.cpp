#include "Notices.h"

#include <signal.h>
#include <unistd.h>

#include "Output.h"

namespace {

sigset_t StopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}

}  // namespace

void BlockStopSignals() {
    const sigset_t signals = StopSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

void WaitForStopSignal() {
    const sigset_t signals = StopSignals();
    int signal = 0;
    sigwait(&signals, &signal);
}

void TNotices::Notice(const std::string& kind, TMembers members) {
    if (m_Left && *m_Left == 0) {
        return;
    }
    if (m_Json) {
        TOstelJsonObject document;
        document.SetPropertyValue("KIND", kind);
        for (const auto& [name, value] : members) {
            document.SetPropertyValue(name, value);
        }
        Output::Print(document);
    } else {
        std::string line = kind;
        for (const auto& member : members) {
            line += "  " + member.second;
        }
        Output::Print(line);
    }
    if (m_Left && --*m_Left == 0) {
        kill(getpid(), SIGTERM);
    }
}
