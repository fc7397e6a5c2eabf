#ifndef COMMANDS_H
#define COMMANDS_H

#include <string>
#include <vector>

// One function for each verb; each prints its result and returns the exit status.
namespace Commands {

int Get(const std::vector<std::string>& names, bool json);
// NAME=VALUE each. All are staged before the first is committed, and nothing is committed when one
// of them is refused.
int Set(const std::vector<std::string>& assignments, bool commit, bool json);
int Commit(bool json);
int Event(const std::string& name, const std::string& data, bool json);
int Apps(bool json);
int Info(bool json);

}  // namespace Commands

#endif
