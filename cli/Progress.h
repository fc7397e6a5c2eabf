#ifndef PROGRESS_H
#define PROGRESS_H

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>

// A bar on standard error for what takes longer than half a second, while it lives. It is drawn on
// a terminal only, and wiped away at the end.
class TProgress {
public:
    // Without a total the bar only shows that something goes on.
    explicit TProgress(std::string what, std::size_t total = 0);
    TProgress(const TProgress&) = delete;
    TProgress& operator=(const TProgress&) = delete;
    ~TProgress();

    void Advance() { ++m_Done; }

    // The text of the bar after so many drawings.
    static std::string Bar(const std::string& what, std::size_t done, std::size_t total,
                           std::size_t drawn);

private:
    void Draw();

    const std::string m_What;
    const std::size_t m_Total;
    std::atomic<std::size_t> m_Done{0};
    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    bool m_IsOver = false;
    std::thread m_Thread;
};

#endif
