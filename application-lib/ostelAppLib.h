/*
 * The flat interface to the application object, for C99 and C++.
 *
 * Conventions:
 * 1. Texts are UTF-8; what is not goes out as a null. In records they are fixed fields of 256
 *    bytes. What the library writes there is cut at 255 bytes, be it in the middle of a character,
 *    ends in NUL, and is followed by zeros; what it reads there may fill all 256 bytes.
 * 2. The application owns the records. Arrays and buffers inside them are allocated by the library
 *    and released by the ...Release... function of the record, never with free or delete. A record
 *    starts zeroed; what an operation refills is released first, unless it says otherwise.
 * 3. Results are tOstelReturnCode values: RC_INVALID_ARGUMENT for a null record or text,
 *    RC_RUNTIME_ERROR for what went wrong inside and RC_FAILURE when nobody answered or a remote
 *    request failed (logged), otherwise what the data-model service answers, which may be any of
 *    them. On a result other than RC_SUCCESS a record is as it was.
 * 4. Any thread may call; a request blocks its caller for the round trip. A record is used by one
 *    thread at a time.
 * 5. No C++ exception leaves these functions.
 */
#ifndef OSTEL_APP_LIB_H
#define OSTEL_APP_LIB_H

#include <stdbool.h>
#include <stdint.h>

#include "OstelApi.h"
#include "tOstelTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

#define OSTEL_APP_LIB_TEXT_SIZE 256

typedef struct tOstelAppLibParam {
    char name[OSTEL_APP_LIB_TEXT_SIZE];
    char value[OSTEL_APP_LIB_TEXT_SIZE];
} tOstelAppLibParam;

typedef struct tOstelAppLibParamArray {
    tOstelAppLibParam* params;
    uint32_t count;
} tOstelAppLibParamArray;

/* One parameter, or with isArray set the several that a partial path yields. */
typedef struct tOstelAppLibParamRequest {
    char name[OSTEL_APP_LIB_TEXT_SIZE];
    char value[OSTEL_APP_LIB_TEXT_SIZE];
    tOstelAppLibParamArray array;
    bool isArray;
    char remote[OSTEL_APP_LIB_TEXT_SIZE] __attribute__((aligned(4))); /* address of a unit */
} tOstelAppLibParamRequest;

/* A value of any length; `size` counts the NUL at its end. */
typedef struct tOstelAppLibLongParamRequest {
    char name[OSTEL_APP_LIB_TEXT_SIZE];
    char* value;
    uint32_t size;
    char remote[OSTEL_APP_LIB_TEXT_SIZE]; /* address of a unit */
} tOstelAppLibLongParamRequest;

typedef struct tOstelAppLibObjectRequest {
    char name[OSTEL_APP_LIB_TEXT_SIZE]; /* object path */
    tOstelAppLibParamArray params;
} tOstelAppLibObjectRequest;

typedef struct tOstelAppLibObjectIdsRequest {
    char name[OSTEL_APP_LIB_TEXT_SIZE]; /* object path */
    int32_t* ids;
    uint32_t count;
} tOstelAppLibObjectIdsRequest;

typedef struct tOstelAppLibIndexPair {
    int32_t appIndex;
    int32_t platformIndex;
} tOstelAppLibIndexPair;

typedef struct tOstelAppLibIndexMap {
    char name[OSTEL_APP_LIB_TEXT_SIZE];
    tOstelAppLibIndexPair* pairs;
    uint32_t count;
} tOstelAppLibIndexMap;

typedef struct tOstelAppLibIndexMapRequest {
    tOstelAppLibIndexMap* maps;
    uint32_t count;
} tOstelAppLibIndexMapRequest;

/* Callbacks run on the library's worker thread, one at a time. Their texts are valid during the
 * call only. A callback may call any function of this header except ostelAppLibInit and
 * ostelAppLibTerm, which wait for the notification to end, and may end the process. */
typedef void (*tOstelAppLibClientDeviceStateCallback)(tOstelAppClientDeviceState state,
                                                      const char* macAddress, const char* hostName);
typedef void (*tOstelAppLibDataModelChangeCallback)(const char* name, const char* value);
typedef void (*tOstelAppLibSoftwareUpdateCallback)(const char* url);

/* Life cycle: connects to the bus as the client and starts the delivery of notifications. After a
 * success further calls do no more than to start the delivery again. */
OSTEL_API tOstelReturnCode ostelAppLibInit(tOstelClientId clientId);
/* Ends the delivery of notifications; requests still work. */
OSTEL_API tOstelReturnCode ostelAppLibTerm(void);

/* Replaces all three callbacks; any of them may be null. */
OSTEL_API void ostelAppLibSubscribe(tOstelAppLibClientDeviceStateCallback clientDeviceState,
                                    tOstelAppLibDataModelChangeCallback dataModelChange,
                                    tOstelAppLibSoftwareUpdateCallback softwareUpdate);
/* Once it has returned, no callback runs any more. */
OSTEL_API void ostelAppLibUnsubscribe(void);

/* How much this process logs, until the data model's logging parameters say otherwise: errors only;
 * warnings and notices, too; everything. */
OSTEL_API void ostelAppLibSetLogLevelError(void);
OSTEL_API void ostelAppLibSetLogLevelNotice(void);
OSTEL_API void ostelAppLibSetLogLevelDebug(void);

/* Parameters. Without `commit` what a function writes waits for ostelAppLibCommit; with it, all
 * that is waiting takes effect. */
OSTEL_API tOstelReturnCode ostelAppLibCommit(void);
/* Writes the one parameter of that full name. */
OSTEL_API tOstelReturnCode ostelAppLibSetParam(const tOstelAppLibParam* param, bool commit);
/* A single parameter comes in `value`, with isArray as it was; none or several come in `array`,
 * with isArray set. Release with ostelAppLibReleaseParamRequest. */
OSTEL_API tOstelReturnCode ostelAppLibGetParam(tOstelAppLibParamRequest* request);
/* Reads the named parameters in one request and refills the array with them, `count` being what
 * came. Release with ostelAppLibReleaseParamArray. */
OSTEL_API tOstelReturnCode ostelAppLibGetParamArray(tOstelAppLibParamArray* array);
/* Writes all elements in one request. */
OSTEL_API tOstelReturnCode ostelAppLibSetParamArray(const tOstelAppLibParamArray* array,
                                                    bool commit);

/* Objects: the names of their parameters are below the object's path, which ends in a point. */
/* Reads the named parameters of the object and refills `params`, which must have been allocated.
 * Release with ostelAppLibReleaseObjectRequest. */
OSTEL_API tOstelReturnCode ostelAppLibGetObject(tOstelAppLibObjectRequest* request);
/* Writes the parameters of the object in one request. */
OSTEL_API tOstelReturnCode ostelAppLibSetObject(const tOstelAppLibObjectRequest* request,
                                                bool commit);
/* Adds an instance to the table. `instance` receives its number, and keeps its value on a failure.
 */
OSTEL_API tOstelReturnCode ostelAppLibAddObjectInstance(const char* object, uint32_t* instance);
/* Deletes the instance of that path, such as "Device.NAT.PortMapping.3.". */
OSTEL_API tOstelReturnCode ostelAppLibDelObjectInstance(const char* instance);
/* Refills `ids` with the numbers of the table's instances. Release with
 * ostelAppLibReleaseObjectIdsRequest. */
OSTEL_API tOstelReturnCode ostelAppLibGetObjectIds(tOstelAppLibObjectIdsRequest* request);
/* The applications' own instance numbers and the platform's. Overwrites `maps` without releasing
 * it. Release with ostelAppLibReleaseIndexMapRequest. */
OSTEL_API tOstelReturnCode ostelAppLibGetIndexMapping(tOstelAppLibIndexMapRequest* request);

/* Tells every application on the bus, this one included. A null text or a failure is logged, and
 * shows nowhere else. */
OSTEL_API void ostelAppLibSendEvent(const char* name, const char* data);

/* Values of any length. */
/* Overwrites `value` without releasing it: release an earlier one first. Release with
 * ostelAppLibReleaseLongParamRequest. */
OSTEL_API tOstelReturnCode ostelAppLibGetLongParam(tOstelAppLibLongParamRequest* request);
/* Writes `value` up to its NUL. A buffer without one goes out as a whole, with a line in the log;
 * with a `size` of 0 there must be a NUL. A null `value` is an RC_INVALID_ARGUMENT. */
OSTEL_API tOstelReturnCode ostelAppLibSetLongParam(const tOstelAppLibLongParamRequest* request,
                                                   bool commit);

/* Requests to the other unit that `remote` names by its address: one connection each, over mutual
 * TLS where this unit has certificates (see TOstelApplication.h, also for when it goes
 * unencrypted). RC_SUCCESS or RC_FAILURE, which a null argument is, too; RC_RUNTIME_ERROR only when
 * memory runs out. There is no time limit on a unit that accepts and says nothing. */
/* A single parameter comes in `name` and `value`; several come in `array`, with isArray set; none
 * leave the record as it was, an earlier array included. Release with
 * ostelAppLibReleaseParamRequest. */
OSTEL_API tOstelReturnCode ostelAppLibGetParamRemote(tOstelAppLibParamRequest* request);
/* Writes the one parameter `name`. Without `commit` the value waits there for
 * ostelAppLibCommitRemote. */
OSTEL_API tOstelReturnCode ostelAppLibSetParamRemote(const tOstelAppLibParamRequest* request,
                                                     bool commit);
/* Has what waits on that unit take effect. */
OSTEL_API tOstelReturnCode ostelAppLibCommitRemote(const char* remote);
/* Releases `value` and fills it with the file of that name; `size` is the file's, without a NUL.
 * Release with ostelAppLibReleaseLongParamRemote. */
OSTEL_API tOstelReturnCode ostelAppLibGetFileRemote(tOstelAppLibLongParamRequest* request);

/* Allocation and release; a null record is left alone. Allocating releases what was there; the new
 * elements are not cleared. What cannot be allocated is logged and leaves the record empty: null
 * and 0. Releasing leaves it empty, too, and may be repeated. */
OSTEL_API void ostelAppLibAllocateParamArray(tOstelAppLibParamArray* array, uint32_t count);
OSTEL_API void ostelAppLibReleaseParamArray(tOstelAppLibParamArray* array);
/* The same two under the names that go with the other records. */
OSTEL_API void ostelAppLibAllocateParamArrayRequest(tOstelAppLibParamArray* array, uint32_t count);
OSTEL_API void ostelAppLibReleaseParamArrayRequest(tOstelAppLibParamArray* array);
/* Releases `array` and clears isArray. */
OSTEL_API void ostelAppLibReleaseParamRequest(tOstelAppLibParamRequest* request);
/* `size` bytes for `value`. Either function releases them. */
OSTEL_API void ostelAppLibAllocateLongParamRequest(tOstelAppLibLongParamRequest* request,
                                                   uint32_t size);
OSTEL_API void ostelAppLibReleaseLongParamRequest(tOstelAppLibLongParamRequest* request);
OSTEL_API void ostelAppLibReleaseLongParamRemote(tOstelAppLibLongParamRequest* request);
/* `count` elements for `params`. */
OSTEL_API void ostelAppLibAllocateObjectRequest(tOstelAppLibObjectRequest* request, uint32_t count);
OSTEL_API void ostelAppLibReleaseObjectRequest(tOstelAppLibObjectRequest* request);
/* `count` numbers for `ids`. */
OSTEL_API void ostelAppLibAllocateObjectIdsRequest(tOstelAppLibObjectIdsRequest* request,
                                                   uint32_t count);
OSTEL_API void ostelAppLibReleaseObjectIdsRequest(tOstelAppLibObjectIdsRequest* request);
/* Unlike the others leaves `maps` and `count` as they were: the record is not to be used, nor
 * released, again before the next ostelAppLibGetIndexMapping. */
OSTEL_API void ostelAppLibReleaseIndexMapRequest(tOstelAppLibIndexMapRequest* request);

#ifdef __cplusplus
}

#include <string>
#include <vector>

/* Does `name` match `pattern`, in which the first "*" stands for one path segment? On a match,
 * `index` (which may be null) receives the segment's number. Throws std::out_of_range for a pattern
 * without "*" and for a name without a point at or behind its place; std::invalid_argument or
 * std::out_of_range, as std::stoi does, when the segment is wanted and is not a number. */
OSTEL_API bool patternMatch(std::string pattern, std::string name, int* index);

/* Appends the number of every name that matches; throws as patternMatch does. */
OSTEL_API void getWildcardIndices(std::string pattern, std::vector<std::string> names,
                                  std::vector<int>& indices);
#endif

#endif
