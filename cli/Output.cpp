#include "Output.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>

#include "TOstelDataMapper.h"
#include "VisibleText.h"

namespace Output {

namespace {

// The first failure of standard output. Watches print on the library's thread.
std::atomic<int> s_Error{0};

std::atomic<bool> s_MayBeUnanswered{false};

void Put(const std::string& text) {
    errno = 0;
    std::cout << text << std::flush;
    if (!std::cout && s_Error == 0) {
        s_Error = errno != 0 ? errno : EIO;
    }
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
    s_MayBeUnanswered = s_MayBeUnanswered || code == RC_FAILURE;
    return FailElsewhere(subject, code);
}

int FailElsewhere(const std::string& subject, tOstelReturnCode code) {
    Complain(subject + ": " + CodeText(code));
    return ExitStatus(code);
}

bool MayBeUnanswered() {
    return s_MayBeUnanswered;
}

void Complain(const std::string& text) {
    std::cerr << "ostelcli: " << VisibleText(text) << std::endl;
}

void PrintOk(bool json) {
    if (json) {
        TOstelJsonObject document;
        document.SetPropertyValue("RESULT", std::string("RC_SUCCESS"));
        Print(document);
    }
}

void Print(const TOstelJsonObject& document) {
    Put(document.EncodeToString(-1) + "\n");
}

void PrintIndented(const TOstelJsonObject& document) {
    Put(document.EncodeToString(2) + "\n");
}

void Print(const std::string& line) {
    Put(VisibleText(line) + "\n");
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

bool HasFailed() {
    return s_Error != 0;
}

int Finish(int status) {
    // What others printed, such as the help, is looked at here as well.
    Put("");
    if (!HasFailed()) {
        return status;
    }
    Complain(std::string("standard output: ") + std::strerror(s_Error));
    return WRITE_ERROR;
}

int Write(const std::string& file, const std::string& bytes) {
    if (file == "-") {
        Put(bytes);
        return 0;
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
