// Video source, audio source, video encoder and audio encoder configuration
// bodies, in the element order of the ONVIF media schema. The file formats
// are described in factory/MEDIA-FILES.md.
#include "media/printers.h"
#include "frame/frame.h"
#include "state/profiles.h"
#include "state/paths.h"
#include "state/config.h"

#include <stdio.h>
#include <string.h>

#define COUNT(a) (int)(sizeof(a) / sizeof((a)[0]))

static int readConfiguration(const char* dir, const char* fileName, const char* const* keys,
                             char (*values)[CONFIG_VALUE_SIZE], int count, const char* printer)
{
    char path[300];
    formatChecked(path, sizeof path, "%s%s", dir, fileName);
    if (readConfigValues(path, keys, values, count))
        return 1;
    logServiceError(printer, "%s missing", fileName);
    return 0;
}

// The multicast block and session timeout every stream configuration ends with.
static void printMulticast(char (*v)[CONFIG_VALUE_SIZE])
{
    appendResponse("<tt:Multicast><tt:Address><tt:Type>%s</tt:Type>", v[0]);
    if (strcmp(v[0], "IPv6") == 0)
        appendResponse("<tt:IPv6Address>%s</tt:IPv6Address>", v[2]);
    else
        appendResponse("<tt:IPv4Address>%s</tt:IPv4Address>", v[1]);
    appendResponse("</tt:Address><tt:Port>%s</tt:Port><tt:TTL>%s</tt:TTL><tt:AutoStart>%s</tt:AutoStart>"
                   "</tt:Multicast><tt:SessionTimeout>%s</tt:SessionTimeout>", v[3], v[4], v[5], v[6]);
}

#define MULTICAST_KEYS "Multicast.Address.Type", "Multicast.Address.IPv4Address", "Multicast.Address.IPv6Address", \
    "Multicast.Port", "Multicast.TTL", "Multicast.AutoStart", "SessionTimeout"

void Read_Print_VideoSourceFile(const char* fileName)
{
    static const char* const keys[] = {"Name", "UseCount", "SourceToken", "Bounds.x", "Bounds.y",
                                       "Bounds.width", "Bounds.height"};
    char v[COUNT(keys)][CONFIG_VALUE_SIZE];
    if (!readConfiguration(ONVIF_DIR, fileName, keys, v, COUNT(keys), "Read_Print_VideoSourceFile"))
        return;
    appendResponse("<tt:Name>%s</tt:Name><tt:UseCount>%s</tt:UseCount><tt:SourceToken>%s</tt:SourceToken>"
                   "<tt:Bounds x=\"%s\" y=\"%s\" width=\"%s\" height=\"%s\"></tt:Bounds>",
                   v[0], v[1], v[2], v[3], v[4], v[5], v[6]);
}

void Read_Print_AudioSourceFile(const char* fileName)
{
    static const char* const keys[] = {"Name", "UseCount", "SourceToken"};
    char v[COUNT(keys)][CONFIG_VALUE_SIZE];
    if (!readConfiguration(ONVIF_WEB_DIR, fileName, keys, v, COUNT(keys), "Read_Print_AudioSourceFile"))
        return;
    appendResponse("<tt:Name>%s</tt:Name><tt:UseCount>%s</tt:UseCount><tt:SourceToken>%s</tt:SourceToken>",
                   v[0], v[1], v[2]);
}

void Read_Print_VideoEncoderFile(const char* fileName)
{
    static const char* const keys[] = {"Name", "UseCount", "Encoding", "Resolution.Width", "Resolution.Height",
                                       "Quality", "RateControl.FrameRateLimit", "RateControl.EncodingInterval",
                                       "RateControl.BitrateLimit", "GovLength", "Profile", MULTICAST_KEYS};
    char v[COUNT(keys)][CONFIG_VALUE_SIZE];
    if (!readConfiguration(ONVIF_DIR, fileName, keys, v, COUNT(keys), "Read_Print_VideoEncoderFile"))
        return;
    appendResponse("<tt:Name>%s</tt:Name><tt:UseCount>%s</tt:UseCount><tt:Encoding>%s</tt:Encoding>"
                   "<tt:Resolution><tt:Width>%s</tt:Width><tt:Height>%s</tt:Height></tt:Resolution>"
                   "<tt:Quality>%s</tt:Quality><tt:RateControl><tt:FrameRateLimit>%s</tt:FrameRateLimit>"
                   "<tt:EncodingInterval>%s</tt:EncodingInterval><tt:BitrateLimit>%s</tt:BitrateLimit>"
                   "</tt:RateControl>", v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[8]);
    if (strcmp(v[2], "MPEG4") == 0)
        appendResponse("<tt:MPEG4><tt:GovLength>%s</tt:GovLength><tt:Mpeg4Profile>%s</tt:Mpeg4Profile></tt:MPEG4>",
                       v[9], v[10]);
    else if (strcmp(v[2], "H264") == 0)
        appendResponse("<tt:H264><tt:GovLength>%s</tt:GovLength><tt:H264Profile>%s</tt:H264Profile></tt:H264>",
                       v[9], v[10]);
    printMulticast(v + 11);
}

void Read_Print_AudioEncoderFile(const char* fileName)
{
    static const char* const keys[] = {"Name", "UseCount", "Encoding", "Bitrate", "SampleRate", MULTICAST_KEYS};
    char v[COUNT(keys)][CONFIG_VALUE_SIZE];
    if (!readConfiguration(ONVIF_DIR, fileName, keys, v, COUNT(keys), "Read_Print_AudioEncoderFile"))
        return;
    appendResponse("<tt:Name>%s</tt:Name><tt:UseCount>%s</tt:UseCount><tt:Encoding>%s</tt:Encoding>"
                   "<tt:Bitrate>%s</tt:Bitrate><tt:SampleRate>%s</tt:SampleRate>", v[0], v[1], v[2], v[3], v[4]);
    printMulticast(v + 5);
}
