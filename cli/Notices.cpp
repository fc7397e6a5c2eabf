#include "Notices.h"

#include <cstdio>

#include "Output.h"
#include "TOstelApplication.h"

namespace {

// What the bus library says to the programs on a bus that went away.
const std::string BUS_GONE = "Disconnected";

}  // namespace

TNotices::TNotices(std::optional<unsigned long> count, bool json) : m_Left(count), m_Json(json) {
    getOstelIpcInstance()->AddEventLstener(this, BUS_GONE);
}

TNotices::~TNotices() {
    getOstelIpcInstance()->RemoveEventLstener(this, BUS_GONE);
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
    const bool isLast = m_Left && --*m_Left == 0;
    if (isLast || Output::HasFailed()) {
        m_IsOver = true;
        m_Stop.Wake();
    }
}

int TNotices::Wait() {
    m_Stop.Catch();
    // On standard error, where it is in nobody's way.
    std::fputs("ostelcli: watching\n", stderr);
    for (;;) {
        m_Stop.Wait();
        if (m_IsOver || m_Stop.Signal() != 0) {
            return 0;
        }
        if (!m_BusMayBeGone.exchange(false)) {
            continue;
        }
        // Any application can send an event of that name. Whoever is on a bus reaches itself.
        bool active = false;
        TOstelApplication::GetInstance()->IsAppActive("OSTEL_CLI", active);
        if (!active) {
            Output::Complain("the bus has gone");
            return Output::NO_BUS;
        }
    }
}

void TNotices::OnEvent(const std::string&, const std::string&) {
    m_BusMayBeGone = true;
    m_Stop.Wake();
}
