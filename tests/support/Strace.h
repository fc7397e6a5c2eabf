#ifndef STRACE_H
#define STRACE_H

#include <string>
#include <vector>

// The system calls of a program, as seen from outside.
namespace Strace {

// Why no program can be watched here. Empty when one can.
std::string WhyNot();

// Runs a program that is to succeed. What each of its processes did of the calls, one process after
// the other, flags as numbers.
std::string Run(const std::string& calls, const std::vector<std::string>& command);

}  // namespace Strace

#endif
