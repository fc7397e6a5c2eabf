#ifndef OBJECTS_H
#define OBJECTS_H

#include <string>
#include <vector>

// The verbs on whole objects and instances; each prints its result and returns the exit status.
namespace Objects {

// Names may be relative to the object; without names all below it is meant.
int Get(const std::string& object, const std::vector<std::string>& names, bool json);
// NAME=VALUE each; all of them or, when one is refused, none.
int Set(const std::string& object, const std::vector<std::string>& assignments, bool commit,
        bool json);
int Instances(const std::string& table, bool json);
int Tree(const std::string& object, bool json);
int Add(const std::string& table, bool commit, bool json);
int Delete(const std::vector<std::string>& instances, bool commit, bool json);
int IndexMap(bool json);

}  // namespace Objects

#endif
