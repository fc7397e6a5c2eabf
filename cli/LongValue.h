#ifndef LONG_VALUE_H
#define LONG_VALUE_H

#include <string>

// The verbs on values of any length, between a parameter and a file; "-" is standard input or
// output. Each returns the exit status.
namespace LongValue {

int Get(const std::string& name, const std::string& file, bool json);
int Set(const std::string& name, const std::string& file, bool commit, bool json);

}  // namespace LongValue

#endif
