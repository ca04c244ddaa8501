// The exclusive lock that every read-modify-write of the settings and list
// files holds, so that concurrent requests change the store one at a time.
#ifndef STATE_STORELOCK_H
#define STATE_STORELOCK_H

// Beside the store; readers never take it (they rely on whole-file renames).
#define STORE_LOCK_FILE "/tmp/onvif/store.lock"
// The PTZ query programs write fixed output files: one run-and-read at a time.
#define PTZ_QUERY_LOCK_FILE "/tmp/onvif/tmp/ptz_query.lock"

// Takes an exclusive flock on the lock file at path (created when missing),
// waiting at most a minute. Returns the descriptor that holds it, -2 when the
// lock file's directory does not exist (no store to guard), or -1 when the
// lock could not be had.
int lockFileExclusive(const char* path);
// Releases a lock lockFileExclusive gave (nothing for a negative descriptor).
void unlockFile(int fd);

// The store lock, held from a handler's first read to its last rename.
// 0 when held (or when there is no store), -1 when it could not be had.
int lockStore();
void unlockStore();
// Sleeps with the store lock let go, so that a wait for a missing file never
// holds up the writers of other files; 0 once the lock is held again (or was
// not held), -1 when it could not be had back.
int sleepOutsideStoreLock(int ms);

#endif
