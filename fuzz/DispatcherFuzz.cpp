// Requests of applications to the gateway, several to one model.
#include <memory>

#include "Fuzz.h"
#include "Gateway.h"
#include "TOstelJsonObject.h"

namespace {

constexpr int MOST_REQUESTS = 16;

bool IsReading(const std::string& type) {
    return type.compare(0, 4, "GET_") == 0;
}

// What did not succeed, or only reads, changes nothing.
void Ask(Fuzz::TGateway& gateway, const std::string& type, const std::string& request) {
    const bool mayChange = !IsReading(type);
    const std::string staged = gateway.Staged();
    const std::string committed = mayChange ? "" : gateway.Committed();
    std::string reply;
    const int code = gateway.dispatcher.OnMethodCall(type, request, reply);
    Fuzz::Require(code >= RC_SUCCESS && code <= RC_NOT_SUPPORTED,
                  "a code is one of the documented");
    TOstelJsonObject document;
    Fuzz::Require(code == RC_NOT_SUPPORTED || document.DecodeFromString(reply),
                  "a reply is a document");
    if (code != RC_SUCCESS) {
        Fuzz::Require(gateway.Staged() == staged, "a request that fails stages nothing");
    }
    if (!mayChange) {
        Fuzz::Require(gateway.Staged() == staged && gateway.Committed() == committed,
                      "who reads changes nothing");
    }
    if (code == RC_SUCCESS && type == "COMMIT") {
        Fuzz::Require(gateway.Staged().empty(), "a commit leaves nothing staged");
    }
}

}  // namespace

// A request a line: its type, a blank, its document.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static auto gateway = std::make_unique<Fuzz::TGateway>();
    static const std::string atFirst = gateway->Committed();
    Fuzz::TCursor cursor(Fuzz::ToText(data, size));
    for (int i = 0; i < MOST_REQUESTS && !cursor.AtEnd(); ++i) {
        const std::string line = cursor.Line();
        const std::size_t blank = std::min(line.find(' '), line.size());
        Ask(*gateway, line.substr(0, blank), line.substr(blank));
    }
    const bool isChanged = gateway->Committed() != atFirst;
    if (isChanged) {
        Fuzz::Require(gateway->Committed() == gateway->Restored(),
                      "what was committed is there after a restart");
    }
    if (isChanged || !gateway->Staged().empty() || !gateway->store.Load().instances.empty()) {
        gateway = std::make_unique<Fuzz::TGateway>();
    }
    return 0;
}
