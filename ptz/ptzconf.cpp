// PTZ configuration printer shared by the profile listings.
#include "ptz/ptzconf.h"
#include "frame/frame.h"

void Read_Print_PTZ_Conf(const char*)
{
}
