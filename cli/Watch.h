#ifndef WATCH_H
#define WATCH_H

#include <optional>
#include <string>

// Prints what happens, as it happens: parameters below `prefix` that change, client devices,
// general events and applications. Ends after `count` notices, or on SIGINT or SIGTERM, with 0, and
// when the bus goes away with 69.
int Watch(const std::string& prefix, std::optional<unsigned long> count, bool json);

#endif
