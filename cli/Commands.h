#ifndef COMMANDS_H
#define COMMANDS_H

#include <string>
#include <vector>

// One function for each verb; each prints its result and returns the exit status.
namespace Commands {

int Get(const std::vector<std::string>& names, bool json);
// NAME=VALUE each; all of them or, when one is refused, none.
int Set(const std::vector<std::string>& assignments, bool commit, bool json);
int Commit(bool json);
int Event(const std::string& name, const std::string& data, bool json);
int Apps(bool json);
// 0 when the application is there, 1 when it is not.
int Active(const std::string& name, bool json);
int Info(bool json);
// After a request that may be unanswered: tells when that is because the gateway is not there.
void ComplainWithoutGateway();

}  // namespace Commands

#endif
