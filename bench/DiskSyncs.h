#ifndef DISK_SYNCS_H
#define DISK_SYNCS_H

// How often this process has waited for the disk. The functions behind it take the system's place.
namespace DiskSyncs {

int Count();

}

#endif
