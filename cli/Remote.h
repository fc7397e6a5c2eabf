#ifndef REMOTE_H
#define REMOTE_H

#include <optional>
#include <string>
#include <vector>

// The verbs on another unit; each prints its result and returns the exit status. Nothing is ever
// sent without encryption.
namespace Remote {

struct TUnit {
    std::string host;
    std::string certificates = "/usr/certs/";
    unsigned int timeout = 30;  // in seconds; the library itself waits without end
};

int Get(const TUnit& unit, const std::vector<std::string>& names, bool json);
int Set(const TUnit& unit, const std::vector<std::string>& assignments, bool commit, bool json);
int Commit(const TUnit& unit, bool json);
int File(const TUnit& unit, const std::string& name, const std::string& file);
int Event(const TUnit& unit, const std::string& name, const std::string& data, bool json);

// The changes come by way of this unit's own service, as events on its bus.
int Watch(const TUnit& unit, const std::vector<std::string>& names,
          std::optional<unsigned long> count, bool json);

}  // namespace Remote

#endif
