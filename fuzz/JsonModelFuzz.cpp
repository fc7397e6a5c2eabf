// Model files in JSON.
#include "ModelFile.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = Fuzz::ToText(data, size);
    // A file that starts with "<" is XML's, which has a program of its own.
    if (text.find('<') >= text.find('{')) {
        Fuzz::ReadModelFile(text);
    }
    return 0;
}
