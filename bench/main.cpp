// The benchmarks, and the servers that they call: started again with "--serve", this program is
// one.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdio>
#include <exception>
#include <string>

#include "Echo.h"
#include "Processors.h"
#include "RatioTable.h"

namespace {

int Serve(const std::string& kind, const std::string& id, const std::string& reply) {
    for (const TEcho& echo :
         {RAW_ECHO, OSTEL_ECHO, SD_BUS_ECHO, GDBUS_ECHO, SDBUS_CPP_ECHO, TLS_ECHO}) {
        if (kind == echo.kind) {
            echo.serve(id, reply);
            return 0;
        }
    }
    std::fprintf(stderr, "ostel-bench: no server '%s'\n", kind.c_str());
    return 64;
}

int Measure(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 64;
    }
    // Pages given back to the kernel and fetched again would be most of what large arrays cost, on
    // both sides alike.
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    mallopt(M_MMAP_THRESHOLD, 1 << 30);
    Processors::UseThatOfTheBus();
    TRatioTable table;
    benchmark::RunSpecifiedBenchmarks(&table);
    return table.HasFailed() ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const bool isServer = argc == 5 && std::string(argv[1]) == "--serve";
        return isServer ? Serve(argv[2], argv[3], argv[4]) : Measure(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "ostel-bench: %s\n", error.what());
        return 1;
    }
}
