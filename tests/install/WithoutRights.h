#ifndef WITHOUT_RIGHTS_H
#define WITHOUT_RIGHTS_H

#include <unistd.h>

#include <string>
#include <vector>

// Somebody without any rights: who runs the test, or, when that is root, "nobody".
namespace WithoutRights {

using TCommand = std::vector<std::string>;

inline bool TestIsRunByRoot() {
    return getuid() == 0;
}

inline gid_t Group() {
    return TestIsRunByRoot() ? 65534 : getgid();
}

// The command as that user.
inline TCommand Runs(const TCommand& command) {
    TCommand all;
    if (TestIsRunByRoot()) {
        all = {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
    }
    all.insert(all.end(), command.begin(), command.end());
    return all;
}

}  // namespace WithoutRights

#endif
