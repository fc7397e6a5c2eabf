// What it takes to be there: the time to a first answer, the memory then, and the size on flash.
#include <sys/stat.h>

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "Application.h"
#include "Comparison.h"
#include "Echo.h"
#include "Rows.h"
#include "ServerProcess.h"

namespace {

// Each starts, sends its first request, and says how much memory it has dirtied.
const std::vector<std::string> OURS = {OSTEL_FIRST_REQUEST};
const std::vector<std::string> THEIRS = {OSTEL_FIRST_REQUEST_RAW};

}  // namespace

void FirstRequest(benchmark::State& state) {
    const ServerProcess server(
        ServerProcess::Role(RAW_ECHO.kind, "OSTEL_DISPATCHER", Reply("KV0123456789")));
    Compare(
        state, {"raw libdbus+jansson+OpenSSL", "us", AtMost(1.15)}, 1,
        [] { const ServerProcess program(OURS); }, [] { const ServerProcess program(THEIRS); });
}

void DirtyMemory(benchmark::State& state) {
    const ServerProcess server(
        ServerProcess::Role(RAW_ECHO.kind, "OSTEL_DISPATCHER", Reply("KV0123456789")));
    std::vector<double> ours;
    std::vector<double> theirs;
    while (state.KeepRunning()) {
        ours.push_back(std::stod(ServerProcess(OURS).FirstLine()));
        theirs.push_back(std::stod(ServerProcess(THEIRS).FirstLine()));
        state.SetIterationTime(1e-3);
    }
    ReportDifference(state, {"the same; difference", "KiB", AtMost(300)}, Median(ours),
                     Median(theirs));
}

void LibrarySize(benchmark::State& state) {
    const char* const library = std::getenv("OSTEL_BENCH_LIBRARY");
    struct stat file = {};
    if (library == nullptr || stat(library, &file) != 0) {
        state.SkipWithError("OSTEL_BENCH_LIBRARY names no library");
        return;
    }
    while (state.KeepRunning()) {
        state.SetIterationTime(1e-3);
    }
    ReportDifference(state, {"nothing", "KiB", AtMost(350)},
                     static_cast<double>(file.st_size) / 1024, 0);
}
