// What another unit answers, and what is made of it.
#include <algorithm>

#include "Fuzz.h"
#include "OstelRemoteResponse.h"
#include "TOstelApplication.h"
#include "TOstelJsonObject.h"

namespace {

// A peer that sends these bytes and hangs up.
class TBytes : public TOstelRawSocket {
public:
    explicit TBytes(std::string bytes) : TOstelRawSocket(-1), m_Cursor(std::move(bytes)) {}

    using TOstelRawSocket::Read;

    bool Read(char* buffer, std::size_t length) const override {
        const std::string bytes = m_Cursor.Bytes(length);
        std::copy(bytes.begin(), bytes.end(), buffer);
        m_Taken += bytes.size();
        return bytes.size() == length;
    }

    std::size_t Taken() const { return m_Taken; }

private:
    mutable Fuzz::TCursor m_Cursor;
    mutable std::size_t m_Taken = 0;
};

void ReadParameters(const std::string& reply) {
    TOstelJsonObject document;
    document.DecodeFromString(reply);
    const auto status = document.GetPropertyValue<std::string>("STATUS", "");
    std::vector<TOstelApplication::TOstelAppParam> params(1);
    TOstelApplication::GetInstance()->PopulateParamArray(document, params);
    Fuzz::Require(params.size() == document.GetJsonArraySize("PARAMS"),
                  "every element is a parameter");
}

// Returns what was taken from the peer.
std::size_t ReadAnswer(const std::string& bytes, bool withBinary) {
    const TBytes peer(bytes);
    std::string reply;
    std::vector<char> binary(3, 'x');
    if (OstelRemoteResponse::Read(peer, reply, withBinary ? &binary : nullptr)) {
        const std::size_t lengths = 2 * sizeof(std::uint32_t);
        const std::size_t inBinary = withBinary ? binary.size() : 0;
        Fuzz::Require(!reply.empty() && reply.size() <= 4096 && inBinary <= 0xFFFFF,
                      "an answer keeps to its limits");
        Fuzz::Require(peer.Taken() == lengths + reply.size() + inBinary,
                      "an answer is what its lengths say");
        Fuzz::Require(bytes.compare(lengths, reply.size(), reply) == 0, "an answer is as it came");
        ReadParameters(reply);
    }
    return peer.Taken();
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes = Fuzz::ToText(data, size);
    Fuzz::Require(ReadAnswer(bytes, false) <= ReadAnswer(bytes, true),
                  "who wants no bytes takes no more");
    return 0;
}
