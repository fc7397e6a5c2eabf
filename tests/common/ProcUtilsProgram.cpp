// Runs another program with an argument, for those who watch the system calls.
#include <cstdlib>
#include <iostream>

#include "OstelProcUtils.h"

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: DIRECTORY PROGRAM ARGUMENT\n";
        return EXIT_FAILURE;
    }
    OstelProcUtils::TProcess process(argv[2], {argv[3]});
    if (!process.Spawn(argv[1])) {
        return EXIT_FAILURE;
    }
    process.Wait();
    return EXIT_SUCCESS;
}
