// An application that ends itself from inside a notification, while its main thread waits in a
// request for an answer that does not come. The notification is that of a callback of the flat
// interface or, with an argument, that of an observer of the application object.
#include <cstdlib>

#include "TOstelApplication.h"
#include "ostelAppLib.h"

namespace {

const char* const EVENT = "EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT";

class TEnding : public IOstelObserver {
public:
    void OnEvent(const std::string&, const std::string&) override { std::exit(EXIT_SUCCESS); }
};

}  // namespace

int main(int count, char**) {
    static TEnding ending;
    if (ostelAppLibInit(OSTEL_MVA) != RC_SUCCESS) {
        return EXIT_FAILURE;
    }
    if (count > 1) {
        TOstelApplication::GetInstance()->AddObserver(&ending);
    } else {
        ostelAppLibSubscribe(nullptr, nullptr, [](const char*) { std::exit(EXIT_SUCCESS); });
    }
    ostelAppLibSendEvent(EVENT, "{}");
    ostelAppLibCommit();
    return EXIT_FAILURE;
}
