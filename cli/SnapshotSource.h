#ifndef SNAPSHOT_SOURCE_H
#define SNAPSHOT_SOURCE_H

#include <optional>
#include <string>
#include <utility>

#include "Arguments.h"
#include "tOstelTypes.h"

// Where values come from: a file that `save` has made, or the device.
namespace Snapshot {

struct TSnapshot {
    std::string root;
    Arguments::TParams params;
};

// The snapshot in a file, or the exit status when there is none.
std::pair<std::optional<TSnapshot>, int> Open(const std::string& file);

// What the device has at a path, with a bar while that takes long.
tOstelReturnCode Read(const std::string& path, Arguments::TParams& params);

}  // namespace Snapshot

#endif
