// What another unit answers, and what is made of it.
#include <algorithm>
#include <optional>

#include "Fuzz.h"
#include "OstelRemoteResponse.h"
#include "TOstelApplication.h"
#include "TOstelJsonObject.h"

namespace {

constexpr std::size_t LENGTH = sizeof(std::uint32_t);
constexpr std::uint32_t LONGEST_DOCUMENT = 4096;
constexpr std::uint32_t MOST_BYTES = 0xFFFFF;
constexpr char FILLER = 'f';

// What a peer sends before it hangs up. An input is shorter than the longest answer, so there may
// be filler behind it, as much as is asked for.
struct TStream {
    std::string bytes;
    bool isFilled;

    bool Has(std::size_t size) const { return isFilled || size <= bytes.size(); }

    char At(std::size_t index) const { return index < bytes.size() ? bytes[index] : FILLER; }

    std::uint32_t Number(std::size_t position) const {
        std::uint32_t number = 0;
        char* const raw = reinterpret_cast<char*>(&number);
        for (std::size_t i = 0; i < LENGTH; ++i) {
            raw[i] = At(position + i);
        }
        return number;
    }

    // Whether a part is what stands there: as far as the input goes, and at its end.
    template <typename TContainer>
    bool Holds(std::size_t position, const TContainer& part) const {
        const std::string own = bytes.substr(std::min(position, bytes.size()), part.size());
        return std::equal(own.begin(), own.end(), part.begin()) &&
               (part.empty() || part.back() == At(position + part.size() - 1));
    }
};

class TPeer : public TOstelRawSocket {
public:
    explicit TPeer(const TStream& stream)
        : TOstelRawSocket(-1), m_Cursor(stream.bytes), m_IsFilled(stream.isFilled) {}

    using TOstelRawSocket::Read;

    bool Read(char* buffer, std::size_t length) const override {
        Fuzz::Require(length <= MOST_BYTES, "no more is read than an answer may have");
        const std::string own = m_Cursor.Bytes(length);
        std::copy(own.begin(), own.end(), buffer);
        const std::size_t filler = m_IsFilled ? length - own.size() : 0;
        std::fill_n(buffer + own.size(), filler, FILLER);
        m_Taken += own.size() + filler;
        return own.size() + filler == length;
    }

    std::size_t Taken() const { return m_Taken; }

private:
    mutable Fuzz::TCursor m_Cursor;
    bool m_IsFilled;
    mutable std::size_t m_Taken = 0;
};

// The two lengths of an answer that is to be taken.
struct TLengths {
    std::size_t document;
    std::size_t bytes;
};

std::optional<TLengths> Expected(const TStream& stream, bool withBinary) {
    if (!stream.Has(2 * LENGTH)) {
        return std::nullopt;
    }
    const TLengths lengths = {stream.Number(0), withBinary ? stream.Number(LENGTH) : 0};
    const bool isFit =
        lengths.document > 0 && lengths.document <= LONGEST_DOCUMENT && lengths.bytes <= MOST_BYTES;
    return isFit && stream.Has(2 * LENGTH + lengths.document + lengths.bytes)
               ? std::optional(lengths)
               : std::nullopt;
}

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
std::size_t ReadAnswer(const TStream& stream, bool withBinary) {
    const TPeer peer(stream);
    const auto expected = Expected(stream, withBinary);
    std::string reply;
    std::vector<char> binary(3, 'x');
    const bool isRead = OstelRemoteResponse::Read(peer, reply, withBinary ? &binary : nullptr);
    Fuzz::Require(isRead == expected.has_value(),
                  "an answer is taken that keeps to its limits and is whole, and no other");
    if (!isRead) {
        return peer.Taken();
    }
    const std::size_t inBinary = withBinary ? binary.size() : 0;
    Fuzz::Require(reply.size() == expected->document && inBinary == expected->bytes &&
                      peer.Taken() == 2 * LENGTH + reply.size() + inBinary,
                  "an answer is what its lengths say");
    Fuzz::Require(stream.Holds(2 * LENGTH, reply) &&
                      (!withBinary || stream.Holds(2 * LENGTH + reply.size(), binary)),
                  "an answer is as it came");
    if (!withBinary) {
        ReadParameters(reply);
    }
    return peer.Taken();
}

}  // namespace

// An odd first byte has the peer go on with filler where the input ends.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Fuzz::TCursor cursor(Fuzz::ToText(data, size));
    const bool isFilled = cursor.Byte() % 2 != 0;
    const TStream stream = {cursor.Rest(), isFilled};
    Fuzz::Require(ReadAnswer(stream, false) <= ReadAnswer(stream, true),
                  "who wants no bytes takes no more");
    return 0;
}
