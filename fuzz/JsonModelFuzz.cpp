// Model files in JSON.
#include <algorithm>

#include "ModelFile.h"

namespace {

// Tables that begin with so many instances would take the time of thousands of other files; how
// many there may be is tested by name.
bool BeginsWithVeryMany(const std::string& text) {
    constexpr std::size_t most = 4;
    const std::string name = "\"minEntries\":";
    for (std::size_t at = text.find(name); at != std::string::npos; at = text.find(name, at + 1)) {
        const std::size_t start = text.find_first_not_of(" \t\r\n", at + name.size());
        const std::size_t end = std::min(text.find_first_not_of("0123456789", start), text.size());
        if (start < end && end - start > most) {
            return true;
        }
    }
    return false;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = Fuzz::ToText(data, size);
    // A file that starts with "<" is XML's, which has a program of its own.
    if (text.find('<') >= text.find('{') && !BeginsWithVeryMany(text)) {
        Fuzz::ReadModelFile(text);
    }
    return 0;
}
