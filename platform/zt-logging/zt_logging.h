/*
 * The device's logging library. This header and the bundled stand-in behind it exist so that
 * applications run on any PC; on the device the closed library of the same name takes its place.
 *
 * Every function may be called from any thread, before ztLogging_logInit and after
 * ztLogging_logTerm too. Functions with a result return 0 on success and -1 on failure; after a
 * failure the settings are what they were before. Texts are copied.
 *
 * The stand-in has three settings:
 *
 *   key          environment variable     values                              default
 *   level        ZT_LOGGING_LEVEL         0 to 7; higher levels are dropped   4 (notice)
 *   destination  ZT_LOGGING_DESTINATION   a sum of 2, 4 and 8; 0 is nowhere   4 (system log)
 *   file         ZT_LOGGING_FILE          path of the log file, appended to   none
 *
 * They are read when the library is first used and at each ztLogging_logSync: the defaults, over
 * them the "key = value" lines of the file that ZT_LOGGING_SETTINGS names ("#" starts a comment
 * line), over those the variables above. An empty variable counts as unset. The setters change a
 * setting until the next ztLogging_logSync. What is wrong with the settings is said on standard
 * error. By default nothing goes to standard output, which belongs to the program: what it prints
 * may be read by another one.
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

/* Starts logging under a logger name. */
ZT_LOGGING_API int ztLogging_logInit(const char* loggerName);

/* Ends logging; what is logged afterwards goes out under no logger name. */
ZT_LOGGING_API void ztLogging_logTerm(void);

/* Reads the settings again, and opens the log file again, so that it can be moved away. */
ZT_LOGGING_API int ztLogging_logSync(void);

ZT_LOGGING_API int ztLogging_setLogLevel(int level);

/* The file destination needs a file among the settings. */
ZT_LOGGING_API int ztLogging_setLogDestination(int destination);

/*
 * Writes one line, whole, whatever its length. `format` is a printf format; the line needs no line
 * feed of its own, and control characters inside it are written as escapes. Leaves errno alone.
 */
ZT_LOGGING_API void ztLogging_log(int level, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

#ifdef __cplusplus
}
#endif

#endif
