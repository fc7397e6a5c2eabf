// The monitor watches a timer that never expires but whose reading fails when the system's clock is
// set, and a FIFO by which the destructor wakes it.
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

#include "OstelClockWorker.h"
#include "OstelFileUtils.h"
#include "OstelGenericUtils.h"
#include "TOstelClock.h"
#include "zt_logging.h"

using OstelClockWorker::LogError;
using OstelClockWorker::RunGuarded;

namespace {

std::string NewFifoPath() {
    std::string path;
    do {
        path = "/tmp/ostel_clock_" + OstelGenericUtils::GetRandomAlphaNumString(8);
    } while (OstelFileUtils::Exists(path));
    return path;
}

}  // namespace

void TOstelClock::SystemTimeMonitor() {
    MonitorSystemTime(std::promise<void>());
}

// `isReady` is kept, or dropped when the monitor has ended before.
void TOstelClock::MonitorSystemTime(std::promise<void> isReady) {
    RunGuarded([this, &isReady] {
        const std::string fifo = NewFifoPath();
        mkfifo(fifo.c_str(), 0700);
        m_FifoFd = open(fifo.c_str(), O_RDWR);
        m_TimerFd = timerfd_create(CLOCK_REALTIME, 0);
        // 0, not -1, and without closing anything: -1 fails below, where it is logged and cleaned
        // up.
        if (m_FifoFd == 0 || m_TimerFd == 0) {
            LogError(std::strerror(errno));
            return;
        }
        if (ArmMonitor()) {
            isReady.set_value();
            while (m_Running && WaitForTimer()) {
                ReadTimer();
            }
        }
        CloseMonitor();
        OstelFileUtils::Remove(fifo);
    });
}

// It expires at the end of 32-bit time, but each setting of the clock cancels it.
bool TOstelClock::ArmMonitor() const {
    itimerspec expiry{};
    expiry.it_value.tv_sec = 0x7FFFFFFF;
    if (timerfd_settime(m_TimerFd, TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &expiry, nullptr) !=
        0) {
        LogError(std::strerror(errno));
        return false;
    }
    return true;
}

// False when the FIFO was written, and also when waiting fails, be it for a signal.
bool TOstelClock::WaitForTimer() const {
    std::array<pollfd, 2> descriptors{{{m_TimerFd, POLLIN, 0}, {m_FifoFd, POLLIN, 0}}};
    poll(descriptors.data(), descriptors.size(), -1);
    if ((descriptors[0].revents & POLLIN) != 0) {
        return true;
    }
    ztLogging_log(ZT_LOG_LEVEL_INFO, "[TOstelClock] The system time monitor is stopped.");
    return false;
}

// The timer stays as it is after a cancel: the next setting of the clock cancels it again.
void TOstelClock::ReadTimer() {
    std::uint64_t expirations = 0;
    if (read(m_TimerFd, &expirations, sizeof expirations) >= 0) {
        return;
    }
    if (errno != ECANCELED) {
        LogError(std::strerror(errno));
        return;
    }
    ztLogging_log(ZT_LOG_LEVEL_NOTICE, "[TOstelClock] The system clock has been changed!");
    RunGuarded([this] { StartAlarmAgain(); });
    RunGuarded([this] { NotifySystemTimeObservers(); });
}

// Under the lock, so that what the destructor writes to is still the FIFO.
void TOstelClock::CloseMonitor() {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    close(m_TimerFd);
    close(m_FifoFd);
    m_TimerFd = -1;
    m_FifoFd = -1;
}

// False when there is nobody to wake. Under one lock with the FIFO's end: a monitor that saw before
// it is woken that it is to stop, as one that comes back from a change, would be gone by then.
bool TOstelClock::WakeMonitor() {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Running = false;
    if (!m_MonitorThread.joinable() || m_TimerFd < 0 || m_FifoFd < 0) {
        return false;
    }
    constexpr std::int32_t wake = 1;
    return write(m_FifoFd, &wake, sizeof wake) != 0;
}
