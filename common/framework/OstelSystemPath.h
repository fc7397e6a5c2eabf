// Internal, not installed: paths as the system takes them.
#ifndef OSTEL_SYSTEM_PATH_H
#define OSTEL_SYSTEM_PATH_H

#include <string>

// The system would take a path with a NUL in it for what stands before the NUL, which is another
// file. The empty path goes in its place: every call refuses that one with ENOENT.
inline const char* SystemPath(const std::string& path) {
    return path.find('\0') == std::string::npos ? path.c_str() : "";
}

#endif
