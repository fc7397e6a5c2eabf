/*
 * The enumerations that applications, the data model and the flat interface share. Usable from C.
 * The values, and the names as texts, travel between processes: neither may change.
 * TOstelDataMapper converts between value and name.
 */
#ifndef T_OSTEL_TYPES_H
#define T_OSTEL_TYPES_H

/* In C++ too, every int is a value of the enumeration: unknown codes come in from other processes.
 */
#ifdef __cplusplus
#define OSTEL_ENUM_BASE : int
#else
#define OSTEL_ENUM_BASE
#endif

/* The identity of an application process: its bus name, logger name and own data-model subtree. */
typedef enum tOstelClientId OSTEL_ENUM_BASE {
    OSTEL_MANAGER = 0,
    OSTEL_KTA = 1,
    OSTEL_MVA = 2,
    OSTEL_SPEEDTEST = 3,
    OSTEL_DISPATCHER = 4,
    OSTEL_APP_SIMULATOR = 5,
    OSTEL_SOFTWARE_UPDATER = 6,
    OSTEL_QUR_AGENT = 7,
    OSTEL_LOGGING_MANAGER = 8,
    OSTEL_TIRO = 9,
    OSTEL_TOPOLOGY = 10,
    OSTEL_REMOTE = 11,
    OSTEL_FENA = 12,
    OSTEL_SYNC = 13,
    OSTEL_HEALTH_MONITOR = 14,
    OSTEL_CLI = 15,
    OSTEL_LED_CONTROL = 16,
    OSTEL_DATA_PROBER = 17
} tOstelClientId;

/* The result of a data-model operation. */
typedef enum tOstelReturnCode OSTEL_ENUM_BASE {
    RC_FAILURE = -1,
    RC_SUCCESS = 0,
    RC_INVALID_ARGUMENT = 1,
    RC_BUFFER_OVERFLOW = 2,
    RC_RUNTIME_ERROR = 3,
    RC_INVALID_PARAM_NAME = 4,
    RC_INVALID_PARAM_VALUE = 5,
    RC_NOT_FOUND = 6,
    RC_NOT_SUPPORTED = 7
} tOstelReturnCode;

/* Events of the platform; each one's name is the name of the signal that carries it. */
typedef enum tOstelPltEventType OSTEL_ENUM_BASE {
    EVENT_TYPE_CLIENT_CONNECTED = 0,
    EVENT_TYPE_CLIENT_RECONNECTED = 1,
    EVENT_TYPE_CLIENT_DISCONNECTED = 2,
    EVENT_TYPE_CLIENT_UNAUTH_ATTEMPT = 3,
    EVENT_TYPE_CLIENT_BLOCKED_ATTEMPT = 4,
    EVENT_TYPE_PARAM_CHANGED = 5,
    EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT = 6
} tOstelPltEventType;

/* Events between applications. */
typedef enum tOstelAppEventType OSTEL_ENUM_BASE {
    APP_EVENT_TYPE_SOFTWARE_UPDATER_DONE = 0
} tOstelAppEventType;

/* The state of a client device on the LAN. */
typedef enum tOstelAppClientDeviceState OSTEL_ENUM_BASE {
    CLIENT_DEVICE_CONNECTED = 0,
    CLIENT_DEVICE_RECONNECTED = 1,
    CLIENT_DEVICE_DISCONNECTED = 2,
    CLIENT_DEVICE_UNAUTH_ATTEMPT = 3,
    CLIENT_DEVICE_BLOCKED_ATTEMPT = 4
} tOstelAppClientDeviceState;

#endif
