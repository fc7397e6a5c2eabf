#ifndef PROGRESS_H
#define PROGRESS_H

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>

// A bar on standard error for what takes longer than half a second, while it lives. It is drawn on
// a terminal only, and wiped away at the end, unless it was asked for.
class TProgress {
public:
    // From now on each bar is drawn at once, and what it shows in the end stays to be seen, on what
    // is no terminal as well.
    static void AskFor();

    // Without a total the bar only shows that something goes on.
    explicit TProgress(const std::string& what, std::size_t total = 0);
    TProgress(const TProgress&) = delete;
    TProgress& operator=(const TProgress&) = delete;
    ~TProgress();

    void Advance() { ++m_Done; }
    // What was to be done is done.
    void Finish() { m_IsDone = true; }

    // The text of the bar after so many drawings.
    static std::string Bar(const std::string& what, std::size_t done, std::size_t total,
                           std::size_t drawn);

private:
    void Draw();
    void LeaveLast(std::size_t drawn) const;

    const std::string m_What;
    const std::size_t m_Total;
    std::atomic<std::size_t> m_Done{0};
    bool m_IsDone = false;
    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    bool m_IsOver = false;
    std::thread m_Thread;
};

#endif
