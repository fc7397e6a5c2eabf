#ifndef WATCH_H
#define WATCH_H

#include <optional>
#include <string>

// Prints what happens, as it happens: parameters below `prefix` that change, client devices,
// general events and applications. Ends after `count` notices, or on SIGINT or SIGTERM, with 0.
//
// The two signals must be blocked before the first thread starts: see BlockStopSignals.
int Watch(const std::string& prefix, std::optional<unsigned long> count, bool json);

void BlockStopSignals();

#endif
