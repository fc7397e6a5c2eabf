#include "Comparison.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <ctime>
#include <numeric>

namespace {

std::vector<double> Turn(const TRow& row, const TWork& work, int runs) {
    std::vector<double> times;
    times.reserve(static_cast<std::size_t>(runs));
    for (int run = 0; run < runs; ++run) {
        times.push_back(row.measure(work));
    }
    return times;
}

void Append(std::vector<double>& all, const std::vector<double>& some) {
    all.insert(all.end(), some.begin(), some.end());
}

void Report(benchmark::State& state, const TRow& row, double ours, double theirs, double figure) {
    state.counters["ours"] = ours;
    state.counters["theirs"] = theirs;
    state.counters["figure"] = figure;
    if (row.goal.kind != TGoal::NONE) {
        state.counters[row.goal.kind == TGoal::AT_MOST ? "at_most" : "at_least"] = row.goal.limit;
    }
    state.SetLabel(row.unit + "|" + row.against);
}

}  // namespace

double Median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

double Microseconds(const TWork& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
        .count();
}

double CpuMicroseconds(const TWork& work) {
    const auto now = [] {
        timespec time{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
    };
    const double start = now();
    work();
    return now() - start;
}

void Compare(benchmark::State& state, const TRow& row, int runsPerTurn, const TWork& ours,
             const TWork& theirs) {
    // The first runs meet cold caches and connections; work this long makes its own warmth.
    if (state.max_iterations > 1) {
        ours();
        theirs();
    }
    std::vector<double> ourTimes;
    std::vector<double> theirTimes;
    std::vector<double> ratios;
    bool oursFirst = true;
    while (state.KeepRunning()) {
        std::vector<double> ourTurn;
        std::vector<double> theirTurn;
        if (oursFirst) {
            ourTurn = Turn(row, ours, runsPerTurn);
            theirTurn = Turn(row, theirs, runsPerTurn);
        } else {
            theirTurn = Turn(row, theirs, runsPerTurn);
            ourTurn = Turn(row, ours, runsPerTurn);
        }
        oursFirst = !oursFirst;
        state.SetIterationTime(std::accumulate(ourTurn.begin(), ourTurn.end(), 0.0) / 1e6);
        ratios.push_back(Median(ourTurn) / Median(theirTurn));
        Append(ourTimes, ourTurn);
        Append(theirTimes, theirTurn);
    }
    Report(state, row, Median(ourTimes), Median(theirTimes), Median(ratios));
}

void ReportRatio(benchmark::State& state, const TRow& row, double ours, double theirs) {
    Report(state, row, ours, theirs, ours / theirs);
}

void ReportDifference(benchmark::State& state, const TRow& row, double ours, double theirs) {
    Report(state, row, ours, theirs, ours - theirs);
}
