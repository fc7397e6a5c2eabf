// Two workers wait once each, on a condition that a reset notifies. The third, the monitor of the
// system's clock, stands in a file of its own.
#include "TOstelClock.h"

#include <algorithm>
#include <memory>
#include <tuple>
#include <utility>

#include "OstelClockWorker.h"
#include "OstelObservers.h"
#include "zt_logging.h"

using OstelClockWorker::LogError;
using OstelClockWorker::RunGuarded;

namespace {

// All lines of the clock bear its name, this one too.
template <typename TObserver>
void AddObserver(std::set<TObserver*>& observers, TObserver* observer, std::mutex& mutex) {
    if (observer == nullptr) {
        LogError("A null observer is not added");
        return;
    }
    OstelObservers::Add(observers, observer, mutex);
}

bool IsLaterInTheDay(const TOstelClockTime& a, const TOstelClockTime& b) {
    return std::tie(a.m_Hours, a.m_Minutes, a.m_Seconds) >
           std::tie(b.m_Hours, b.m_Minutes, b.m_Seconds);
}

// Hours of the clock face: where summer time begins or ends in between, the alarm is off by it.
TOstelClockTime TimeUntil(const TOstelClockTime& alarm) {
    TOstelClockTime now;
    now.Now();
    TOstelClockTime difference;
    difference.m_Hours = alarm.m_Hours - now.m_Hours;
    difference.m_Minutes = alarm.m_Minutes - now.m_Minutes;
    difference.m_Seconds = alarm.m_Seconds - now.m_Seconds;
    // Twice, as alarms always were: it matters where the first of January 1970 is in summer time.
    difference.Normalize();
    difference.Normalize();
    int days = std::max(alarm.m_Days, 0);
    if (IsLaterInTheDay(now, alarm)) {
        // Normalising has moved on to the next day already.
        days = std::max(days - 1, 0);
    }
    difference.m_Days = days;
    return difference;
}

}  // namespace

// Waits until the monitor is on the watch: before, the destructor could not wake it, and the
// system's clock could be set without its notice.
TOstelClock::TOstelClock() : m_Running(true), m_TimerFd(-1), m_FifoFd(-1) {
    std::promise<void> isReady;
    const std::future<void> ready = isReady.get_future();
    m_MonitorThread = std::thread(&TOstelClock::MonitorSystemTime, this, std::move(isReady));
    ready.wait();
}

// The order is kept, and so is that a monitor that could not be woken is not joined, which ends the
// process.
TOstelClock::~TOstelClock() {
    if (WakeMonitor()) {
        m_MonitorThread.join();
    }
    ResetAlarm();
    ResetTimer();
    m_TimerCallback.reset();
    m_NeededByTimerCallback.reset();
    m_ClockObservers.clear();
    m_SystemTimeObservers.clear();
}

void TOstelClock::AddClockObserver(IOstelClockObserver* observer) {
    AddObserver(m_ClockObservers, observer, m_Mutex);
}

void TOstelClock::RemoveClockObserver(IOstelClockObserver* observer) {
    OstelObservers::Remove(m_ClockObservers, observer, m_Mutex);
}

void TOstelClock::AddSystemTimeObserver(IOstelSystemTimeObserver* observer) {
    AddObserver(m_SystemTimeObservers, observer, m_Mutex);
}

void TOstelClock::RemoveSystemTimeObserver(IOstelSystemTimeObserver* observer) {
    OstelObservers::Remove(m_SystemTimeObservers, observer, m_Mutex);
}

// Stopping and starting share one lock, as for the alarm: of two threads that set at once, neither
// finds the other's worker where its own is to be. A former callback ends when the lock is free,
// for its end may use the clock.
void TOstelClock::SetTimer(unsigned int period) {
    std::shared_ptr<TTimerCallback> former;
    const std::lock_guard<std::mutex> lock(m_Mutex);
    former = std::atomic_load(&m_TimerCallback);
    StopTimer();
    m_TimerThread = std::thread(&TOstelClock::TimerThreadHandler, this, period);
}

void TOstelClock::ResetTimer() {
    std::shared_ptr<TTimerCallback> former;
    const std::lock_guard<std::mutex> lock(m_Mutex);
    former = std::atomic_load(&m_TimerCallback);
    StopTimer();
}

void TOstelClock::SetAlarm(const std::string& time) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    StopAlarm();
    StartAlarm(time);
}

void TOstelClock::ResetAlarm() {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    StopAlarm();
}

void TOstelClock::StopTimer() {
    if (m_TimerThread.joinable()) {
        m_TimerCondition.Notify();
        m_TimerThread.join();
    }
    std::atomic_store(&m_TimerCallback, std::shared_ptr<TTimerCallback>());
}

void TOstelClock::StopAlarm() {
    if (m_AlarmThread.joinable()) {
        m_AlarmCondition.Notify();
        m_AlarmThread.join();
    }
}

void TOstelClock::StartAlarm(const std::string& time) {
    m_AlarmTime.SetTime(time);
    m_AlarmThread = std::thread(&TOstelClock::AlarmThreadHandler, this);
}

// An alarm that has fired is started again, too, as long as nobody has reset it.
void TOstelClock::StartAlarmAgain() {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_AlarmThread.joinable()) {
        StopAlarm();
        StartAlarm(m_AlarmTime.GetTime());
    }
}

// The notifications do not lock: a reset holds the lock while it waits for the notifying worker.
void TOstelClock::NotifyTimerObservers() {
    for (IOstelClockObserver* const observer : m_ClockObservers) {
        observer->OnTimer();
    }
}

void TOstelClock::NotifyAlarmObservers() {
    for (IOstelClockObserver* const observer : m_ClockObservers) {
        observer->OnAlarm();
    }
}

void TOstelClock::NotifySystemTimeObservers() {
    for (IOstelSystemTimeObserver* const observer : m_SystemTimeObservers) {
        observer->OnSystemTimeChanged();
    }
}

void TOstelClock::InstallTimerCallback(std::unique_ptr<ITimerCallback> callback,
                                       std::shared_ptr<void> needed) {
    // What a callback needs stays beside it, too: it may still run when the next one comes.
    struct TInstalled {
        std::shared_ptr<void> needed;
        TTimerCallback holder;
    };
    const auto installed = std::make_shared<TInstalled>();
    installed->needed = needed;
    installed->holder.callback = std::move(callback);
    // What was there ends when the lock is free, too.
    std::shared_ptr<TTimerCallback> former(installed, &installed->holder);
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_NeededByTimerCallback.swap(needed);
    // Atomically, for the timer's worker looks without the lock.
    former = std::atomic_exchange(&m_TimerCallback, std::move(former));
}

void TOstelClock::TimerThreadHandler(unsigned int period) {
    if (m_TimerCondition.WaitFor(period)) {
        RunGuarded([this] { FireTimer(); });
    }
}

void TOstelClock::FireTimer() {
    const std::shared_ptr<TTimerCallback> installed = std::atomic_load(&m_TimerCallback);
    if (!installed) {
        NotifyTimerObservers();
    } else if (installed->callback) {
        installed->callback->OnTimer();
    }
}

void TOstelClock::AlarmThreadHandler() {
    RunGuarded([this] {
        TOstelClockTime timeout = TimeUntil(m_AlarmTime);
        ztLogging_log(ZT_LOG_LEVEL_INFO, "[TOstelClock] Alarm time is '%s'.",
                      m_AlarmTime.GetTime().c_str());
        ztLogging_log(ZT_LOG_LEVEL_INFO, "[TOstelClock] Alarm timeout is '%s'.",
                      timeout.GetAbsTime().c_str());
        if (m_AlarmCondition.WaitFor(static_cast<unsigned int>(timeout.ToSeconds()))) {
            NotifyAlarmObservers();
        }
    });
}
