// Requests of applications to the gateway, several to one model.
#include "Fuzz.h"
#include "Gateway.h"
#include "TOstelJsonObject.h"

namespace {

constexpr int MOST_REQUESTS = 16;

bool IsReading(const std::string& type) {
    return type.compare(0, 4, "GET_") == 0;
}

bool IsDocument(const std::string& reply) {
    return reply == "{}" || TOstelJsonObject().DecodeFromString(reply);
}

// What did not succeed, or only reads, changes nothing. Whether the request committed something.
bool Ask(Fuzz::TGateway& gateway, const std::string& type, const std::string& request) {
    const Fuzz::TState before = gateway.State();
    std::string reply;
    const int code = gateway.dispatcher.OnMethodCall(type, request, reply);
    const Fuzz::TState after = gateway.State();
    Fuzz::Require(code >= RC_SUCCESS && code <= RC_NOT_SUPPORTED,
                  "a code is one of the documented");
    Fuzz::Require(code == RC_NOT_SUPPORTED || IsDocument(reply), "a reply is a document");
    Fuzz::Require(code == RC_SUCCESS || after == before, "a request that fails changes nothing");
    Fuzz::Require(!IsReading(type) || after == before, "who reads changes nothing");
    const bool isCommitted = after.committed != before.committed;
    Fuzz::Require(!isCommitted || (after.stored != before.stored && after.events != before.events),
                  "what is committed is stored and told");
    if (code == RC_SUCCESS && type == "COMMIT") {
        Fuzz::Require(gateway.Staged().empty(), "a commit leaves nothing staged");
    }
    return isCommitted;
}

}  // namespace

// A request a line: its type, a blank, its document.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Fuzz::TGateway gateway;
    Fuzz::TCursor cursor(Fuzz::ToText(data, size));
    bool isCommitted = false;
    for (int i = 0; i < MOST_REQUESTS && !cursor.AtEnd(); ++i) {
        const std::string line = cursor.Line();
        const std::size_t blank = std::min(line.find(' '), line.size());
        isCommitted |= Ask(gateway, line.substr(0, blank), line.substr(blank));
    }
    if (isCommitted) {
        Fuzz::Require(gateway.Committed() == gateway.Restored(),
                      "what was committed is there after a restart");
        Fuzz::Require(!gateway.HasOpenStatements(), "a commit ends its statements");
    }
    if (gateway.State() != gateway.Begin()) {
        gateway.Reset();
    }
    return 0;
}
