// In which order and under which lock the listener tells its observers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "TOstelEventListener.h"

namespace {

using testing::ElementsAre;
using TState = IOstelCpeClientStateObserver::TOstelCpeClientState;

TEST(TOstelEventListenerObservers, AreToldInTheOrderOfTheirAddresses) {
    struct TOrdered : IOstelObserver, IOstelCpeClientStateObserver, IOstelDataModelChangeObserver {
        void OnEvent(const std::string&, const std::string&) override { order->push_back(this); }
        void OnCpeClientStateChanged(TOstelCpeClientState, const std::string&,
                                     const std::string&) override {
            order->push_back(this);
        }
        void OnDataModelParamChanged(const std::string&, const std::string&) override {
            order->push_back(this);
        }
        std::vector<const TOrdered*>* order = nullptr;
    };
    std::vector<const TOrdered*> order;
    std::array<TOrdered, 8> observers;
    TOstelEventListener listener;
    std::vector<const TOrdered*> ascending;
    for (const std::size_t i : {2U, 0U, 7U, 3U, 1U, 6U, 4U, 5U}) {
        observers.at(i).order = &order;
        listener.AddObserver(&observers.at(i));
        listener.AddCpeClientStateObserver(&observers.at(i));
        listener.AddDataModelChangeObserver(&observers.at(i));
    }
    for (const TOrdered& observer : observers) {
        ascending.push_back(&observer);
    }
    listener.NotifyObservers("n", "d");
    EXPECT_EQ(order, ascending);
    order.clear();
    listener.NotifyCpeClientStateObservers(TState::CONNECTED, "m", "h");
    EXPECT_EQ(order, ascending);
    order.clear();
    listener.NotifyDataModelChangeObservers("n", "v");
    EXPECT_EQ(order, ascending);
}

// Kept: an application may rely on no observer coming or going while one is told.
TEST(TOstelEventListenerObservers, AreToldWithTheLockHeld) {
    struct TDerived : TOstelEventListener,
                      IOstelObserver,
                      IOstelCpeClientStateObserver,
                      IOstelDataModelChangeObserver {
        using TOstelEventListener::OnEvent;
        void OnEvent(const std::string&, const std::string&) override { TryTheLock(); }
        void OnCpeClientStateChanged(TOstelCpeClientState, const std::string&,
                                     const std::string&) override {
            TryTheLock();
        }
        void OnDataModelParamChanged(const std::string&, const std::string&) override {
            TryTheLock();
        }
        void TryTheLock() {
            std::thread other([this] {
                const bool isFree = m_ObserverMutex.try_lock();
                if (isFree) {
                    m_ObserverMutex.unlock();
                }
                locked.push_back(!isFree);
            });
            other.join();
        }
        std::vector<bool> locked;
    } listener;
    listener.AddObserver(&listener);
    listener.AddCpeClientStateObserver(&listener);
    listener.AddDataModelChangeObserver(&listener);
    listener.NotifyObservers("n", "d");
    listener.NotifyCpeClientStateObservers(TState::CONNECTED, "m", "h");
    listener.NotifyDataModelChangeObservers("n", "v");
    EXPECT_THAT(listener.locked, ElementsAre(true, true, true));
}

// Whoever has removed its observer may destroy it at once.
TEST(TOstelEventListenerObservers, NeitherComeNorGoNorAreToldWhileAnotherThreadHasTheLock) {
    struct TObserver : IOstelObserver, IOstelCpeClientStateObserver, IOstelDataModelChangeObserver {
        void OnEvent(const std::string&, const std::string&) override {}
        void OnCpeClientStateChanged(TOstelCpeClientState, const std::string&,
                                     const std::string&) override {}
        void OnDataModelParamChanged(const std::string&, const std::string&) override {}
    } observer;
    struct TDerived : TOstelEventListener {
        using TOstelEventListener::m_ObserverMutex;
    } listener;
    const std::array<std::function<void()>, 9> operations = {
        [&] { listener.AddObserver(&observer); },
        [&] { listener.AddCpeClientStateObserver(&observer); },
        [&] { listener.AddDataModelChangeObserver(&observer); },
        [&] { listener.NotifyObservers("n", "d"); },
        [&] { listener.NotifyCpeClientStateObservers(TState::CONNECTED, "m", "h"); },
        [&] { listener.NotifyDataModelChangeObservers("n", "v"); },
        [&] { listener.RemoveObserver(&observer); },
        [&] { listener.RemoveCpeClientStateObserver(&observer); },
        [&] { listener.RemoveDataModelChangeObserver(&observer); }};
    for (std::size_t i = 0; i < operations.size(); ++i) {
        std::unique_lock<std::mutex> lock(listener.m_ObserverMutex);
        const auto done = std::async(std::launch::async, operations.at(i));
        EXPECT_EQ(done.wait_for(std::chrono::milliseconds(30)), std::future_status::timeout) << i;
        lock.unlock();
        EXPECT_EQ(done.wait_for(std::chrono::seconds(10)), std::future_status::ready) << i;
    }
}

TEST(TOstelEventListenerObservers, ComeAndGoFromManyThreadsWhileEventsArrive) {
    struct TCounter : IOstelDataModelChangeObserver {
        void OnDataModelParamChanged(const std::string&, const std::string&) override { ++count; }
        std::atomic<int> count{0};
    };
    constexpr int rounds = 500;
    TOstelEventListener listener;
    TCounter constant;
    listener.AddDataModelChangeObserver(&constant);
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < rounds; ++round) {
                TCounter passing;
                listener.AddDataModelChangeObserver(&passing);
                listener.OnEvent("EVENT_TYPE_PARAM_CHANGED", R"({"DATA_MODEL_NAME":"n"})");
                listener.RemoveDataModelChangeObserver(&passing);
                EXPECT_GE(passing.count, 1);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(constant.count, 4 * rounds);
}

}  // namespace
