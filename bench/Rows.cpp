// The table of contents: every row of the table, in its order.
#include "Rows.h"

namespace {

// These fork this process, and whatever other rows leave in its memory would be in their time.
BENCHMARK(FirstRequest)->Name("start and first request")->UseManualTime()->Iterations(60);
BENCHMARK(DirtyMemory)->Name("dirty memory when idle")->UseManualTime()->Iterations(5);
BENCHMARK(LibrarySize)->Name("stripped i386 library")->UseManualTime()->Iterations(1);

BENCHMARK(RoundTrip)->Name("GetParam, one value")->UseManualTime()->Iterations(60);
BENCHMARK(Throughput)->Name("GetParam, 8 threads, 800 calls")->UseManualTime()->Iterations(30);

void Sizes(benchmark::internal::Benchmark* row) {
    row->ArgName("bytes")->Arg(20)->Arg(1000)->Arg(20000)->UseManualTime()->Iterations(20);
}
BENCHMARK_CAPTURE(TextAgainst, raw, RAW_ECHO, TGoal())->Name("text round trip")->Apply(&Sizes);
BENCHMARK_CAPTURE(TextAgainst, sd_bus, SD_BUS_ECHO, TGoal())
    ->Name("text round trip")
    ->Apply(&Sizes);
BENCHMARK_CAPTURE(TextAgainst, gdbus, GDBUS_ECHO, AtMost(1))
    ->Name("text round trip")
    ->Apply(&Sizes);
BENCHMARK_CAPTURE(TextAgainst, sdbus_cpp, SDBUS_CPP_ECHO, AtMost(1))
    ->Name("text round trip")
    ->Apply(&Sizes);
BENCHMARK_CAPTURE(RawAgainst, sd_bus, SD_BUS_ECHO)->Name("raw round trip")->Apply(&Sizes);
BENCHMARK_CAPTURE(RawAgainst, sdbus_cpp, SDBUS_CPP_ECHO)->Name("raw round trip")->Apply(&Sizes);
BENCHMARK_CAPTURE(RoundTripAgainst, raw, RAW_ECHO, TGoal())->Name("GetParam")->Apply(&Sizes);
BENCHMARK_CAPTURE(RoundTripAgainst, sd_bus, SD_BUS_ECHO, TGoal())->Name("GetParam")->Apply(&Sizes);
BENCHMARK_CAPTURE(RoundTripAgainst, gdbus, GDBUS_ECHO, AtMost(1))->Name("GetParam")->Apply(&Sizes);
BENCHMARK_CAPTURE(RoundTripAgainst, sdbus_cpp, SDBUS_CPP_ECHO, AtMost(1))
    ->Name("GetParam")
    ->Apply(&Sizes);

BENCHMARK(Array)
    ->Name("GetParamArray")
    ->ArgName("names")
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->UseManualTime()
    ->Iterations(20);
BENCHMARK(LinearArray)->Name("GetParamArray, growth per name")->UseManualTime()->Iterations(5);
BENCHMARK(GroupedNames)
    ->Name("grouped GetParamArray, 4,000 names")
    ->UseManualTime()
    ->Iterations(40);
BENCHMARK(GroupedNamesWithStars)
    ->Name("grouped GetParamArray, 4,000 names with \"*\"")
    ->UseManualTime()
    ->Iterations(40);

BENCHMARK(OneEvent)->Name("event, from SendEvent to observer")->UseManualTime()->Iterations(60);
BENCHMARK(Burst)->Name("100,000 events in a burst")->UseManualTime()->Iterations(2);
BENCHMARK(LostOfBurst)->Name("events lost of 100,000 in a burst")->UseManualTime()->Iterations(1);
BENCHMARK(HeapAfterBurst)->Name("heap after 100,000 events")->UseManualTime()->Iterations(1);

BENCHMARK(RemoteGetParam)->Name("remote GetParam over TLS")->UseManualTime()->Iterations(40);

BENCHMARK(GatewayLookup)
    ->Name("gateway: one of 100,000 parameters")
    ->UseManualTime()
    ->Iterations(200);
BENCHMARK(GatewayPartialPath)
    ->Name("gateway: partial path of 5,000")
    ->UseManualTime()
    ->Iterations(30);
BENCHMARK(GatewayPartialPathAmongMany)
    ->Name("gateway: partial path of 5,000 of 100,000")
    ->UseManualTime()
    ->Iterations(30);
BENCHMARK(GatewayCommit)->Name("gateway: COMMIT of 1,000 writes")->UseManualTime()->Iterations(30);
BENCHMARK(GatewayCommitSyncs)
    ->Name("gateway: syncs of that COMMIT")
    ->UseManualTime()
    ->Iterations(1);

}  // namespace
