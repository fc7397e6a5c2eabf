// The settings of the logging library: the file and the environment.
#include <array>

#include "Fuzz.h"
#include "ZtSettings.h"

namespace {

const std::array<const char*, 3> VARIABLES = {"ZT_LOGGING_LEVEL", "ZT_LOGGING_DESTINATION",
                                              "ZT_LOGGING_FILE"};

void SetEnvironment(Fuzz::TCursor& cursor) {
    for (const char* const name : VARIABLES) {
        setenv(name, cursor.Line().c_str(), 1);
    }
}

// Whether a setting is what the environment alone decides, when it does.
bool IsOverridden(const char* name, const std::string& value) {
    const char* const set = std::getenv(name);
    return set == nullptr || *set == '\0' || value == set;
}

bool IsOverridden(const char* name, int value) {
    const char* const set = std::getenv(name);
    if (set == nullptr || *set == '\0') {
        return true;
    }
    char* rest = nullptr;
    return std::strtol(set, &rest, 10) == value && *rest == '\0';
}

}  // namespace

// The values of the three variables, one a line, and the file.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Fuzz::TMemoryFile file;
    Fuzz::TCursor cursor(Fuzz::ToText(data, size));
    SetEnvironment(cursor);
    file.Write(cursor.Rest());
    setenv("ZT_LOGGING_SETTINGS", file.Path().c_str(), 1);
    const auto settings = ReadZtSettings();
    if (settings) {
        Fuzz::Require(settings->level >= 0 && settings->level <= 7, "a level is one of eight");
        Fuzz::Require(settings->destination >= 0 && settings->destination <= 14 &&
                          settings->destination % 2 == 0,
                      "a destination is a sum of three");
        Fuzz::Require(settings->file.find('\0') == std::string::npos,
                      "a file that is opened is the one that was named");
        Fuzz::Require(IsOverridden("ZT_LOGGING_LEVEL", settings->level) &&
                          IsOverridden("ZT_LOGGING_DESTINATION", settings->destination) &&
                          IsOverridden("ZT_LOGGING_FILE", settings->file),
                      "the environment goes before the file");
    }
    return 0;
}
