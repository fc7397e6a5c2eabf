// An application that leaves main while other threads of its are at requests, as threads that poll
// a parameter are.
//
// Its own operation stands in for the end of the enumeration mapper, which comes after that of
// everything that a request needs: it holds the exit there until each thread has made more requests
// and the library's worker has left. The verdict is the exit status.
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <iterator>
#include <thread>

#include "Resources.h"
#include "TOstelApplication.h"
#include "TOstelDataMapper.h"
#include "WaitUntil.h"

namespace {

constexpr int ASKING_THREADS = 4;
constexpr int ENOUGH = 20;
constexpr int EXIT_NOTHING_RETURNED = 3;
constexpr int EXIT_WORKER_STAYED = 4;

std::atomic<int> returned[ASKING_THREADS];
std::ptrdiff_t threadsBefore = 0;

bool MoreReturn() {
    return std::all_of(std::begin(returned), std::end(returned), [](const std::atomic<int>& count) {
        return WaitUntil([&count, enough = count + ENOUGH] { return count >= enough; });
    });
}

}  // namespace

TOstelDataMapper::~TOstelDataMapper() {
    if (!MoreReturn()) {
        std::_Exit(EXIT_NOTHING_RETURNED);
    }
    const bool hasWorkerLeft =
        WaitUntil([] { return Resources::Threads() == threadsBefore + ASKING_THREADS; });
    std::_Exit(hasWorkerLeft ? EXIT_SUCCESS : EXIT_WORKER_STAYED);
}

int main() {
    threadsBefore = Resources::Threads();
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
    // Unless the stand-in says otherwise.
    return MoreReturn() ? EXIT_FAILURE : EXIT_NOTHING_RETURNED;
}
