#ifndef NOTICES_H
#define NOTICES_H

#include <initializer_list>
#include <optional>
#include <string>
#include <utility>

// Blocks SIGINT and SIGTERM. To be called before the first thread starts, so that only
// WaitForStopSignal takes them.
void BlockStopSignals();
void WaitForStopSignal();

// Prints what happens, a line each, up to a number of them. Notices arrive on the library's worker
// thread, one at a time; the last one ends the main thread's WaitForStopSignal.
class TNotices {
public:
    TNotices(std::optional<unsigned long> count, bool json) : m_Left(count), m_Json(json) {}

    using TMembers = std::initializer_list<std::pair<const char*, std::string>>;
    void Notice(const std::string& kind, TMembers members);

private:
    std::optional<unsigned long> m_Left;
    bool m_Json;
};

#endif
