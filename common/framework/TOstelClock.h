#ifndef T_OSTEL_CLOCK_H
#define T_OSTEL_CLOCK_H

#include <atomic>
#include <future>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "IOstelClockObserver.h"
#include "IOstelSystemTimeObserver.h"
#include "OstelApi.h"
#include "TOstelClockTime.h"
#include "TOstelConditionVariable.h"

// One timer, one alarm, and word of the system's clock being set. Timer and alarm fire once.
//
//     class TNight final : public IOstelClockObserver {
//     public:
//         void OnAlarm() override { StartBackup(); }
//         void OnTimer() override { ReportProgress(); }
//     };
//
//     TNight night;
//     TOstelClock clock;
//     clock.AddClockObserver(&night);
//     clock.SetAlarm("03:30:00");  // the next time it is half past three
//     clock.SetTimer(60);          // in a minute
//
// Observers are not owned; the application keeps them alive while they are registered, and they are
// told in the order of their addresses. Notifications take no lock: add and remove observers while
// none can come.
//
// Operations may be called from any thread, but not from inside a notification (see the observers).
// A reset, and the destructor resets both, waits until its worker is through, a running
// notification included. One that comes before the worker has begun to wait is not noticed by it:
// the reset then takes as long as the period.
//
// The constructor, SetTimer and SetAlarm throw std::system_error when a thread cannot be started.
// All other failures are log lines, those of observers that throw included. A clock whose monitor
// has ended by itself, by a failure or because a signal was handled on its thread, ends the process
// when it is destroyed. The order of the members is part of the binary interface.
class OSTEL_API TOstelClock {
public:
    // What a derived clock does about its timer instead of telling the observers.
    class OSTEL_API ITimerCallback {
    public:
        virtual ~ITimerCallback() = default;
        virtual void OnTimer() = 0;
    };

    TOstelClock();
    TOstelClock(const TOstelClock&) = delete;
    TOstelClock& operator=(const TOstelClock&) = delete;
    virtual ~TOstelClock();

    void AddClockObserver(IOstelClockObserver* observer);
    void RemoveClockObserver(IOstelClockObserver* observer);
    void AddSystemTimeObserver(IOstelSystemTimeObserver* observer);
    void RemoveSystemTimeObserver(IOstelSystemTimeObserver* observer);

    // In that many seconds. Replaces the timer that was set before.
    void SetTimer(unsigned int period);
    void ResetTimer();

    // The next time it is `time`, such as "08:30:00", or, with days behind a plus sign, that many
    // days later; at once when it is just that time. A text without days keeps those of the alarm
    // before. Replaces the alarm that was set before.
    //
    // When the system's clock is set, the alarm is set anew; one that has fired already, too, so
    // that it fires again unless it was reset.
    void SetAlarm(const std::string& time);
    void ResetAlarm();

    void NotifyTimerObservers();
    void NotifyAlarmObservers();
    void NotifySystemTimeObservers();

    // The bodies of the workers.
    void TimerThreadHandler(unsigned int period);
    void AlarmThreadHandler();
    void SystemTimeMonitor();

protected:
    // From now on `callback` is called instead of the observers, or nobody when it is null. Each
    // reset, and so each SetTimer, takes it away again. `needed` is kept until the clock is
    // destroyed or another one comes with the next callback, and as long as the callback runs.
    void InstallTimerCallback(std::unique_ptr<ITimerCallback> callback,
                              std::shared_ptr<void> needed);

private:
    struct TTimerCallback {
        std::unique_ptr<ITimerCallback> callback;
    };

    void StopTimer();
    void StopAlarm();
    void StartAlarm(const std::string& time);
    void StartAlarmAgain();
    void FireTimer();

    void MonitorSystemTime(std::promise<void> isReady);
    bool ArmMonitor() const;
    bool WaitForTimer() const;
    void ReadTimer();
    void CloseMonitor();
    bool WakeMonitor();

    std::atomic<bool> m_Running;
    std::atomic<int> m_TimerFd;
    std::atomic<int> m_FifoFd;
    TOstelClockTime m_AlarmTime;
    TOstelConditionVariable m_AlarmCondition;
    TOstelConditionVariable m_TimerCondition;
    std::thread m_AlarmThread;
    std::thread m_TimerThread;
    std::thread m_MonitorThread;
    std::set<IOstelClockObserver*> m_ClockObservers;
    std::set<IOstelSystemTimeObserver*> m_SystemTimeObservers;
    std::mutex m_Mutex;
    std::shared_ptr<TTimerCallback> m_TimerCallback;
    std::shared_ptr<void> m_NeededByTimerCallback;
};

#endif
