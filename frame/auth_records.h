// What authentication remembers between requests (each request is its own
// process): the nonces already used, and failed attempts per client address.
// Both are fixed-size files under /tmp/onvif, changed under a file lock.
#ifndef FRAME_AUTH_RECORDS_H
#define FRAME_AUTH_RECORDS_H

#include <stdint.h>
#include <time.h>

#define USED_NONCE_FILE "/tmp/onvif/used_nonces"
#define AUTH_FAILURE_FILE "/tmp/onvif/auth_failures"
#define USED_NONCE_SLOTS 8192
#define AUTH_FAILURE_SLOTS 256
// Slots a key may land in, from its hash on: a short probe keeps a request
// to one small read and write.
#define RECORD_PROBE 32

struct UsedNonce {
    unsigned char key[12];  // the first bytes of SHA-1 over the nonce's identity
    uint32_t expires;       // a free slot once the clock passes it
};

struct AuthFailures {
    char address[48];
    uint32_t count;
    uint32_t last;          // time of the last counted failure
    uint32_t logged;        // 1 once the lock-out was logged
};

enum NonceClaim { NONCE_FIRST_USE, NONCE_REPLAYED, NONCE_NO_ROOM };

// Records the key as used until expires; NONCE_REPLAYED when it already is
// (and has not expired), NONCE_NO_ROOM when every slot it may take is held
// by a live key (no slot is taken from a live key: that would reopen it).
NonceClaim claimNonce(const char* kind, const char* text, size_t length, time_t expires, time_t now);

// 1 while the address is locked out: limit failures, the last one less
// than window seconds ago.
int lockedOut(const char* address, int limit, int window, time_t now);
// Counts a failed authentication; returns 1 when this one locks the address.
int countFailure(const char* address, int limit, int window, time_t now);

#endif
