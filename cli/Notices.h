#ifndef NOTICES_H
#define NOTICES_H

#include <atomic>
#include <initializer_list>
#include <optional>
#include <string>
#include <utility>

#include "Stop.h"
#include "TOstelIpc.h"

// Prints what happens, a line each, up to a number of them. Notices arrive on the library's worker
// thread, one at a time.
class TNotices : public IOstelIpcEventListener {
public:
    TNotices(std::optional<unsigned long> count, bool json);
    TNotices(const TNotices&) = delete;
    TNotices& operator=(const TNotices&) = delete;
    ~TNotices() override;

    using TMembers = std::initializer_list<std::pair<const char*, std::string>>;
    void Notice(const std::string& kind, TMembers members);

    // Says that from here on nothing is missed, and waits for the last notice or a stop signal,
    // with 0, or until nothing can come any more: without a bus, or when nobody takes what is
    // printed. The exit status.
    int Wait();

    void OnEvent(const std::string& name, const std::string& data) override;

private:
    std::optional<unsigned long> m_Left;
    bool m_Json;
    std::atomic<bool> m_IsOver{false};
    std::atomic<bool> m_BusMayBeGone{false};
    TStop m_Stop;
};

#endif
