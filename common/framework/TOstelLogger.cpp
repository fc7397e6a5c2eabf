#include "TOstelLogger.h"

#include <cstdio>
#include <stdexcept>

#include "TOstelDataMapper.h"
#include "zt_logging.h"

TOstelLogger::TExecutionTime::TExecutionTime(const char* file, int line, const char* function)
    : m_Start(std::chrono::system_clock::now()), m_End(m_Start) {
    char prefix[512];
    std::snprintf(prefix, sizeof prefix, "[%s:%d][%s]: ", file, line, function);
    m_Message = prefix;
}

TOstelLogger::TExecutionTime::~TExecutionTime() {
    m_End = std::chrono::system_clock::now();
    const auto ticks = std::chrono::nanoseconds(m_End - m_Start).count();
    const double milliseconds = (static_cast<double>(ticks) / 1000000000.0) * 1000.0;
    m_Message += "Execution time = %.3f ms";
    // The call sites' file and function names are the start of the format; they hold no '%'.
    ztLogging_log(ZT_LOG_LEVEL_DEBUG, m_Message.c_str(), milliseconds);
}

TOstelLogger* TOstelLogger::GetInstance() {
    static TOstelLogger instance;
    return &instance;
}

TOstelLogger::TOstelLogger() : m_DataMapper(TOstelDataMapper::GetInstance()) {}

TOstelLogger::~TOstelLogger() {
    ztLogging_logTerm();
}

void TOstelLogger::OnDataModelParamChanged(const std::string& name, const std::string&) {
    if (m_AppDataModel.empty() || name.find(m_AppDataModel) == std::string::npos) {
        return;
    }
    // Measured from the start of the name, wherever the prefix stands in it: a name that holds the
    // prefix further on is another application's, and must not reload this one's settings.
    const std::string setting = name.substr(m_AppDataModel.length());
    if (setting == "Logging.Level" || setting == "Logging.Destination" ||
        setting == "Logging.DestinationLevel") {
        ztLogging_logSync();
    }
}

void TOstelLogger::Init(tOstelClientId id) {
    try {
        m_AppDataModel = m_DataMapper->MapClientIdToAppDataModel(id);
        ztLogging_logInit(m_DataMapper->MapClientIdToLoggerName(id));
    } catch (const std::runtime_error& error) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s", error.what());
    }
}

int TOstelLogger::SetLevelError() {
    return ztLogging_setLogLevel(ZT_LOG_LEVEL_ERROR);
}
int TOstelLogger::SetLevelNotice() {
    return ztLogging_setLogLevel(ZT_LOG_LEVEL_NOTICE);
}
int TOstelLogger::SetLevelDebug() {
    return ztLogging_setLogLevel(ZT_LOG_LEVEL_DEBUG);
}

int TOstelLogger::SetDestinationStdout() {
    return ztLogging_setLogDestination(ZT_LOG_DESTINATION_STDOUT);
}

int TOstelLogger::SetDestinationSysLog() {
    return ztLogging_setLogDestination(ZT_LOG_DESTINATION_SYSLOG);
}

int TOstelLogger::SetDestinationFile() {
    return ztLogging_setLogDestination(ZT_LOG_DESTINATION_FILE);
}
