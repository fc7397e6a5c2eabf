#include "LongValue.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <optional>

#include "Arguments.h"
#include "Output.h"
#include "ostelAppLib.h"

namespace LongValue {

namespace {

// A request of the flat interface, with what it holds.
class TRequest {
public:
    // Names that its field cannot take are refused before.
    explicit TRequest(const std::string& name) {
        std::copy_n(name.begin(), std::min(name.size(), sizeof m_Request.name - 1),
                    std::begin(m_Request.name));
    }
    TRequest(const TRequest&) = delete;
    TRequest& operator=(const TRequest&) = delete;
    ~TRequest() { ostelAppLibReleaseLongParamRequest(&m_Request); }

    tOstelAppLibLongParamRequest* Get() { return &m_Request; }

private:
    tOstelAppLibLongParamRequest m_Request{};
};

bool FitsName(const std::string& name) {
    return name.size() < OSTEL_APP_LIB_TEXT_SIZE && name.find('\0') == std::string::npos;
}

}  // namespace

int Get(const std::string& name, const std::string& file, bool json) {
    if (!FitsName(name)) {
        return Output::Fail(name, RC_INVALID_ARGUMENT);
    }
    TRequest request(name);
    const tOstelReturnCode code = ostelAppLibGetLongParam(request.Get());
    if (code != RC_SUCCESS) {
        return Output::Fail(name, code);
    }
    const char* const value = request.Get()->value;
    const std::string text = value != nullptr ? value : "";
    if (!json) {
        return Output::Write(file, text);
    }
    TOstelJsonObject document;
    document.SetPropertyValue("VALUE", text);
    return Output::Write(file, document.EncodeToString(-1) + "\n");
}

int Set(const std::string& name, const std::string& file, bool commit, bool json) {
    const std::optional<std::string> value = Arguments::ReadAll(file);
    if (!value) {
        return Output::NO_FILE;
    }
    if (value->find('\0') != std::string::npos ||
        value->size() >= std::numeric_limits<std::uint32_t>::max()) {
        Output::Complain(file + ": not a text");
        return Output::MALFORMED_FILE;
    }
    if (!FitsName(name)) {
        return Output::Fail(name, RC_INVALID_ARGUMENT);
    }
    TRequest request(name);
    const auto size = static_cast<std::uint32_t>(value->size() + 1);
    ostelAppLibAllocateLongParamRequest(request.Get(), size);
    if (request.Get()->value == nullptr) {
        return Output::Fail(name, RC_BUFFER_OVERFLOW);
    }
    std::memcpy(request.Get()->value, value->c_str(), size);
    const tOstelReturnCode code = ostelAppLibSetLongParam(request.Get(), commit);
    if (code != RC_SUCCESS) {
        return Output::Fail(name, code);
    }
    Output::PrintOk(json);
    return 0;
}

}  // namespace LongValue
