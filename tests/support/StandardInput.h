#ifndef STANDARD_INPUT_H
#define STANDARD_INPUT_H

#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>
#include <system_error>

// Lets this process find a text on its standard input, and the end of it behind.
inline void TypeOnStandardInput(const std::string& text) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0 ||
        write(ends[1], text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        dup2(ends[0], STDIN_FILENO) < 0) {
        throw std::system_error(errno, std::generic_category(), "standard input");
    }
    close(ends[0]);
    close(ends[1]);
}

#endif
