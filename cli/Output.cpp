#include "Output.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>

#include "TOstelDataMapper.h"

namespace Output {

namespace {

// Values come from anywhere; they must not move the cursor or forge lines.
std::string Visible(const std::string& text) {
    std::string visible;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7F) {
            visible += c;
            continue;
        }
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, "\\x%02x", byte);
        visible += escaped;
    }
    return visible;
}

}  // namespace

int ExitStatus(tOstelReturnCode code) {
    return code < 0 || code > 255 ? 255 : code;
}

std::string CodeText(tOstelReturnCode code) {
    try {
        return TOstelDataMapper::GetInstance()->MapEnumToString(code) + " (" +
               std::to_string(code) + ")";
    } catch (const TOstelDataMapper::TMappingException&) {
        return "code " + std::to_string(code);
    }
}

int Fail(const std::string& subject, tOstelReturnCode code) {
    Complain(subject + ": " + CodeText(code));
    return ExitStatus(code);
}

void Complain(const std::string& text) {
    std::cerr << "ostelcli: " << Visible(text) << std::endl;
}

void PrintOk(bool json) {
    if (json) {
        TOstelJsonObject document;
        document.SetPropertyValue("RESULT", std::string("RC_SUCCESS"));
        Print(document);
    }
}

void Print(const TOstelJsonObject& document) {
    std::cout << document.EncodeToString(-1) << std::endl;
}

void PrintIndented(const TOstelJsonObject& document) {
    std::cout << document.EncodeToString(2) << std::endl;
}

void Print(const std::string& line) {
    std::cout << Visible(line) << std::endl;
}

void Print(const std::vector<TOstelApplication::TOstelAppParam>& params, bool json) {
    if (json) {
        TOstelJsonObject document;
        TOstelApplication::GetInstance()->ParamArrayToJson(params, document);
        Print(document);
        return;
    }
    std::size_t width = 0;
    for (const auto& param : params) {
        width = std::max(width, param.name.size());
    }
    for (const auto& param : params) {
        std::string line = param.name;
        line.resize(width + 2, ' ');
        Print(line + param.value);
    }
}

int Write(const std::string& file, const std::string& bytes) {
    if (file == "-") {
        std::cout << bytes << std::flush;
        return std::cout ? 0 : WRITE_ERROR;
    }
    errno = 0;
    std::ofstream output(file, std::ios::binary | std::ios::trunc);
    output << bytes << std::flush;
    if (!output) {
        Complain(file + ": " + std::strerror(errno != 0 ? errno : EIO));
        return WRITE_ERROR;
    }
    return 0;
}

}  // namespace Output
