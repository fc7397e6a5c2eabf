#ifndef RUNTIME_ERROR_OF_H
#define RUNTIME_ERROR_OF_H

#include <stdexcept>
#include <string>

// The text of the runtime error that a call throws.
template <typename Call>
std::string RuntimeErrorOf(Call call) {
    try {
        call();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "nothing was thrown";
}

#endif
