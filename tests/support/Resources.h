#ifndef RESOURCES_H
#define RESOURCES_H

#include <sys/resource.h>
#include <sys/types.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

// What a process holds of the system.
namespace Resources {

inline std::ptrdiff_t Descriptors(pid_t process = getpid()) {
    return std::distance(
        std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/fd"), {});
}

inline std::ptrdiff_t Threads(pid_t process = getpid()) {
    return std::distance(
        std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task"), {});
}

// In KiB, as the kernel counts it under that word: "VmRSS:" now, "VmHWM:" at the most until now.
inline int Memory(const std::string& word, pid_t process = getpid()) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    std::string read;
    while (status >> read && read != word) {
    }
    int size = 0;
    status >> size;
    return size;
}

// How long this process has kept processors busy.
inline double CpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// Whether no thread of this process goes round and round, which only time can show.
inline bool IsIdleForASecond() {
    const double before = CpuSeconds();
    std::this_thread::sleep_for(std::chrono::seconds(1));
    return CpuSeconds() - before < 0.03;
}

}  // namespace Resources

#endif
