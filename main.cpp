// The ONVIF endpoint: one CGI process per request to /onvif/device_service.
#include "frame/frame.h"
#include "state/shm.h"

// The segment is attached before main, as every camera process does; a
// missing segment leaves the pointer empty and the service not ready.
static const bool segmentAttached =
    (G_shared_memory = (int*)getShareMemory(&shmid, ONVIF_SHM_KEY_FILE, ONVIF_SHM_ATTACH_BYTES), true);

int main()
{
    (void)segmentAttached;
    return serveRequest();
}

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ONVIF_HEAP_CHECKED 1
#endif
#endif
#if !defined(__SANITIZE_ADDRESS__) && !defined(ONVIF_HEAP_CHECKED)
#include <stdint.h>
#include <stdlib.h>
#include <new>
// The parsed request's nodes and strings come from one block that lives as
// long as the process: it exits after one request, and the C library's heap
// bookkeeping costs more than the parse it serves. A request that needs more
// takes the rest from the heap. The sanitizer builds keep the plain heap.
alignas(16) static unsigned char requestArena[128 * 1024];
static size_t arenaUsed;

static void* arenaAllocate(size_t n)
{
    size_t rounded = (n + 15) & ~(size_t)15;
    if (rounded >= n && rounded <= sizeof requestArena - arenaUsed) {
        void* p = requestArena + arenaUsed;
        arenaUsed += rounded;
        return p;
    }
    void* p = malloc(n ? n : 1);
    if (!p)
        abort();
    return p;
}

static void arenaRelease(void* p)
{
    uintptr_t at = (uintptr_t)p, start = (uintptr_t)requestArena;
    if (p && (at < start || at >= start + sizeof requestArena))
        free(p);
}

void* operator new(size_t n) { return arenaAllocate(n); }
void* operator new[](size_t n) { return arenaAllocate(n); }
void operator delete(void* p) noexcept { arenaRelease(p); }
void operator delete[](void* p) noexcept { arenaRelease(p); }
void operator delete(void* p, size_t) noexcept { arenaRelease(p); }
void operator delete[](void* p, size_t) noexcept { arenaRelease(p); }
#endif

#if !defined(__cpp_exceptions)
#include <stdlib.h>
// Built without exceptions (the camera release), nothing can throw: a
// terminate handler that only aborts keeps the runtime's name demangler out.
namespace __gnu_cxx {
void __verbose_terminate_handler() { abort(); }
}
#endif
