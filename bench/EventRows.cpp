// Events: how soon they arrive, and what is left of many at once.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

#include "Application.h"
#include "Comparison.h"
#include "RawBus.h"
#include "Rows.h"

namespace {

// Not the applications' interface, so that neither side sees the other's events.
const char* const RAW_INTERFACE = "com.Kaven.Ostel.Bench";
const char* const RAW_PATH = "/com/Kaven/Ostel/Bench";
const char* const EVENT = "EVENT_TYPE_PARAM_CHANGED";
const char* const DATA =
    R"({"DATA_MODEL_NAME":"Device.WiFi.Radio.1.Channel","DATA_MODEL_VALUE":"11"})";
constexpr int BURST = 100000;

// Counts what arrives, and lets the sender wait for it.
class TArrivals {
public:
    void Add() {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        if (++m_Count >= m_Expected) {
            m_Arrived.notify_one();
        }
    }

    void Expect(int count) {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Expected = m_Count + count;
    }

    // How many of them are missing after a while in which they should have come.
    int Wait() {
        std::unique_lock<std::mutex> lock(m_Mutex);
        m_Arrived.wait_for(lock, std::chrono::minutes(1), [&] { return m_Count >= m_Expected; });
        return m_Expected - m_Count;
    }

private:
    std::mutex m_Mutex;
    std::condition_variable m_Arrived;
    int m_Count = 0;
    int m_Expected = 0;
};

void RequireAll(int missing) {
    if (missing != 0) {
        throw std::runtime_error(std::to_string(missing) + " events did not arrive");
    }
}

class TObserver : public IOstelDataModelChangeObserver {
public:
    TObserver() { Application().AddDataModelChangeObserver(this); }
    TObserver(const TObserver&) = delete;
    TObserver& operator=(const TObserver&) = delete;
    ~TObserver() override { Application().RemoveDataModelChangeObserver(this); }

    void OnDataModelParamChanged(const std::string& name, const std::string& value) override {
        benchmark::DoNotOptimize(name.data());
        benchmark::DoNotOptimize(value.data());
        m_Arrivals.Add();
    }

    // How many are lost.
    int Send(int count) {
        m_Arrivals.Expect(count);
        for (int i = 0; i < count; ++i) {
            Application().SendEvent(EVENT, DATA);
        }
        return m_Arrivals.Wait();
    }

private:
    TArrivals m_Arrivals;
};

// As the library: a connection that sends, and one that is served by a thread.
class TRawEvents {
public:
    TRawEvents() : m_Sender(RawBus::Connect()), m_Receiver(RawBus::Connect()) {
        dbus_connection_add_filter(m_Receiver.get(), &TRawEvents::Filter, this, nullptr);
        const std::string rule = std::string("interface='") + RAW_INTERFACE + "'";
        dbus_bus_add_match(m_Receiver.get(), rule.c_str(), nullptr);
        m_Thread = std::thread([this] {
            while (m_Running) {
                dbus_connection_read_write_dispatch(m_Receiver.get(), 1000);
            }
        });
    }
    TRawEvents(const TRawEvents&) = delete;
    TRawEvents& operator=(const TRawEvents&) = delete;
    ~TRawEvents() {
        m_Running = false;
        SendOne();
        m_Thread.join();
    }

    int Send(int count) {
        m_Arrivals.Expect(count);
        for (int i = 0; i < count; ++i) {
            SendOne();
        }
        return m_Arrivals.Wait();
    }

private:
    void SendOne() {
        const RawBus::TMessage signal(dbus_message_new_signal(RAW_PATH, RAW_INTERFACE, EVENT));
        const char* const text = DATA;
        dbus_message_append_args(signal.get(), DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
        dbus_connection_send(m_Sender.get(), signal.get(), nullptr);
        dbus_connection_flush(m_Sender.get());
    }

    static DBusHandlerResult Filter(DBusConnection*, DBusMessage* message, void* self) {
        const char* text = nullptr;
        if (dbus_message_is_signal(message, RAW_INTERFACE, EVENT) &&
            dbus_message_get_args(message, nullptr, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID)) {
            benchmark::DoNotOptimize(text);
            static_cast<TRawEvents*>(self)->m_Arrivals.Add();
        }
        return DBUS_HANDLER_RESULT_HANDLED;
    }

    RawBus::TConnection m_Sender;
    RawBus::TConnection m_Receiver;
    TArrivals m_Arrivals;
    std::atomic<bool> m_Running{true};
    std::thread m_Thread;
};

double KibInUse() {
    return static_cast<double>(mallinfo2().uordblks) / 1024;
}

}  // namespace

void OneEvent(benchmark::State& state) {
    TObserver observer;
    TRawEvents raw;
    Compare(
        state, {"raw signal to a filter", "us", AtMost(1.15)}, 100,
        [&] { RequireAll(observer.Send(1)); }, [&] { RequireAll(raw.Send(1)); });
}

void Burst(benchmark::State& state) {
    TObserver observer;
    TRawEvents raw;
    Compare(
        state, {"raw signals to a filter", "us", {}}, 1, [&] { RequireAll(observer.Send(BURST)); },
        [&] { RequireAll(raw.Send(BURST)); });
}

void LostOfBurst(benchmark::State& state) {
    TObserver observer;
    int lost = 0;  // below 0: some came twice
    while (state.KeepRunning()) {
        state.SetIterationTime(Microseconds([&] { lost += observer.Send(BURST); }) / 1e6);
    }
    ReportDifference(state, {"none", "events", AtMost(0)}, std::abs(lost), 0);
}

// A short burst before, since the first events fill caches that are kept on purpose.
void HeapAfterBurst(benchmark::State& state) {
    TObserver observer;
    RequireAll(observer.Send(1000));
    const double before = KibInUse();
    while (state.KeepRunning()) {
        state.SetIterationTime(Microseconds([&] { RequireAll(observer.Send(BURST)); }) / 1e6);
    }
    ReportDifference(state, {"before it; difference", "KiB", AtMost(64)}, KibInUse(), before);
}
