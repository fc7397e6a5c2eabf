// Requests on the bus.
#include <benchmark/benchmark.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Application.h"
#include "Comparison.h"
#include "Echo.h"
#include "Processors.h"
#include "RawBus.h"
#include "Rows.h"
#include "ServerProcess.h"

namespace {

const char* const DISPATCHER = "OSTEL_DISPATCHER";

void GetParamOnce() {
    std::string value;
    Require(Application().GetParam(PARAMETER, value));
    benchmark::DoNotOptimize(value);
}

// How long so many threads take to do the work so often each.
void InThreads(int threads, int runs, const TWork& work) {
    std::vector<std::thread> workers(static_cast<std::size_t>(threads));
    for (std::thread& worker : workers) {
        worker = std::thread([&] {
            for (int run = 0; run < runs; ++run) {
                work();
            }
        });
    }
    for (std::thread& worker : workers) {
        worker.join();
    }
}

void EchoAgainst(benchmark::State& state, const TEcho& other, const TGoal& goal, const TWork& ours,
                 const TEcho& ourEcho = OSTEL_ECHO) {
    const std::string reply = Reply(std::string(static_cast<std::size_t>(state.range(0)), 'v'));
    const ServerProcess ourServer(ServerProcess::Role(ourEcho.kind, DISPATCHER, reply));
    const ServerProcess otherServer(ServerProcess::Role(other.kind, "BENCH_OTHER", reply));
    const std::unique_ptr<IEchoClient> client = other.newClient("BENCH_OTHER");
    const std::string request = Request();
    Compare(state, {other.kind, "us", goal}, 100, ours,
            [&] { benchmark::DoNotOptimize(client->Call(request)); });
}

}  // namespace

void RoundTrip(benchmark::State& state) {
    const ServerProcess server(
        ServerProcess::Role(RAW_ECHO.kind, DISPATCHER, Reply("KV0123456789")));
    const RawBus::TConnection raw = RawBus::Connect();
    const std::string request = Request();
    Compare(state, {"raw libdbus call", "us", AtMost(1.05)}, 100, &GetParamOnce,
            [&] { benchmark::DoNotOptimize(RawBus::Call(raw.get(), DISPATCHER, request)); });
}

void Throughput(benchmark::State& state) {
    const Processors::TUseAll all;
    constexpr int threads = 8;
    constexpr int runs = 100;
    const ServerProcess server(
        ServerProcess::Role(RAW_ECHO.kind, DISPATCHER, Reply("KV0123456789")));
    const RawBus::TConnection raw = RawBus::Connect();
    const std::string request = Request();
    Compare(
        state, {"raw libdbus, 8 threads, time", "us", AtMost(1 / 0.95)}, 1,
        [&] { InThreads(threads, runs, &GetParamOnce); },
        [&] {
            InThreads(threads, runs, [&] {
                benchmark::DoNotOptimize(RawBus::Call(raw.get(), DISPATCHER, request));
            });
        });
}

// How much of what separates the library from the others is libdbus's own.
void RawAgainst(benchmark::State& state, const TEcho& other) {
    const std::unique_ptr<IEchoClient> raw = RAW_ECHO.newClient(DISPATCHER);
    const std::string request = Request();
    EchoAgainst(
        state, other, {}, [&] { benchmark::DoNotOptimize(raw->Call(request)); }, RAW_ECHO);
}

// Each library calls a server of its own kind; the texts are the same.
void RoundTripAgainst(benchmark::State& state, const TEcho& other, const TGoal& goal) {
    EchoAgainst(state, other, goal, &GetParamOnce);
}

// Without what an application wants of them: the others do not look into the texts either.
void TextAgainst(benchmark::State& state, const TEcho& other, const TGoal& goal) {
    Application();
    const std::string request = Request();
    EchoAgainst(state, other, goal, [&] {
        std::string reply;
        if (getOstelIpcInstance()->CallMethod(EchoNames::METHOD, request, reply) != 0) {
            throw std::runtime_error("the call failed");
        }
        benchmark::DoNotOptimize(reply.data());
    });
}
