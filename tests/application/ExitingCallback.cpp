// An application that ends itself from inside a notification: that of a callback of the flat
// interface or, with an argument, that of an observer of the application object.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "TOstelApplication.h"
#include "ostelAppLib.h"

namespace {

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
    std::puts("ready");
    std::fflush(stdout);
    for (;;) {
        pause();
    }
}
