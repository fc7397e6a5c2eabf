// Takes the place of the logging library's one writing function: fills in every format, so that the
// sanitizers see what is read for it, and writes nothing.
#include <array>
#include <cstdarg>
#include <cstdio>

#include "zt_logging.h"

void ztLogging_log(int, const char* format, ...) {
    std::array<char, 256> line{};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line.data(), line.size(), format, arguments);
    va_end(arguments);
}
