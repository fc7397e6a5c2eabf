#ifndef SNAPSHOT_H
#define SNAPSHOT_H

#include <string>

// The verbs that take, restore and compare a part of the data model. A snapshot is a JSON document
// {"ROOT": path, "PARAMS": [{"NAME", "VALUE"}...]}. Each returns the exit status.
namespace Snapshot {

// Prints the snapshot of a partial path or of one parameter.
int Save(const std::string& path, bool json);

// Writes what differs, all of it or, when a value is refused, nothing. Read-only parameters are
// left as they are. Instances that are missing are added, under new numbers; with `exact`, those
// that the file does not have are deleted.
int Load(const std::string& file, bool exact, bool commit, bool json);

// Prints what differs below `path`, of the file ("-") and of the device ("+"): 0 when nothing does,
// 1 otherwise.
int Diff(const std::string& file, const std::string& path, bool json);

}  // namespace Snapshot

#endif
