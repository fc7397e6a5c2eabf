#include "Comparison.h"

#include <algorithm>
#include <chrono>
#include <ctime>

namespace {

double Turn(const TRow& row, const TWork& work, int runs, std::vector<double>& times) {
    double sum = 0;
    for (int run = 0; run < runs; ++run) {
        times.push_back(row.measure(work));
        sum += times.back();
    }
    return sum;
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
    bool oursFirst = true;
    while (state.KeepRunning()) {
        double microseconds = 0;
        if (!oursFirst) {
            Turn(row, theirs, runsPerTurn, theirTimes);
        }
        microseconds = Turn(row, ours, runsPerTurn, ourTimes);
        if (oursFirst) {
            Turn(row, theirs, runsPerTurn, theirTimes);
        }
        oursFirst = !oursFirst;
        state.SetIterationTime(microseconds / 1e6);
    }
    ReportRatio(state, row, Median(ourTimes), Median(theirTimes));
}

void ReportRatio(benchmark::State& state, const TRow& row, double ours, double theirs) {
    Report(state, row, ours, theirs, ours / theirs);
}

void ReportDifference(benchmark::State& state, const TRow& row, double ours, double theirs) {
    Report(state, row, ours, theirs, ours - theirs);
}
