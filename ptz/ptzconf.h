// PTZ nodes and configurations: the printers the profile listings share.
#ifndef PTZ_PTZCONF_H
#define PTZ_PTZCONF_H

// Appends the body of the PTZ configuration in "<token>.PTZConf".
void Read_Print_PTZ_Conf(const char* fileName);

#endif
