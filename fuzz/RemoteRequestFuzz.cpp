// What another unit sends: where its request ends, and what is answered.
#include <cstring>
#include <memory>

#include "Fuzz.h"
#include "Gateway.h"
#include "RemoteProtocol.h"
#include "RemoteRequests.h"
#include "TOstelJsonObject.h"

namespace {

using RemoteProtocol::TDocumentEnd;

// A unit without a network.
struct TUnit {
    Fuzz::TGateway gateway;
    TSubscriptions subscriptions{"S0", [](const std::string&, const std::string&,
                                          const TStopSignal&, TDeadline) { return true; }};
    TSharedFiles files{OSTEL_SHARED};
    TRemoteRequests requests{gateway.dispatcher, subscriptions, files,
                             [](const std::string&, const std::string&) {}};

    TUnit() {
        gateway.dispatcher.SetOnChange([this](const std::string& name, const std::string& value) {
            subscriptions.OnChange(name, value);
        });
    }
};

// As the service reads it; nothing when it is no whole request.
std::string ReadRequest(const std::string& bytes) {
    TDocumentEnd whole;
    const auto state = whole.Take(bytes);
    TDocumentEnd single;
    auto last = TDocumentEnd::TState::OPEN;
    for (const char c : bytes) {
        last = single.Take(std::string(1, c));
    }
    Fuzz::Require(last == state && single.Length() == whole.Length(),
                  "how a request comes in pieces does not matter");
    Fuzz::Require(whole.Length() <= bytes.size(), "the end lies within");
    TOstelJsonObject document;
    const bool isDocument =
        document.DecodeFromString(bytes) && !bytes.empty() && bytes.find('{') < bytes.find('[');
    Fuzz::Require(!isDocument || state == TDocumentEnd::TState::COMPLETE,
                  "every document has its end");
    return state == TDocumentEnd::TState::COMPLETE ? bytes.substr(0, whole.Length()) : "";
}

std::uint32_t Length(const std::string& answer, std::size_t position) {
    std::uint32_t length = 0;
    std::memcpy(&length, answer.data() + position, sizeof length);
    return length;
}

void CheckAnswer(const std::string& answer) {
    constexpr std::size_t lengths = 2 * sizeof(std::uint32_t);
    Fuzz::Require(answer.size() > lengths, "an answer starts with its lengths");
    const std::size_t documentLength = Length(answer, 0);
    const std::size_t binaryLength = Length(answer, sizeof(std::uint32_t));
    Fuzz::Require(answer.size() == lengths + documentLength + binaryLength &&
                      documentLength <= RemoteProtocol::LARGEST_DOCUMENT,
                  "an answer is as long as it says");
    TOstelJsonObject document;
    Fuzz::Require(document.DecodeFromString(answer.substr(lengths, documentLength)) &&
                      !document.GetPropertyValue<std::string>("STATUS", "").empty(),
                  "an answer has a status");
    const std::string binary = answer.substr(lengths + documentLength);
    Fuzz::Require(binary.empty() || binary == "shared", "what is not shared is not sent");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static auto unit = std::make_unique<TUnit>();
    const std::string request = ReadRequest(Fuzz::ToText(data, size));
    CheckAnswer(unit->requests.Answer(request, "10.0.0.1"));
    if (request.find("SUBSCRIBE") != std::string::npos) {
        unit = std::make_unique<TUnit>();
    } else if (unit->gateway.State() != unit->gateway.Begin()) {
        unit->gateway.Reset();
    }
    return 0;
}
