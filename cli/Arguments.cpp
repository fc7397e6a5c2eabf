#include "Arguments.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>

#include "Output.h"

namespace Arguments {

std::optional<TParams> Assignments(const std::vector<std::string>& arguments) {
    TParams params;
    for (const std::string& argument : arguments) {
        const std::size_t equals = argument.find('=');
        if (equals == std::string::npos || equals == 0) {
            Output::Complain(argument + " is not NAME=VALUE");
            return std::nullopt;
        }
        params.push_back({argument.substr(0, equals), argument.substr(equals + 1)});
    }
    return params;
}

std::string Names(const TParams& params) {
    std::string names;
    for (const auto& param : params) {
        names += (names.empty() ? "" : ", ") + param.name;
    }
    return names;
}

std::optional<std::string> ReadAll(const std::string& file) {
    std::ostringstream text;
    if (file == "-") {
        text << std::cin.rdbuf();
        // The stream takes a failure for the end.
        if (std::ferror(stdin) != 0) {
            Output::Complain("standard input cannot be read");
            return std::nullopt;
        }
        return text.str();
    }
    errno = 0;
    std::ifstream input(file, std::ios::binary);
    if (input.peek() != std::ifstream::traits_type::eof()) {
        text << input.rdbuf();
    }
    // A directory can be opened, but not read.
    if (!input.is_open() || input.bad()) {
        Output::Complain(file + ": " + std::strerror(errno != 0 ? errno : EIO));
        return std::nullopt;
    }
    return text.str();
}

}  // namespace Arguments
