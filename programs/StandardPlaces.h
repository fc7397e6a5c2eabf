#ifndef STANDARD_PLACES_H
#define STANDARD_PLACES_H

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

// What a program prints must not go into a connection or a file of its own, which would take the
// place of a standard stream that the caller closed. The library opens some before a program
// begins, so that the places can be held only in a new start. They are held by what can neither be
// read nor written.
inline void HoldStandardPlaces(char** argv) {
    bool areHeld = false;
    for (const int place : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        const int flags = fcntl(place, F_GETFD);
        // What came from the caller has outlived an exec.
        if (flags != -1 && (flags & FD_CLOEXEC) == 0) {
            continue;
        }
        const int null =
            open("/dev/null", (place == STDIN_FILENO ? O_WRONLY : O_RDONLY) | O_CLOEXEC);
        if (null == -1 || dup2(null, place) != place || fcntl(place, F_SETFD, 0) != 0) {
            _exit(EXIT_FAILURE);
        }
        areHeld = true;
    }
    if (areHeld) {
        execv("/proc/self/exe", argv);
        // A descriptor of the library may have been replaced: no way to go on.
        _exit(EXIT_FAILURE);
    }
}

#endif
