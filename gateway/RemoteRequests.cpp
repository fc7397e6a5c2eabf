#include "RemoteRequests.h"

#include <exception>
#include <utility>

#include "RemoteProtocol.h"
#include "RequestFields.h"
#include "TOstelDataMapper.h"
#include "zt_logging.h"

namespace {

// Far more than any unit's, and no burden on this one's memory.
constexpr std::size_t LONGEST_SERIAL_NUMBER = 256;

std::string StatusOf(tOstelReturnCode code) {
    return code == RC_SUCCESS ? "OK" : TOstelDataMapper::GetInstance()->MapEnumToString(code);
}

std::string WithStatus(TOstelJsonObject& reply, tOstelReturnCode code) {
    reply.SetPropertyValue("STATUS", StatusOf(code));
    return reply.EncodeToString(-1);
}

bool Fits(const std::string& answer) {
    return answer.size() <= RemoteProtocol::LARGEST_DOCUMENT;
}

}  // namespace

TRemoteRequests::TRemoteRequests(TDispatcher& dispatcher, TSubscriptions& subscriptions,
                                 const TSharedFiles& files, TSendEvent sendEvent)
    : m_Dispatcher(dispatcher),
      m_Subscriptions(subscriptions),
      m_Files(files),
      m_SendEvent(std::move(sendEvent)) {}

const std::map<std::string, TRemoteRequests::TRequest>& TRemoteRequests::Requests() {
    static const std::map<std::string, TRequest> requests = {
        {"GET_PARAM", &TRemoteRequests::GetParam},      {"SET_PARAM", &TRemoteRequests::SetParam},
        {"COMMIT", &TRemoteRequests::Commit},           {"GET_FILE", &TRemoteRequests::GetFile},
        {"SEND_EVENT", &TRemoteRequests::SendEvent},    {"SUBSCRIBE", &TRemoteRequests::Subscribe},
        {"UNSUBSCRIBE", &TRemoteRequests::Unsubscribe},
    };
    return requests;
}

std::string TRemoteRequests::Answer(const std::string& request, const std::string& peerAddress) {
    TOstelJsonObject document;
    TOstelJsonObject reply;
    std::string binary;
    tOstelReturnCode code = RC_INVALID_ARGUMENT;
    if (document.DecodeFromString(request)) {
        TContext context{request, document, peerAddress, reply, binary};
        code = Safely([&] { return Serve(context); });
    }
    std::string answer = WithStatus(reply, code);
    if (!Fits(answer)) {
        TOstelJsonObject tooLong;
        answer = WithStatus(tooLong, RC_BUFFER_OVERFLOW);
    }
    return RemoteProtocol::Framed(answer, binary);
}

// A request that runs out of memory or threads is answered like any other.
tOstelReturnCode TRemoteRequests::Safely(const std::function<tOstelReturnCode()>& serve) {
    try {
        return serve();
    } catch (const std::exception& error) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "A request of another unit failed: %s", error.what());
        return RC_RUNTIME_ERROR;
    }
}

tOstelReturnCode TRemoteRequests::Serve(TContext& context) {
    const auto type = TextField(context.request, "REQUEST_TYPE");
    if (!type) {
        return RC_INVALID_ARGUMENT;
    }
    const auto found = Requests().find(*type);
    return found != Requests().end() ? (this->*found->second)(context) : RC_NOT_SUPPORTED;
}

tOstelReturnCode TRemoteRequests::Dispatch(const std::string& type, const std::string& request,
                                           TOstelJsonObject& reply) {
    std::string text;
    const int code = m_Dispatcher.OnMethodCall(type, request, text);
    // What is no success carries no values.
    if (code == RC_SUCCESS) {
        reply.DecodeFromString(text);
    }
    return static_cast<tOstelReturnCode>(code);
}

tOstelReturnCode TRemoteRequests::GetParam(TContext& context) {
    return Dispatch("GET_PARAM", context.text, context.reply);
}

tOstelReturnCode TRemoteRequests::SetParam(TContext& context) {
    return Dispatch("SET_PARAM", context.text, context.reply);
}

tOstelReturnCode TRemoteRequests::Commit(TContext& context) {
    return Dispatch("COMMIT", "{}", context.reply) == RC_SUCCESS ? RC_SUCCESS : RC_FAILURE;
}

tOstelReturnCode TRemoteRequests::GetFile(TContext& context) {
    const auto name = TextField(context.request, "FILE_NAME");
    if (!name) {
        return RC_INVALID_ARGUMENT;
    }
    auto bytes = m_Files.Read(*name, RemoteProtocol::LARGEST_BINARY);
    if (!bytes) {
        return RC_NOT_FOUND;
    }
    context.binary = std::move(*bytes);
    return RC_SUCCESS;
}

tOstelReturnCode TRemoteRequests::SendEvent(TContext& context) {
    const auto name = TextField(context.request, "EVENT_NAME");
    const auto data = TextField(context.request, "EVENT_DATA");
    if (!name || !data) {
        return RC_INVALID_ARGUMENT;
    }
    m_SendEvent(*name, *data);
    return RC_SUCCESS;
}

tOstelReturnCode TRemoteRequests::Subscribe(TContext& context) {
    const auto names = NamesField(context.request);
    const auto serialNumber = TextField(context.request, "SERIAL_NUMBER");
    if (!names || !serialNumber ||
        TextField(context.request, "EVENT_NAME") != RemoteProtocol::CHANGE_EVENT) {
        return RC_INVALID_ARGUMENT;
    }
    if (serialNumber->size() > LONGEST_SERIAL_NUMBER) {
        return RC_INVALID_ARGUMENT;
    }
    // Whoever is told of a failure is not subscribed, so try before.
    TOstelJsonObject ignored;
    const tOstelReturnCode code = Dispatch("GET_PARAM_ARRAY", context.text, ignored);
    if (code != RC_SUCCESS) {
        return code;
    }
    if (!Fits(WithStatus(ignored, code))) {
        return RC_BUFFER_OVERFLOW;
    }
    const auto added = m_Subscriptions.Add(context.peerAddress, *serialNumber, *names);
    if (!added) {
        return RC_BUFFER_OVERFLOW;
    }
    // Read again, now that no change can be missed. What is there may have changed in between.
    const tOstelReturnCode result =
        Safely([&] { return Dispatch("GET_PARAM_ARRAY", context.text, context.reply); });
    if (result != RC_SUCCESS || !Fits(WithStatus(context.reply, result))) {
        m_Subscriptions.Remove(context.peerAddress, *serialNumber, *added);
    }
    return result;
}

tOstelReturnCode TRemoteRequests::Unsubscribe(TContext& context) {
    const auto names = NamesField(context.request);
    const auto serialNumber = TextField(context.request, "SERIAL_NUMBER");
    if (!names || !serialNumber ||
        TextField(context.request, "EVENT_NAME") != RemoteProtocol::CHANGE_EVENT) {
        return RC_INVALID_ARGUMENT;
    }
    m_Subscriptions.Remove(context.peerAddress, *serialNumber, *names);
    return RC_SUCCESS;
}
