/*
 * The flat interface to the application object, for C99 and C++.
 *
 * Conventions:
 * 1. Texts in records are fixed fields of 256 bytes. What the library writes there is cut at 255
 *    characters, ends in NUL, and is followed by zeros; what it reads there may fill all 256 bytes.
 * 2. The application owns the records. Arrays and buffers inside them are allocated by the library
 *    and released by the ...Release... function of the record, never with free or delete. A record
 *    starts zeroed; what an operation refills is released first, unless it says otherwise.
 * 3. Results are tOstelReturnCode values: RC_INVALID_ARGUMENT for a null record or text,
 *    RC_RUNTIME_ERROR for what went wrong inside (logged), otherwise what the data-model service
 *    answers. On a result other than RC_SUCCESS the arrays of a record are as they were.
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
 * ostelAppLibTerm, which wait for the notification to end. */
typedef void (*tOstelAppLibClientDeviceStateCallback)(tOstelAppClientDeviceState state,
                                                      const char* macAddress, const char* hostName);
typedef void (*tOstelAppLibDataModelChangeCallback)(const char* name, const char* value);
typedef void (*tOstelAppLibSoftwareUpdateCallback)(const char* url);

/* Life cycle: connects to the bus as the client. Further calls after a success change nothing. */
OSTEL_API tOstelReturnCode ostelAppLibInit(tOstelClientId clientId);
/* Ends the delivery of notifications; requests still work. */
OSTEL_API tOstelReturnCode ostelAppLibTerm(void);

/* Replaces all three callbacks; any of them may be null. */
OSTEL_API void ostelAppLibSubscribe(tOstelAppLibClientDeviceStateCallback clientDeviceState,
                                    tOstelAppLibDataModelChangeCallback dataModelChange,
                                    tOstelAppLibSoftwareUpdateCallback softwareUpdate);
/* Once it has returned, no callback runs any more. */
OSTEL_API void ostelAppLibUnsubscribe(void);

OSTEL_API void ostelAppLibSetLogLevelError(void);
OSTEL_API void ostelAppLibSetLogLevelNotice(void);
OSTEL_API void ostelAppLibSetLogLevelDebug(void);

/* Parameters. Without `commit` a written value waits for ostelAppLibCommit. */
OSTEL_API tOstelReturnCode ostelAppLibCommit(void);
OSTEL_API tOstelReturnCode ostelAppLibSetParam(const tOstelAppLibParam* param, bool commit);
/* A single parameter comes in `value`, with isArray as it was; none or several come in `array`,
 * with isArray set. Release with ostelAppLibReleaseParamRequest. */
OSTEL_API tOstelReturnCode ostelAppLibGetParam(tOstelAppLibParamRequest* request);
/* Refills the array. Release with ostelAppLibReleaseParamArray. */
OSTEL_API tOstelReturnCode ostelAppLibGetParamArray(tOstelAppLibParamArray* array);
OSTEL_API tOstelReturnCode ostelAppLibSetParamArray(const tOstelAppLibParamArray* array,
                                                    bool commit);

/* Objects. */
/* Asks for the named parameters of the object and refills `params`. Release with
 * ostelAppLibReleaseObjectRequest. */
OSTEL_API tOstelReturnCode ostelAppLibGetObject(tOstelAppLibObjectRequest* request);
OSTEL_API tOstelReturnCode ostelAppLibSetObject(const tOstelAppLibObjectRequest* request,
                                                bool commit);
OSTEL_API tOstelReturnCode ostelAppLibAddObjectInstance(const char* object, uint32_t* instance);
OSTEL_API tOstelReturnCode ostelAppLibDelObjectInstance(const char* instance);
/* Refills `ids`. Release with ostelAppLibReleaseObjectIdsRequest. */
OSTEL_API tOstelReturnCode ostelAppLibGetObjectIds(tOstelAppLibObjectIdsRequest* request);
/* Overwrites `maps` without releasing it. Release with ostelAppLibReleaseIndexMapRequest. */
OSTEL_API tOstelReturnCode ostelAppLibGetIndexMapping(tOstelAppLibIndexMapRequest* request);

OSTEL_API void ostelAppLibSendEvent(const char* name, const char* data);

/* Values of any length. */
/* Overwrites `value` without releasing it: release an earlier one first. Release with
 * ostelAppLibReleaseLongParamRequest. */
OSTEL_API tOstelReturnCode ostelAppLibGetLongParam(tOstelAppLibLongParamRequest* request);
/* Reads `value` up to its NUL, at most `size` bytes. */
OSTEL_API tOstelReturnCode ostelAppLibSetLongParam(const tOstelAppLibLongParamRequest* request,
                                                   bool commit);

/* Requests to the other unit that `remote` names by its address: one connection each, over mutual
 * TLS where this unit has certificates (see TOstelApplication.h, also for when it goes
 * unencrypted). RC_SUCCESS or RC_FAILURE only; a null argument is an RC_FAILURE, too. There is no
 * time limit on a unit that accepts and says nothing. */
/* A single parameter comes in `name` and `value`; several come in `array`, with isArray set; none
 * leave the record as it was. Release with ostelAppLibReleaseParamRequest. */
OSTEL_API tOstelReturnCode ostelAppLibGetParamRemote(tOstelAppLibParamRequest* request);
OSTEL_API tOstelReturnCode ostelAppLibSetParamRemote(const tOstelAppLibParamRequest* request,
                                                     bool commit);
OSTEL_API tOstelReturnCode ostelAppLibCommitRemote(const char* remote);
/* Releases `value` and fills it with the file of that name; `size` is the file's, without a NUL.
 * Release with ostelAppLibReleaseLongParamRemote. */
OSTEL_API tOstelReturnCode ostelAppLibGetFileRemote(tOstelAppLibLongParamRequest* request);

/* Allocation and release; a null record is left alone. Allocating releases what was there; the new
 * elements are not cleared. What cannot be allocated leaves the record empty: null and 0. */
OSTEL_API void ostelAppLibAllocateParamArray(tOstelAppLibParamArray* array, uint32_t count);
OSTEL_API void ostelAppLibReleaseParamArray(tOstelAppLibParamArray* array);
OSTEL_API void ostelAppLibAllocateParamArrayRequest(tOstelAppLibParamArray* array, uint32_t count);
OSTEL_API void ostelAppLibReleaseParamArrayRequest(tOstelAppLibParamArray* array);
OSTEL_API void ostelAppLibReleaseParamRequest(tOstelAppLibParamRequest* request);
OSTEL_API void ostelAppLibAllocateLongParamRequest(tOstelAppLibLongParamRequest* request,
                                                   uint32_t size);
OSTEL_API void ostelAppLibReleaseLongParamRequest(tOstelAppLibLongParamRequest* request);
OSTEL_API void ostelAppLibReleaseLongParamRemote(tOstelAppLibLongParamRequest* request);
OSTEL_API void ostelAppLibAllocateObjectRequest(tOstelAppLibObjectRequest* request, uint32_t count);
OSTEL_API void ostelAppLibReleaseObjectRequest(tOstelAppLibObjectRequest* request);
OSTEL_API void ostelAppLibAllocateObjectIdsRequest(tOstelAppLibObjectIdsRequest* request,
                                                   uint32_t count);
OSTEL_API void ostelAppLibReleaseObjectIdsRequest(tOstelAppLibObjectIdsRequest* request);
/* Leaves `maps` and `count` as they were: the record is not to be used again before the next
 * ostelAppLibGetIndexMapping. */
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
