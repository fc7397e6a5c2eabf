#ifndef ROWS_H
#define ROWS_H

#include <benchmark/benchmark.h>

#include "Comparison.h"
#include "Echo.h"

// What each row of the table measures. Rows.cpp gives them their names and their order.

void RoundTrip(benchmark::State& state);
void Throughput(benchmark::State& state);
// The argument is the size of the value.
void RoundTripAgainst(benchmark::State& state, const TEcho& other, const TGoal& goal);

void TextAgainst(benchmark::State& state, const TEcho& other, const TGoal& goal);
void RawAgainst(benchmark::State& state, const TEcho& other);

// The argument is the number of names.
void Array(benchmark::State& state);
void LinearArray(benchmark::State& state);
void GroupedNames(benchmark::State& state);
void GroupedNamesWithStars(benchmark::State& state);

void OneEvent(benchmark::State& state);
void Burst(benchmark::State& state);
void LostOfBurst(benchmark::State& state);
void HeapAfterBurst(benchmark::State& state);

void RemoteGetParam(benchmark::State& state);

void FirstRequest(benchmark::State& state);
void DirtyMemory(benchmark::State& state);
void LibrarySize(benchmark::State& state);

// The gateway's own work, without the bus.
void GatewayLookup(benchmark::State& state);
void GatewayPartialPath(benchmark::State& state);
void GatewayPartialPathAmongMany(benchmark::State& state);
void GatewayCommit(benchmark::State& state);
void GatewayCommitSyncs(benchmark::State& state);

#endif
