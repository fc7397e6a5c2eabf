#include "Progress.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <system_error>

#include "VisibleText.h"

namespace {

constexpr std::size_t WIDTH = 30;
constexpr std::chrono::milliseconds PATIENCE{500};
constexpr std::chrono::milliseconds INTERVAL{100};
constexpr const char* WIPE = "\r\x1b[K";

bool s_IsAskedFor = false;

}  // namespace

void TProgress::AskFor() {
    s_IsAskedFor = true;
}

TProgress::TProgress(const std::string& what, std::size_t total)
    : m_What(VisibleText(what)), m_Total(total) {
    if (isatty(STDERR_FILENO) == 0) {
        return;
    }
    try {
        m_Thread = std::thread([this] { Draw(); });
    } catch (const std::system_error&) {
        // What is shown matters less than what is done.
        return;
    }
}

TProgress::~TProgress() {
    if (m_Thread.joinable()) {
        {
            const std::lock_guard<std::mutex> lock(m_Mutex);
            m_IsOver = true;
        }
        m_Changed.notify_one();
        m_Thread.join();
    } else if (s_IsAskedFor) {
        LeaveLast(0);
    }
}

std::string TProgress::Bar(const std::string& what, std::size_t done, std::size_t total,
                           std::size_t drawn) {
    std::string bar(WIDTH, ' ');
    if (total == 0) {
        bar.replace(drawn % (WIDTH - 2), 3, "===");
        return what + " [" + bar + "]";
    }
    const std::size_t shown = std::min(done, total);
    bar.replace(0, shown * WIDTH / total, shown * WIDTH / total, '=');
    return what + " [" + bar + "] " + std::to_string(shown * 100 / total) + " %";
}

void TProgress::Draw() {
    std::unique_lock<std::mutex> lock(m_Mutex);
    const auto isOver = [this] { return m_IsOver; };
    if (!s_IsAskedFor && m_Changed.wait_for(lock, PATIENCE, isOver)) {
        return;
    }
    std::size_t drawn = 0;
    do {
        std::cerr << WIPE << Bar(m_What, m_Done, m_Total, drawn++) << std::flush;
    } while (!m_Changed.wait_for(lock, INTERVAL, isOver));
    std::cerr << WIPE << std::flush;
    if (s_IsAskedFor) {
        LeaveLast(drawn);
    }
}

void TProgress::LeaveLast(std::size_t drawn) const {
    const std::size_t total = m_IsDone ? 1 : m_Total;
    std::cerr << Bar(m_What, m_IsDone ? total : m_Done.load(), total, drawn) << std::endl;
}
