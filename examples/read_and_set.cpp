// Reads the time servers of the gateway, gives it another one, and reads that back.
//
//   read_and_set [SERVER]
#include <cstdio>
#include <string>
#include <vector>

#include "TOstelApplication.h"
#include "TOstelDataMapper.h"

namespace {

const std::string THIRD_SERVER = "Device.Time.NTPServer3";

// Every operation returns a code; the mapper knows its name, unless a service has one of its own.
int Fail(const std::string& what, tOstelReturnCode code) {
    std::string name = "code " + std::to_string(code);
    try {
        name = TOstelDataMapper::GetInstance()->MapEnumToString(code);
    } catch (const TOstelDataMapper::TMappingException&) {
    }
    std::fprintf(stderr, "%s: %s\n", what.c_str(), name.c_str());
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string server = argc > 1 ? argv[1] : "time.example.net";
    TOstelApplication& application = *TOstelApplication::GetInstance();
    application.Initialize(OSTEL_APP_SIMULATOR);
    if (!application.IsInitialized()) {
        std::fprintf(stderr, "no bus\n");
        return 1;
    }

    // A partial path ends in a point and yields every parameter below it.
    std::vector<TOstelApplication::TOstelAppParam> params;
    tOstelReturnCode code = application.GetParam("Device.Time.", params);
    if (code != RC_SUCCESS) {
        return Fail("Device.Time.", code);
    }
    for (const auto& param : params) {
        std::printf("%s = %s\n", param.name.c_str(), param.value.c_str());
    }

    // Staged first; nobody sees it before the commit.
    code = application.SetParam(THIRD_SERVER, server, false);
    if (code == RC_SUCCESS) {
        code = application.Commit();
    }
    if (code != RC_SUCCESS) {
        return Fail(THIRD_SERVER, code);
    }
    std::string value;
    code = application.GetParam(THIRD_SERVER, value);
    if (code != RC_SUCCESS) {
        return Fail(THIRD_SERVER, code);
    }
    std::printf("now %s = %s\n", THIRD_SERVER.c_str(), value.c_str());
    return 0;
}
