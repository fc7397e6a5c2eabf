#include "ZtSettings.h"

#include <unistd.h>

#include <array>
#include <charconv>
#include <cstdlib>
#include <fstream>
#include <string_view>
#include <utility>

namespace {

constexpr int HIGHEST_LEVEL = 7;
constexpr int ALL_DESTINATIONS =
    ZT_LOG_DESTINATION_STDOUT | ZT_LOG_DESTINATION_SYSLOG | ZT_LOG_DESTINATION_FILE;

std::optional<int> ParseNumber(const std::string& text) {
    int number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && rest == end ? std::optional<int>(number) : std::nullopt;
}

bool SetOne(TZtSettings& settings, const std::string& key, const std::string& value) {
    // Of a path with a zero byte in it, only what stands before would be opened.
    if (key == "file" && value.find('\0') == std::string::npos) {
        settings.file = value;
        return true;
    }
    const std::optional<int> number = ParseNumber(value);
    if (key == "level" && number && IsZtLevel(*number)) {
        settings.level = *number;
        return true;
    }
    if (key == "destination" && number && IsZtDestination(*number)) {
        settings.destination = *number;
        return true;
    }
    return false;
}

std::string Trimmed(const std::string& text) {
    const char* const blanks = " \t\r";
    const std::size_t first = text.find_first_not_of(blanks);
    return first == std::string::npos
               ? std::string()
               : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool ReadLine(TZtSettings& settings, const std::string& line) {
    if (line.empty() || line.front() == '#') {
        return true;
    }
    const std::size_t equals = line.find('=');
    return equals != std::string::npos &&
           SetOne(settings, Trimmed(line.substr(0, equals)), Trimmed(line.substr(equals + 1)));
}

bool ReadFile(TZtSettings& settings, const std::string& path) {
    std::ifstream file(path);
    std::string line;
    int number = 0;
    while (std::getline(file, line)) {
        ++number;
        if (!ReadLine(settings, Trimmed(line))) {
            ZtComplain(path + ":" + std::to_string(number) +
                       ": not a setting; the settings stay as they were");
            return false;
        }
    }
    // A folder opens, too, and only its first read fails.
    if (!file.is_open() || file.bad()) {
        ZtComplain(path + ": cannot be read; the settings stay as they were");
        return false;
    }
    return true;
}

std::string Environment(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

bool ReadEnvironment(TZtSettings& settings) {
    static constexpr std::array<std::pair<const char*, const char*>, 3> VARIABLES = {
        {{"ZT_LOGGING_LEVEL", "level"},
         {"ZT_LOGGING_DESTINATION", "destination"},
         {"ZT_LOGGING_FILE", "file"}}};
    for (const auto& [name, key] : VARIABLES) {
        const std::string value = Environment(name);
        if (!value.empty() && !SetOne(settings, key, value)) {
            ZtComplain(name + ("=" + value) + ": not a setting; the settings stay as they were");
            return false;
        }
    }
    return true;
}

}  // namespace

std::optional<TZtSettings> ReadZtSettings() {
    TZtSettings settings;
    const std::string path = Environment("ZT_LOGGING_SETTINGS");
    const bool good = (path.empty() || ReadFile(settings, path)) && ReadEnvironment(settings);
    return good ? std::optional<TZtSettings>(settings) : std::nullopt;
}

bool IsZtLevel(int level) {
    return level >= 0 && level <= HIGHEST_LEVEL;
}

bool IsZtDestination(int destination) {
    return (destination & ~ALL_DESTINATIONS) == 0;
}

void ZtComplain(const std::string& text) {
    const std::string line = "zt_logging: " + text + "\n";
    // Where even this cannot be said, there is nobody left to tell.
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
}
