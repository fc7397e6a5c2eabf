// Logs from places that only a whole process has: from the destructors of static objects, and from
// a thread that nobody waits for.
#include <atomic>
#include <thread>

#include "zt_logging.h"

namespace {

std::atomic<int> linesOfTheOtherThread{0};

class TLateLogger {
public:
    TLateLogger() = default;
    TLateLogger(const TLateLogger&) = delete;
    TLateLogger& operator=(const TLateLogger&) = delete;
    ~TLateLogger() {
        std::thread([] { ztLogging_log(ZT_LOG_LEVEL_ERROR, "from the very end"); }).join();
        const int seen = linesOfTheOtherThread;
        while (linesOfTheOtherThread < seen + 100) {
            std::this_thread::yield();
        }
    }
};

// Built before the logging library's first use, and so destroyed after everything that this built.
const TLateLogger lateLogger;

}  // namespace

int main() {
    ztLogging_logInit("a logger name that is too long for a text's own small buffer");
    std::thread([] {
        for (;;) {
            ztLogging_log(ZT_LOG_LEVEL_ERROR, "from the other thread");
            ++linesOfTheOtherThread;
        }
    }).detach();
    while (linesOfTheOtherThread == 0) {
        std::this_thread::yield();
    }
}
