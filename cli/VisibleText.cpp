#include "VisibleText.h"

#include <array>
#include <cstdio>
#include <optional>
#include <string_view>

namespace {

struct TCharacter {
    char32_t code;
    std::size_t size;
};

std::size_t SizeOf(unsigned char lead) {
    if (lead < 0x80) {
        return 1;
    }
    if (lead < 0xC0 || lead > 0xF7) {
        return 0;
    }
    if (lead < 0xE0) {
        return 2;
    }
    return lead < 0xF0 ? 3 : 4;
}

// The character that a text begins with. None where it is no UTF-8, longer forms than needed
// included: a strict terminal takes them for the single bytes that they are made of.
std::optional<TCharacter> FirstOf(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text[0]);
    const std::size_t size = SizeOf(lead);
    if (size == 0 || text.size() < size) {
        return std::nullopt;
    }
    char32_t code = size == 1 ? lead : lead & (0x7FU >> size);
    for (std::size_t i = 1; i < size; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if ((byte & 0xC0U) != 0x80U) {
            return std::nullopt;
        }
        code = code << 6U | (byte & 0x3FU);
    }
    static constexpr std::array<char32_t, 5> LEAST = {0, 0, 0x80, 0x800, 0x10000};
    const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
    if (code < LEAST.at(size) || code > 0x10FFFF || isSurrogate) {
        return std::nullopt;
    }
    return TCharacter{code, size};
}

bool IsControl(char32_t code) {
    return code < 0x20 || (code >= 0x7F && code <= 0x9F);
}

}  // namespace

std::string VisibleText(const std::string& text) {
    std::string visible;
    for (std::string_view rest = text; !rest.empty();) {
        const std::optional<TCharacter> first = FirstOf(rest);
        const std::string_view bytes = rest.substr(0, first ? first->size : 1);
        rest.remove_prefix(bytes.size());
        if (first && !IsControl(first->code)) {
            visible += bytes;
            continue;
        }
        for (const char c : bytes) {
            std::array<char, 8> escaped{};
            std::snprintf(escaped.data(), escaped.size(), "\\x%02x",
                          static_cast<unsigned int>(static_cast<unsigned char>(c)));
            visible += escaped.data();
        }
    }
    return visible;
}
