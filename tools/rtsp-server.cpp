// rtsp-server: plays the camera's stream encoder for the simulated camera. It
// serves a moving test picture on every video encoder channel's RTSP path on
// 127.0.0.1, encoded as the channel's settings file says, keeps a JPEG
// snapshot of each channel under the web root, and takes new settings on
// SIGHUP (the restart program stand-in sends it). Runs until SIGTERM/SIGINT.
//   rtsp-server PORT WWW_DIR      (channel files are read under ONVIF_ROOT)
#include <gst/gst.h>
#include <gst/rtsp-server/rtsp-server.h>
#include <glib-unix.h>

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#define MAX_CHANNELS 8
#define VALUE_SIZE 128
#define PATH_SIZE 512
#define LAUNCH_SIZE 1024

struct Channel {
    int present;
    char encoding[VALUE_SIZE];
    int width, height, fps, bitrate, quality;
    char streamPath[VALUE_SIZE];    // mount point, without the leading '/'
    char snapshotPath[VALUE_SIZE];  // under the web root
};

static Channel channels[MAX_CHANNELS];
static GstRTSPServer* server;
static const char* wwwDir;
static char rootDir[PATH_SIZE];
static unsigned generation;

static int rooted(const char* path, char* out, size_t n)
{
    int len = snprintf(out, n, "%s%s", rootDir, path);
    return len > 0 && (size_t)len < n;
}

// The value of "key=" in a key=value file, or empty when missing or too long.
static void readKey(FILE* f, const char* key, char* out, size_t n)
{
    out[0] = 0;
    rewind(f);
    char line[256];
    size_t keyLen = strlen(key);
    while (fgets(line, sizeof line, f)) {
        if (strncmp(line, key, keyLen) != 0 || line[keyLen] != '=')
            continue;
        char* value = line + keyLen + 1;
        value[strcspn(value, "\r\n")] = 0;
        if (strlen(value) < n)
            memcpy(out, value, strlen(value) + 1);
        return;
    }
}

static int readNumber(FILE* f, const char* key, int fallback, int low, int high)
{
    char text[VALUE_SIZE];
    readKey(f, key, text, sizeof text);
    char* end;
    long v = strtol(text, &end, 10);
    if (end == text || *end || v < low || v > high)
        return fallback;
    return (int)v;
}

// A path from a settings file goes into a launch line and a file name: only
// plain path characters, never "..".
static int safePath(const char* p)
{
    if (!p[0] || strstr(p, "..") || p[0] == '/')
        return 0;
    return strspn(p, "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./") == strlen(p);
}

static void readChannel(int n, Channel* c)
{
    char relative[64], path[PATH_SIZE];
    snprintf(relative, sizeof relative, "/tmp/onvif/VideoEncoder%d.VEncoder", n + 1);
    memset(c, 0, sizeof *c);
    if (!rooted(relative, path, sizeof path))
        return;
    FILE* f = fopen(path, "r");
    if (!f)
        return;
    c->present = 1;
    readKey(f, "Encoding", c->encoding, sizeof c->encoding);
    // x264 and the RTP JPEG header both want even sizes within their limits.
    c->width = readNumber(f, "Resolution.Width", 640, 16, 4096) & ~1;
    c->height = readNumber(f, "Resolution.Height", 360, 16, 2160) & ~1;
    c->fps = readNumber(f, "RateControl.FrameRateLimit", 25, 1, 60);
    c->bitrate = readNumber(f, "RateControl.BitrateLimit", 2048, 64, 100000);
    c->quality = readNumber(f, "Quality", 80, 1, 100);
    readKey(f, "Stream.Path", c->streamPath, sizeof c->streamPath);
    if (!safePath(c->streamPath))
        snprintf(c->streamPath, sizeof c->streamPath, "live/ch%d", n + 1);
    readKey(f, "Snapshot.Path", c->snapshotPath, sizeof c->snapshotPath);
    if (!safePath(c->snapshotPath))
        snprintf(c->snapshotPath, sizeof c->snapshotPath, "snapshot/ch%d.jpg", n + 1);
    fclose(f);
}

static int isJpeg(const Channel* c) { return strcmp(c->encoding, "JPEG") == 0; }

static int launchLine(const Channel* c, char* out, size_t n)
{
    int len;
    // The RTP JPEG header can only describe 4:2:0 and 4:2:2 pictures.
    if (isJpeg(c))
        len = snprintf(out, n,
                       "( videotestsrc is-live=true pattern=ball ! video/x-raw,width=%d,height=%d,framerate=%d/1 ! "
                       "videoconvert ! video/x-raw,format=I420 ! jpegenc quality=%d ! rtpjpegpay name=pay0 pt=26 )",
                       c->width, c->height, c->fps, c->quality);
    else
        len = snprintf(out, n,
                       "( videotestsrc is-live=true pattern=ball ! video/x-raw,width=%d,height=%d,framerate=%d/1 ! "
                       "videoconvert ! x264enc tune=zerolatency speed-preset=ultrafast bitrate=%d key-int-max=%d ! "
                       "rtph264pay name=pay0 pt=96 config-interval=1 )",
                       c->width, c->height, c->fps, c->bitrate, c->fps);
    return len > 0 && (size_t)len < n;
}

// Writes the channel's snapshot beside its final name and renames it, so the
// web server never hands out half a picture.
static void writeSnapshot(const Channel* c)
{
    char target[PATH_SIZE], work[PATH_SIZE + 8], launch[LAUNCH_SIZE];
    int len = snprintf(target, sizeof target, "%s/%s", wwwDir, c->snapshotPath);
    if (len <= 0 || (size_t)len >= sizeof target)
        return;
    snprintf(work, sizeof work, "%s.part", target);
    char* slash = strrchr(target, '/');
    if (slash) {
        *slash = 0;
        g_mkdir_with_parents(target, 0755);
        *slash = '/';
    }
    len = snprintf(launch, sizeof launch,
                   "videotestsrc num-buffers=1 pattern=ball ! video/x-raw,width=%d,height=%d ! videoconvert ! "
                   "jpegenc quality=%d ! filesink name=out",
                   c->width, c->height, c->quality);
    if (len <= 0 || (size_t)len >= sizeof launch)
        return;
    GError* error = 0;
    GstElement* pipeline = gst_parse_launch(launch, &error);
    if (!pipeline) {
        fprintf(stderr, "rtsp-server: snapshot pipeline: %s\n", error ? error->message : "?");
        g_clear_error(&error);
        return;
    }
    GstElement* sink = gst_bin_get_by_name(GST_BIN(pipeline), "out");
    g_object_set(sink, "location", work, NULL);
    gst_object_unref(sink);
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    GstBus* bus = gst_element_get_bus(pipeline);
    GstMessage* msg = gst_bus_timed_pop_filtered(bus, 10 * GST_SECOND,
                                                 (GstMessageType)(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    int done = msg && GST_MESSAGE_TYPE(msg) == GST_MESSAGE_EOS;
    if (msg)
        gst_message_unref(msg);
    gst_object_unref(bus);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);
    if (done)
        rename(work, target);
    else
        unlink(work);
}

static void mountChannel(GstRTSPMountPoints* mounts, const Channel* c)
{
    char launch[LAUNCH_SIZE], mount[VALUE_SIZE + 1];
    if (!launchLine(c, launch, sizeof launch))
        return;
    snprintf(mount, sizeof mount, "/%s", c->streamPath);
    GstRTSPMediaFactory* factory = gst_rtsp_media_factory_new();
    gst_rtsp_media_factory_set_launch(factory, launch);
    // Unicast only: a multicast transport could leave the loopback range.
    gst_rtsp_media_factory_set_protocols(factory,
                                         (GstRTSPLowerTrans)(GST_RTSP_LOWER_TRANS_UDP | GST_RTSP_LOWER_TRANS_TCP));
    gst_rtsp_media_factory_set_shared(factory, TRUE);
    gst_rtsp_mount_points_add_factory(mounts, mount, factory);
}

// Reads every channel file again and remounts every path: sessions already
// playing keep their picture, new ones get the new settings.
static void loadChannels()
{
    GstRTSPMountPoints* mounts = gst_rtsp_server_get_mount_points(server);
    for (int i = 0; i < MAX_CHANNELS; ++i) {
        if (channels[i].present) {
            char mount[VALUE_SIZE + 1];
            snprintf(mount, sizeof mount, "/%s", channels[i].streamPath);
            gst_rtsp_mount_points_remove_factory(mounts, mount);
        }
        readChannel(i, &channels[i]);
        if (channels[i].present) {
            mountChannel(mounts, &channels[i]);
            writeSnapshot(&channels[i]);
        }
    }
    g_object_unref(mounts);
    // Whoever sent SIGHUP waits for this number to change.
    ++generation;
    char path[PATH_SIZE], work[PATH_SIZE + 8];
    if (rooted("/tmp/rtsp_server_generation", path, sizeof path)) {
        snprintf(work, sizeof work, "%s.part", path);
        FILE* f = fopen(work, "w");
        if (f) {
            fprintf(f, "%u\n", generation);
            fclose(f);
            rename(work, path);
        }
    }
}

static gboolean onReload(gpointer)
{
    loadChannels();
    return G_SOURCE_CONTINUE;
}

static gboolean onStop(gpointer loop)
{
    g_main_loop_quit((GMainLoop*)loop);
    return G_SOURCE_REMOVE;
}

// Sessions whose client went away without TEARDOWN are dropped now and then.
static gboolean cleanupSessions(gpointer)
{
    GstRTSPSessionPool* pool = gst_rtsp_server_get_session_pool(server);
    gst_rtsp_session_pool_cleanup(pool);
    g_object_unref(pool);
    return G_SOURCE_CONTINUE;
}

int main(int argc, char** argv)
{
    gst_init(&argc, &argv);
    if (argc != 3) {
        fprintf(stderr, "usage: rtsp-server PORT WWW_DIR\n");
        return 2;
    }
    const char* root = getenv("ONVIF_ROOT");
    if (!root || !root[0] || strlen(root) >= sizeof rootDir) {
        fprintf(stderr, "rtsp-server: ONVIF_ROOT names no camera root\n");
        return 2;
    }
    memcpy(rootDir, root, strlen(root) + 1);
    wwwDir = argv[2];
    GMainLoop* loop = g_main_loop_new(NULL, FALSE);
    server = gst_rtsp_server_new();
    gst_rtsp_server_set_address(server, "127.0.0.1");
    gst_rtsp_server_set_service(server, argv[1]);
    if (gst_rtsp_server_attach(server, NULL) == 0) {
        fprintf(stderr, "rtsp-server: cannot listen on 127.0.0.1:%s\n", argv[1]);
        return 1;
    }
    // After listening: the first generation number tells the camera's start
    // script that the stream is there and the snapshots are written.
    loadChannels();
    g_unix_signal_add(SIGHUP, onReload, NULL);
    g_unix_signal_add(SIGTERM, onStop, loop);
    g_unix_signal_add(SIGINT, onStop, loop);
    g_timeout_add_seconds(5, cleanupSessions, NULL);
    printf("rtsp-server: rtsp://127.0.0.1:%s/ ready\n", argv[1]);
    fflush(stdout);
    g_main_loop_run(loop);
    g_object_unref(server);
    g_main_loop_unref(loop);
    return 0;
}
