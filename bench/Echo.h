#ifndef ECHO_H
#define ECHO_H

#include <memory>
#include <string>

// Bus libraries in the two roles of a round trip. All speak as the applications do, so that the
// same bytes are on the bus: a call carries a text, an answer a text and a code.

class IEchoClient {
public:
    virtual ~IEchoClient() = default;
    // The text of the answer.
    virtual std::string Call(const std::string& request) = 0;
};

struct TEcho {
    const char* kind;
    // Answers each call with this text and 0, under the application's name, and never returns.
    // Writes a line once it can be called.
    void (*serve)(const std::string& id, const std::string& reply);
    // Calls the server of that name; null for the library itself.
    std::unique_ptr<IEchoClient> (*newClient)(const std::string& id);
};

extern const TEcho RAW_ECHO;
extern const TEcho OSTEL_ECHO;
extern const TEcho SD_BUS_ECHO;
extern const TEcho GDBUS_ECHO;
extern const TEcho SDBUS_CPP_ECHO;
extern const TEcho TLS_ECHO;

namespace EchoNames {

constexpr const char* INTERFACE = "com.Kaven.Ostel.Ostel";
constexpr const char* METHOD = "GET_PARAM";

inline std::string Bus(const std::string& id) {
    return "com.Kaven.Ostel." + id;
}
inline std::string Path(const std::string& id) {
    return "/com/Kaven/Ostel/" + id;
}

}  // namespace EchoNames

#endif
