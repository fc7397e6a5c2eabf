#ifndef T_OSTEL_LOGGER_H
#define T_OSTEL_LOGGER_H

#include <chrono>
#include <string>

#include "IOstelDataModelChangeObserver.h"
#include "OstelApi.h"
#include "tOstelTypes.h"

class TOstelDataMapper;

// The process's handle on the device's logging library: starts it under the client's logger name
// and has it read its settings again when the client's own logging parameters change.
// Process-wide; the level and destination setters may be called from any thread at any time.
class OSTEL_API TOstelLogger : public IOstelDataModelChangeObserver {
public:
    // Logs how long a scope took: make one as the first local of a function. The file and the
    // function become part of a printf format, so they must be the compiler's, without any '%'.
    class OSTEL_API TExecutionTime {
    public:
        TExecutionTime(const char* file, int line, const char* function);
        TExecutionTime(const TExecutionTime&) = delete;
        TExecutionTime& operator=(const TExecutionTime&) = delete;
        ~TExecutionTime();

    private:
        std::string m_Message;
        std::chrono::system_clock::time_point m_Start;
        std::chrono::system_clock::time_point m_End;
    };

    static TOstelLogger* GetInstance();

    TOstelLogger(const TOstelLogger&) = delete;
    TOstelLogger& operator=(const TOstelLogger&) = delete;
    ~TOstelLogger() override;

    void OnDataModelParamChanged(const std::string& name, const std::string& value) override;

    // An unknown client is logged, and the logger stays as it was.
    void Init(tOstelClientId id);

    // Each returns what the logging library returns.
    static int SetLevelError();
    static int SetLevelNotice();
    static int SetLevelDebug();
    static int SetDestinationStdout();
    static int SetDestinationSysLog();
    static int SetDestinationFile();

private:
    TOstelLogger();

    TOstelDataMapper* m_DataMapper;
    std::string m_AppDataModel;
};

#endif
