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
