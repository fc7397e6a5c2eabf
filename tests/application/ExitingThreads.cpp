// An application that leaves main while other threads of its are at requests, as threads that poll
// a parameter are.
//
// Its own operation stands in for the end of the enumeration mapper, which comes after that of
// everything that a request needs: it holds the exit there until each thread has made more
// requests. The verdict is the exit status.
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "TOstelApplication.h"
#include "TOstelDataMapper.h"

namespace {

constexpr int ENOUGH = 20;
constexpr int EXIT_NOTHING_RETURNED = 3;

std::atomic<int> returned[4];

bool MoreReturn() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    for (std::atomic<int>& count : returned) {
        for (const int before = count; count < before + ENOUGH;) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            std::this_thread::yield();
        }
    }
    return true;
}

}  // namespace

TOstelDataMapper::~TOstelDataMapper() {
    std::_Exit(MoreReturn() ? EXIT_SUCCESS : EXIT_NOTHING_RETURNED);
}

int main() {
    TOstelApplication& application = *TOstelApplication::GetInstance();
    application.Initialize(OSTEL_MVA);
    for (std::atomic<int>& count : returned) {
        std::thread([&] {
            for (;;) {
                std::string value;
                application.GetParam("Device.X", value);
                ++count;
            }
        }).detach();
    }
    return MoreReturn() ? EXIT_FAILURE
                        : EXIT_NOTHING_RETURNED;  // unless the stand-in says otherwise
}
