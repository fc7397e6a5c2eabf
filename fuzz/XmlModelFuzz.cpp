// Model files in XML.
#include "ModelFile.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Fuzz::ReadModelFile("<" + Fuzz::ToText(data, size));
    return 0;
}
