#include "DiskSyncs.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>

namespace {

std::atomic<int> count{0};

int Sync(long call, int descriptor) {
    ++count;
    return static_cast<int>(syscall(call, descriptor));
}

}  // namespace

int DiskSyncs::Count() {
    return count;
}

extern "C" {

__attribute__((visibility("default"))) int fsync(int descriptor) {
    return Sync(SYS_fsync, descriptor);
}

__attribute__((visibility("default"))) int fdatasync(int descriptor) {
    return Sync(SYS_fdatasync, descriptor);
}
}
