// Makes one call of the file utilities, for those who watch its system calls. Exits with 0 when the
// call succeeded.
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "OstelFileUtils.h"

using namespace OstelFileUtils;

namespace {

bool Run(const std::string& verb, const std::string& path, const std::string& more) {
    std::string text;
    if (verb == "read") {
        return ReadFile(path, text);
    }
    if (verb == "write") {
        return WriteFile(path, "text", false, false);
    }
    if (verb == "append") {
        return WriteFile(path, "text", true, false);
    }
    if (verb == "write-sync") {
        return WriteFile(path, "text", false, true);
    }
    if (verb == "append-sync") {
        return WriteFile(path, "text", true, true);
    }
    if (verb == "copy") {
        return CopyFile(path, more);
    }
    if (verb == "sync-directory") {
        return SyncDirectory(path);
    }
    if (verb == "read-link") {
        return ReadLink(path, text);
    }
    if (verb == "owner") {
        return ChangeLinkOwner(path, 1234);
    }
    if (verb == "group") {
        return ChangeLinkGroup(path, 1234);
    }
    std::cerr << "unknown verb " << verb << '\n';
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.size() != 3) {
        std::cerr << "usage: VERB PATH MORE\n";
        return EXIT_FAILURE;
    }
    return Run(arguments[0], arguments[1], arguments[2]) ? EXIT_SUCCESS : EXIT_FAILURE;
}
