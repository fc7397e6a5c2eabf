#ifndef T_OSTEL_APPLICATION_H
#define T_OSTEL_APPLICATION_H

#include <atomic>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "IOstelAppStateObserver.h"
#include "IOstelDataModelChangeObserverRemote.h"
#include "OstelApi.h"
#include "TOstelEventListener.h"
#include "TOstelIpc.h"
#include "tOstelTypes.h"

class TOstelJsonObject;
class TOstelLogger;
struct ssl_ctx_st;

// The one object through which an application reads, writes and watches the device's data model.
//
// Each operation blocks its caller for the round trip to the data-model service and may be called
// from any thread. It returns the service's code; RC_RUNTIME_ERROR when the bus or a document
// failed, and RC_FAILURE when nobody answered, both of which are logged. A service that fails by
// itself answers RC_FAILURE, too. Where memory runs out it throws std::bad_alloc.
//
// The order of the virtual operations and of the members is part of the binary interface.
class OSTEL_API TOstelApplication : public IOstelIpcMethodHandler, public TOstelEventListener {
public:
    struct TOstelAppParam {
        std::string name;
        std::string value;
    };

    // Lives from the first call until the process exits. Its requests must have ended by then: join
    // the threads that make them before main returns.
    static TOstelApplication* GetInstance();

    TOstelApplication(const TOstelApplication&) = delete;
    TOstelApplication& operator=(const TOstelApplication&) = delete;

    // Answers the other applications' question whether this one is active.
    int OnMethodCall(const std::string& method, const std::string& request,
                     std::string& reply) override;
    ~TOstelApplication() override;

    // Connects to the bus under the client's name and starts to receive. Does nothing once it has
    // succeeded; a failure is logged, and a later call tries again. A connection that is lost later
    // stays lost: requests fail from then on, and only a new process connects anew.
    void Initialize(tOstelClientId client);

    bool IsInitialized() const { return m_Initialized; }

    std::string GetVersion();

    // `name` is a parameter or a partial path, which ends in a point and yields every parameter
    // below it.
    tOstelReturnCode GetParam(const std::string& name, std::vector<TOstelAppParam>& params);
    // The first of the parameters; `value` is left alone when there is none.
    tOstelReturnCode GetParam(const std::string& name, std::string& value);
    // Puts the reply's array of parameters under "PARAMS", as it came; an empty one when the reply
    // has none.
    tOstelReturnCode GetParam(const std::string& name, TOstelJsonObject& result);
    // Without `commit` the value waits for Commit.
    tOstelReturnCode SetParam(const std::string& name, const std::string& value, bool commit);
    tOstelReturnCode Commit();

    // The parameters named in `params`, in one request; the reply's list replaces them.
    tOstelReturnCode GetParamArray(std::vector<TOstelAppParam>& params);
    // One list of (name, value) pairs for each requested name. A "*" in a name stands for an
    // instance number. `results` is untouched unless the result is RC_SUCCESS.
    tOstelReturnCode GetParamArray(
        const std::vector<std::string>& names,
        std::vector<std::vector<std::pair<std::string, std::string>>>& results);
    tOstelReturnCode SetParamArray(const std::vector<TOstelAppParam>& params, bool commit);

    // As the array operations, with names below the object `root`.
    tOstelReturnCode GetObject(const std::string& root, std::vector<TOstelAppParam>& params);
    tOstelReturnCode SetObject(const std::string& root, const std::vector<TOstelAppParam>& params,
                               bool commit);
    // These three add to their output; pass it empty to have the reply's content only.
    tOstelReturnCode GetObjectIds(const std::string& object, std::vector<int>& ids);
    tOstelReturnCode GetObjectTree(const std::string& object, std::vector<std::string>& names);
    // An application's own instance numbers and the platform's, in pairs, by data-model name.
    tOstelReturnCode GetIndexMap(
        std::unordered_map<std::string, std::vector<std::pair<int, int>>>& map);
    // `id` is the new instance's number.
    tOstelReturnCode AddObject(const std::string& object, int& id);
    tOstelReturnCode RemoveObject(const std::string& instance);

    // The parameters of a reply's "PARAMS", and back.
    void PopulateParamArray(const TOstelJsonObject& reply, std::vector<TOstelAppParam>& params);
    void ParamArrayToJson(const std::vector<TOstelAppParam>& params, TOstelJsonObject& json);

    // Read once; empty when it could not be read, and a later call tries again.
    std::string GetUnitSerialNumber();

    // Asks another application, by its client name, for at most a second. `active` is left alone
    // when the name is empty or the bus fails.
    tOstelReturnCode IsAppActive(const std::string& appName, bool& active);

    // A failure is logged.
    void SendEvent(const std::string& name, const std::string& data);

    void AddAppStateChangeObserver(IOstelAppStateObserver* observer);
    void RemoveAppStateChangeObserver(IOstelAppStateObserver* observer);
    void NotifyAppStateChangeObservers(IOstelAppStateObserver::TOstelAppState state,
                                       const std::string& appName);
    void OnAppStateChange(const std::string& eventName, const std::string& eventData);

    void NotifyDataModelChangeObserversRemote(const std::string& name, const std::string& value,
                                              const std::string& serialNumber);
    void OnRemoteDataModelChange(const std::string& eventName, const std::string& eventData);

    // Requests to another unit, by its IP address: one connection each, on the calling thread, with
    // no time-out of its own for a peer that says nothing. They return RC_SUCCESS or RC_FAILURE and
    // nothing else, log each failure, and may come from several threads. An IPv6 address is
    // understood, but cannot be connected to.
    //
    // They are encrypted, and the peer's certificate is verified, when this unit's certificates are
    // in place. Otherwise they go out all the same:
    //   - in PLAIN TEXT when certificate or key cannot be loaded; each request then logs "Failed to
    //     init SSL" behind "Unable to load Cert", "Unable to load Key", "Private key does not match
    //     the certificate public key" or "Unable to create SSL context";
    //   - encrypted, but to ANYBODY, when only the root cannot be loaded; the log says so once,
    //     with "Client: SSL Failed to load certs. Error 0" and "Failed to init SSL".
    // To rule both out, call EnableSecureRemote first and go no further when it returns false.

    // Where "ostel.cert.pem", "ostel.key.pem" and "ostelRoot.cert.pem" are; ends in "/". Looked at
    // while there are no certificates in use yet.
    void SetCertPath(const std::string& path);
    // Loads PEM files, in place of those in use, which requests under way still go on with.
    bool EnableSecureRemote(const std::string& cert, const std::string& key,
                            const std::string& root);

    // Sends a document as it is. `reply` is the answer's, of at most 4096 bytes; `binary`, which
    // may be null, takes the bytes that follow it, at most 1048575. False when there is no complete
    // answer; what it holds does not matter here.
    bool PerformRemoteRequest(const std::string& request, const std::string& host,
                              std::string& reply, std::vector<char>* binary);

    tOstelReturnCode CommitRemote(const std::string& host);
    tOstelReturnCode GetParamRemote(const std::string& host, const std::string& name,
                                    std::vector<TOstelAppParam>& params);
    tOstelReturnCode SetParamRemote(const std::string& host, const std::string& name,
                                    const std::string& value, bool commit);
    tOstelReturnCode GetFileRemote(const std::string& host, const std::string& fileName,
                                   std::vector<char>& data);
    tOstelReturnCode SendEventRemote(const std::string& host, const std::string& name,
                                     const std::string& data);

    // Subscribes to the parameters named in `params`, which then holds the peer's current values.
    // Changes come as requests to this unit's gateway, at the address the peer saw this one come
    // from. The observer is not owned. No observer of this object is told anything while this waits
    // for the peer, so it must not be called from inside a notification.
    tOstelReturnCode AddDataModelChangeObserverRemote(
        const std::string& host, std::vector<TOstelAppParam>& params,
        IOstelDataModelChangeObserverRemote* observer);
    // The peer ends its deliveries of these names to this unit, whoever else observes them here.
    tOstelReturnCode RemoveDataModelChangeObserverRemote(
        const std::string& host, const std::vector<std::string>& names,
        IOstelDataModelChangeObserverRemote* observer);

private:
    class TAppStateChangeHandler;
    class TRemoteDataModelChangeHandler;

    TOstelApplication();

    tOstelReturnCode Call(const std::string& type, const TOstelJsonObject& request,
                          std::string& reply);
    tOstelReturnCode Call(const std::string& type, const TOstelJsonObject& request);
    bool CallRemote(const std::string& host, const TOstelJsonObject& request,
                    TOstelJsonObject& reply);

    std::atomic<bool> m_Initialized;
    TOstelLogger* m_Logger;
    std::set<IOstelAppStateObserver*> m_AppStateObservers;
    std::map<IOstelDataModelChangeObserverRemote*, std::set<std::string>> m_RemoteObservers;
    std::string m_UnitSerialNumber;
    std::string m_CertificateDirectory;
    ssl_ctx_st* m_TlsContext;
};

#endif
