#ifndef APPLICATION_H
#define APPLICATION_H

#include <stdexcept>
#include <string>

#include "TOstelApplication.h"

// The library under measurement, on the bus as an application is.
inline TOstelApplication& Application() {
    TOstelApplication& application = *TOstelApplication::GetInstance();
    application.Initialize(OSTEL_APP_SIMULATOR);
    if (!application.IsInitialized()) {
        throw std::runtime_error("the bus does not admit the application");
    }
    return application;
}

inline void Require(tOstelReturnCode code) {
    if (code != RC_SUCCESS) {
        throw std::runtime_error("the library failed with " + std::to_string(code));
    }
}

inline const std::string PARAMETER = "Device.DeviceInfo.SerialNumber";

inline std::string Request() {
    return R"({"NAME":")" + PARAMETER + R"("})";
}

// What a dispatcher answers when the parameter has this value.
inline std::string Reply(const std::string& value) {
    return R"({"PARAMS":[{"NAME":")" + PARAMETER + R"(","VALUE":")" + value + R"("}]})";
}

#endif
