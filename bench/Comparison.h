#ifndef COMPARISON_H
#define COMPARISON_H

#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <vector>

// What a row of the table says: a figure of ours, the one it is held against, and what the two come
// to, which has a goal or none.
struct TGoal {
    enum TKind { NONE, AT_MOST, AT_LEAST };

    TKind kind = NONE;
    double limit = 0;
};

inline TGoal AtMost(double limit) {
    return {TGoal::AT_MOST, limit};
}
inline TGoal AtLeast(double limit) {
    return {TGoal::AT_LEAST, limit};
}

// Does its work once.
using TWork = std::function<void()>;

double Median(std::vector<double> values);

double Microseconds(const TWork& work);
// Of this thread alone: for work that waits for nobody, which a busy machine only interrupts.
double CpuMicroseconds(const TWork& work);

struct TRow {
    std::string against;
    std::string unit;
    TGoal goal;
    double (*measure)(const TWork& work) = &Microseconds;
};

// One turn of each side after the other, each time the other one first, so that whatever else the
// machine does meets both. The figures are the medians of single runs, and their ratio is the
// median of the turns' ratios: a processor that changes its clock in between changes few of them.
void Compare(benchmark::State& state, const TRow& row, int runsPerTurn, const TWork& ours,
             const TWork& theirs);

// For figures that come from elsewhere. The table shows their ratio, or ours less theirs.
void ReportRatio(benchmark::State& state, const TRow& row, double ours, double theirs);
void ReportDifference(benchmark::State& state, const TRow& row, double ours, double theirs);

#endif
