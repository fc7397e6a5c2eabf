/*
 * The device's logging library. This header and the bundled stand-in behind it exist so that
 * applications run on any PC; on the device the closed library of the same name takes its place.
 *
 * Every function may be called from any thread, before ztLogging_logInit and after
 * ztLogging_logTerm too. Functions with a result return 0 on success and -1 on failure.
 */
#ifndef ZT_LOGGING_H
#define ZT_LOGGING_H

#define ZT_LOGGING_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* Levels of ztLogging_log and ztLogging_setLogLevel. */
#define ZT_LOG_LEVEL_ERROR 2
#define ZT_LOG_LEVEL_WARNING 3
#define ZT_LOG_LEVEL_NOTICE 4
#define ZT_LOG_LEVEL_INFO 5
#define ZT_LOG_LEVEL_DEBUG 6

/* Destinations of ztLogging_setLogDestination; they may be combined. */
#define ZT_LOG_DESTINATION_STDOUT 2
#define ZT_LOG_DESTINATION_SYSLOG 4
#define ZT_LOG_DESTINATION_FILE 8

/* Starts logging under a logger name; the text is copied. */
ZT_LOGGING_API int ztLogging_logInit(const char* loggerName);

/* Ends logging; what is logged afterwards goes out under no logger name. */
ZT_LOGGING_API void ztLogging_logTerm(void);

/* Reads the settings again. */
ZT_LOGGING_API int ztLogging_logSync(void);

ZT_LOGGING_API int ztLogging_setLogLevel(int level);
ZT_LOGGING_API int ztLogging_setLogDestination(int destination);

/* Writes one line. `format` is a printf format; the line needs no line feed of its own. */
ZT_LOGGING_API void ztLogging_log(int level, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

#ifdef __cplusplus
}
#endif

#endif
