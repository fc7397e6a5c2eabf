// Not installed: the settings of the bundled logging library and where they come from.
#ifndef ZT_SETTINGS_H
#define ZT_SETTINGS_H

#include <optional>
#include <string>

#include "zt_logging.h"

struct TZtSettings {
    int level = ZT_LOG_LEVEL_NOTICE;
    int destination = ZT_LOG_DESTINATION_SYSLOG;
    std::string file;
};

// The defaults, over them the settings file, over it the environment; nothing when any of it is
// wrong, which was then said on standard error.
std::optional<TZtSettings> ReadZtSettings();

bool IsZtLevel(int level);
bool IsZtDestination(int destination);

// One line on standard error: a logging library has no log to complain to.
void ZtComplain(const std::string& text);

#endif
