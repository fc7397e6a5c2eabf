// Requests to other units, and subscriptions to their parameters. A request is one connection, on
// which the document goes out as it is; OstelRemoteResponse.cpp reads the answer.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "OstelDocuments.h"
#include "OstelLog.h"
#include "OstelRemoteResponse.h"
#include "TOstelApplication.h"
#include "TOstelJsonObject.h"
#include "TOstelRawSocket.h"
#include "TOstelSslSocket.h"
#include "zt_logging.h"

using OstelDocuments::Encode;
using OstelDocuments::Put;

namespace {

constexpr std::uint16_t PORT = 42042;

// The log is searched for the object's name, whichever of its sources writes.
const char* const MODULE = "application-lib/TOstelApplication";
const char* const PERFORM = "PerformRemoteRequest";

// Of the certificates in use. A unit that has none looks for them with each request, and so may
// several threads at once.
std::mutex s_ContextMutex;

struct TContextFree {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};
using TContext = std::unique_ptr<SSL_CTX, TContextFree>;

class TDescriptor {
public:
    explicit TDescriptor(int descriptor) : m_Descriptor(descriptor) {}
    TDescriptor(TDescriptor&& other) noexcept : m_Descriptor(other.Release()) {}
    TDescriptor& operator=(TDescriptor&&) = delete;
    ~TDescriptor() {
        if (m_Descriptor != -1) {
            close(m_Descriptor);
        }
    }

    int Get() const { return m_Descriptor; }
    int Release() { return std::exchange(m_Descriptor, -1); }

private:
    int m_Descriptor;
};

// A key with a pass phrase cannot be loaded; asking for it would wait at a terminal.
int NoPassPhrase(char*, int, int, void*) {
    return -1;
}

bool LoadIdentity(SSL_CTX* context, const std::string& cert, const std::string& key) {
    if (SSL_CTX_use_certificate_file(context, cert.c_str(), SSL_FILETYPE_PEM) <= 0) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "Unable to load Cert");
        return false;
    }
    SSL_CTX_set_default_passwd_cb(context, &NoPassPhrase);
    if (SSL_CTX_use_PrivateKey_file(context, key.c_str(), SSL_FILETYPE_PEM) <= 0) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "Unable to load Key");
        return false;
    }
    if (SSL_CTX_check_private_key(context) == 0) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "Private key does not match the certificate public key");
        return false;
    }
    return true;
}

// What EnableSecureRemote does.
bool Load(SSL_CTX*& context, const std::string& cert, const std::string& key,
          const std::string& root) {
    OPENSSL_init_ssl(OPENSSL_INIT_LOAD_SSL_STRINGS | OPENSSL_INIT_LOAD_CRYPTO_STRINGS, nullptr);
    OPENSSL_init_ssl(0, nullptr);
    SSL_CTX_free(context);
    context = SSL_CTX_new(TLS_client_method());
    if (context == nullptr) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "Unable to create SSL context");
        return false;
    }
    SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
    if (!LoadIdentity(context, cert, key)) {
        SSL_CTX_free(context);
        context = nullptr;
        return false;
    }
    const int loaded = SSL_CTX_load_verify_locations(context, root.c_str(), nullptr);
    if (loaded != 1) {
        // The context is kept: units without a root in their factory state still talk TLS, though
        // to anybody.
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "Client: SSL Failed to load certs. Error %d", loaded);
        return false;
    }
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    SSL_CTX_set_verify_depth(context, 3);
    SSL_CTX_set_options(context, SSL_OP_NO_SSLv3);
    return true;
}

// The certificates in use, for as long as one request takes; null when there are none.
TContext InUse(SSL_CTX*& context, const std::string& directory) {
    const std::lock_guard<std::mutex> lock(s_ContextMutex);
    if (context == nullptr &&
        !Load(context, directory + "ostel.cert.pem", directory + "ostel.key.pem",
              directory + "ostelRoot.cert.pem")) {
        // Goes on, in plain text: units that have no certificates yet are set up that way.
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "Failed to init SSL");
    }
    if (context != nullptr) {
        SSL_CTX_up_ref(context);
    }
    return TContext(context);
}

std::optional<sockaddr_storage> ToAddress(const std::string& host) {
    sockaddr_storage storage{};
    auto* const ipv4 = reinterpret_cast<sockaddr_in*>(&storage);
    auto* const ipv6 = reinterpret_cast<sockaddr_in6*>(&storage);
    // A zero inside would hide what follows it.
    const bool isText = host.find('\0') == std::string::npos;
    if (isText && inet_pton(AF_INET, host.c_str(), &ipv4->sin_addr) == 1) {
        OSTEL_LOG_AS(ZT_LOG_LEVEL_DEBUG, MODULE, PERFORM, "%s is a valid IPv4", host.c_str());
        ipv4->sin_family = AF_INET;
        ipv4->sin_port = htons(PORT);
        return storage;
    }
    if (isText && inet_pton(AF_INET6, host.c_str(), &ipv6->sin6_addr) == 1) {
        OSTEL_LOG_AS(ZT_LOG_LEVEL_DEBUG, MODULE, PERFORM, "%s is a valid IPv6", host.c_str());
        ipv6->sin6_family = AF_INET6;
        ipv6->sin6_port = htons(PORT);
        return storage;
    }
    ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s is not a valid IP", host.c_str());
    return std::nullopt;
}

TDescriptor Connect(const sockaddr_storage& address, const std::string& host) {
    TDescriptor descriptor(socket(address.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int on = 1;
    if (setsockopt(descriptor.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "setsockopt is failed");
        return TDescriptor(-1);
    }
    // A peer that cannot be reached is given up after one repetition, not after minutes.
    setsockopt(descriptor.Get(), IPPROTO_TCP, TCP_SYNCNT, &on, sizeof(on));
    // The length of an IPv4 address is kept for IPv6, too, where the kernel refuses it: the units'
    // remote services are reached over IPv4 only, and their networks count on that.
    constexpr socklen_t length = sizeof(sockaddr_in);
    if (connect(descriptor.Get(), reinterpret_cast<const sockaddr*>(&address), length) != 0) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "Failed to connect to %s:%d", host.c_str(), PORT);
        return TDescriptor(-1);
    }
    return descriptor;
}

TOstelJsonObject NewRequest(const char* type) {
    TOstelJsonObject request;
    Put(request, "REQUEST_TYPE", type);
    return request;
}

TOstelJsonObject NewSubscription(const char* type, const std::vector<std::string>& names,
                                 const std::string& serialNumber) {
    TOstelJsonObject request = NewRequest(type);
    Put(request, "EVENT_NAME", "REMOTE_DATA_MODEL_CHANGED");
    OstelDocuments::TOwnedJson params(json_array(), &json_decref);
    for (const std::string& name : names) {
        OstelDocuments::AppendNamed(params.get(), name);
    }
    Put(request, "PARAMS", params.release());
    Put(request, "SERIAL_NUMBER", serialNumber);
    return request;
}

}  // namespace

void TOstelApplication::SetCertPath(const std::string& path) {
    m_CertificateDirectory = path;
}

bool TOstelApplication::EnableSecureRemote(const std::string& cert, const std::string& key,
                                           const std::string& root) {
    const std::lock_guard<std::mutex> lock(s_ContextMutex);
    return Load(m_TlsContext, cert, key, root);
}

bool TOstelApplication::PerformRemoteRequest(const std::string& request, const std::string& host,
                                             std::string& reply, std::vector<char>* binary) {
    const std::optional<sockaddr_storage> address = ToAddress(host);
    if (!address) {
        return false;
    }
    const TContext context = InUse(m_TlsContext, m_CertificateDirectory);
    TDescriptor descriptor = Connect(*address, host);
    if (descriptor.Get() == -1) {
        return false;
    }
    const std::unique_ptr<TOstelRawSocket> socket =
        context != nullptr
            ? std::make_unique<TOstelSslSocket>(descriptor.Get(), context.get(), false)
            : std::make_unique<TOstelRawSocket>(descriptor.Get());
    // The socket closes it from here on; not before, as there may be no memory for one.
    descriptor.Release();
    OSTEL_LOG_AS(ZT_LOG_LEVEL_DEBUG, MODULE, PERFORM, "%s:%d. Request: %s", host.c_str(), PORT,
                 request.c_str());
    if (!socket->Write(request)) {
        // No reason to stop: an answer may have come already, and without one the reading fails.
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "Could not send the request to %s:%d.", host.c_str(),
                      PORT);
    }
    return OstelRemoteResponse::Read(*socket, reply, binary);
}

bool TOstelApplication::CallRemote(const std::string& host, const TOstelJsonObject& request,
                                   TOstelJsonObject& reply) {
    std::string text;
    if (!PerformRemoteRequest(Encode(request), host, text, nullptr)) {
        return false;
    }
    // What is no document has no status.
    reply.DecodeFromString(text);
    const auto status = reply.GetPropertyValue<std::string>("STATUS", "");
    if (status != "OK") {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "Remote Ostel has failed with '%s'", status.c_str());
        return false;
    }
    return true;
}

tOstelReturnCode TOstelApplication::CommitRemote(const std::string& host) {
    TOstelJsonObject reply;
    return CallRemote(host, NewRequest("COMMIT"), reply) ? RC_SUCCESS : RC_FAILURE;
}

tOstelReturnCode TOstelApplication::GetParamRemote(const std::string& host, const std::string& name,
                                                   std::vector<TOstelAppParam>& params) {
    TOstelJsonObject request = NewRequest("GET_PARAM");
    Put(request, "NAME", name);
    TOstelJsonObject reply;
    if (!CallRemote(host, request, reply)) {
        return RC_FAILURE;
    }
    PopulateParamArray(reply, params);
    return RC_SUCCESS;
}

tOstelReturnCode TOstelApplication::SetParamRemote(const std::string& host, const std::string& name,
                                                   const std::string& value, bool commit) {
    TOstelJsonObject request = NewRequest("SET_PARAM");
    Put(request, "NAME", name);
    Put(request, "VALUE", value);
    Put(request, "COMMIT", json_boolean(commit));
    TOstelJsonObject reply;
    return CallRemote(host, request, reply) ? RC_SUCCESS : RC_FAILURE;
}

tOstelReturnCode TOstelApplication::SendEventRemote(const std::string& host,
                                                    const std::string& name,
                                                    const std::string& data) {
    TOstelJsonObject request = NewRequest("SEND_EVENT");
    Put(request, "EVENT_NAME", name);
    Put(request, "EVENT_DATA", data);
    TOstelJsonObject reply;
    return CallRemote(host, request, reply) ? RC_SUCCESS : RC_FAILURE;
}

tOstelReturnCode TOstelApplication::GetFileRemote(const std::string& host,
                                                  const std::string& fileName,
                                                  std::vector<char>& data) {
    TOstelJsonObject request = NewRequest("GET_FILE");
    Put(request, "FILE_NAME", fileName);
    std::string text;
    if (!PerformRemoteRequest(Encode(request), host, text, &data)) {
        return RC_FAILURE;
    }
    TOstelJsonObject reply;
    if (!reply.DecodeFromString(text)) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "Failed to parse response: %s", text.c_str());
        return RC_FAILURE;
    }
    const auto status = reply.GetPropertyValue<std::string>("STATUS", "");
    if (status != "OK") {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "Remote Ostel has failed with '%s'. \n\n %s\n",
                      status.c_str(), text.c_str());
        return RC_FAILURE;
    }
    return RC_SUCCESS;
}

tOstelReturnCode TOstelApplication::AddDataModelChangeObserverRemote(
    const std::string& host, std::vector<TOstelAppParam>& params,
    IOstelDataModelChangeObserverRemote* observer) {
    if (observer == nullptr) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s", "A null observer is not added.");
        return RC_FAILURE;
    }
    const std::string serialNumber = GetUnitSerialNumber();
    if (serialNumber.empty()) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "Remote Ostel has failed in '%s'", __func__);
        return RC_FAILURE;
    }
    std::vector<std::string> names(params.size());
    std::transform(params.begin(), params.end(), names.begin(),
                   [](const TOstelAppParam& param) { return param.name; });
    // Held for the whole exchange: no change is told before its observer has the values to which it
    // is a change.
    const std::lock_guard<std::mutex> lock(m_ObserverMutex);
    TOstelJsonObject reply;
    if (!CallRemote(host, NewSubscription("SUBSCRIBE", names, serialNumber), reply)) {
        return RC_FAILURE;
    }
    m_RemoteObservers[observer].insert(names.begin(), names.end());
    PopulateParamArray(reply, params);
    return RC_SUCCESS;
}

tOstelReturnCode TOstelApplication::RemoveDataModelChangeObserverRemote(
    const std::string& host, const std::vector<std::string>& names,
    IOstelDataModelChangeObserverRemote* observer) {
    const std::string serialNumber = GetUnitSerialNumber();
    if (serialNumber.empty()) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "Remote Ostel has failed in '%s'", __func__);
        return RC_FAILURE;
    }
    const std::lock_guard<std::mutex> lock(m_ObserverMutex);
    TOstelJsonObject reply;
    if (!CallRemote(host, NewSubscription("UNSUBSCRIBE", names, serialNumber), reply)) {
        return RC_FAILURE;
    }
    const auto found = m_RemoteObservers.find(observer);
    if (found == m_RemoteObservers.end()) {
        return RC_SUCCESS;
    }
    for (const std::string& name : names) {
        found->second.erase(name);
    }
    if (found->second.empty()) {
        m_RemoteObservers.erase(found);
    }
    return RC_SUCCESS;
}
