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

#if !defined(__cpp_exceptions)
#include <stdlib.h>
// Built without exceptions (the camera release), nothing can throw: a
// terminate handler that only aborts keeps the runtime's name demangler out.
namespace __gnu_cxx {
void __verbose_terminate_handler() { abort(); }
}
#endif
