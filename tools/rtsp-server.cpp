// rtsp-server: plays the camera's stream encoder for the simulated camera, or
// for every camera of a simulated farm in one process. Each camera's channels
// are served on its own address: the scene its PTZ head looks at (tools/scene.h),
// encoded as the channel's settings file says, only while a client watches.
// It lays out each channel's snapshot name under the camera's web root for the
// snapshot program, and takes new settings on SIGHUP (the restart program
// stand-in sends it). Runs until SIGTERM/SIGINT.
//   rtsp-server PORT WWW_DIR            (one camera at 127.0.0.1, root ONVIF_ROOT)
//   rtsp-server PORT --cameras FILE     (lines "ADDRESS ROOT"; web root ROOT/www)
#include <gst/gst.h>
#include <gst/app/gstappsrc.h>
#include <gst/rtsp-server/rtsp-server.h>
#include <glib-unix.h>

#include "tools/scene.h"

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#define MAX_CHANNELS 8
#define MAX_CAMERAS 254
#define VALUE_SIZE 128
#define PATH_SIZE 512
#define LAUNCH_SIZE 1024

struct Channel {
    int present;
    char encoding[VALUE_SIZE];
    char profile[VALUE_SIZE];
    int width, height, fps, bitrate, quality;
    char streamPath[VALUE_SIZE];    // mount point, without the leading '/'
    char snapshotPath[VALUE_SIZE];  // under the web root
};

struct Camera {
    SceneCamera scene;              // its root, name and segment
    char address[64];
    char www[PATH_SIZE];
    GstRTSPServer* server;
    Channel channels[MAX_CHANNELS];
    unsigned generation;
    char accounts[256];             // the fingerprint the stream's credentials were made from
};

// What one playing pipeline needs to draw its frames, fixed when it starts.
struct Feed {
    Camera* camera;
    int channel, width, height, fps;
    guint64 frames;
};

static Camera cameras[MAX_CAMERAS];
static int cameraCount;

static int rooted(const Camera* camera, const char* path, char* out, size_t n)
{
    int len = snprintf(out, n, "%s%s", camera->scene.root, path);
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

// A path from a settings file goes into a mount point and a file name: only
// plain path characters, never "..".
static int safePath(const char* p)
{
    if (!p[0] || strstr(p, "..") || p[0] == '/')
        return 0;
    return strspn(p, "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./") == strlen(p);
}

static void readChannel(const Camera* camera, int n, Channel* c)
{
    char relative[64], path[PATH_SIZE];
    snprintf(relative, sizeof relative, "/tmp/onvif/VideoEncoder%d.VEncoder", n + 1);
    memset(c, 0, sizeof *c);
    if (!rooted(camera, relative, path, sizeof path))
        return;
    FILE* f = fopen(path, "r");
    if (!f)
        return;
    c->present = 1;
    readKey(f, "Encoding", c->encoding, sizeof c->encoding);
    readKey(f, "Profile", c->profile, sizeof c->profile);
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

// The encoder's profile as the settings name it. x264 has no Extended
// profile; Baseline is its subset that any Extended decoder takes.
static const char* h264Profile(const Channel* c)
{
    if (strcmp(c->profile, "Main") == 0)
        return "main";
    if (strcmp(c->profile, "High") == 0)
        return "high";
    return "baseline";
}

static int launchLine(const Channel* c, char* out, size_t n)
{
    int len;
    // The RTP JPEG header can only describe 4:2:0 and 4:2:2 pictures: the
    // scene is drawn in 4:2:0.
    if (isJpeg(c))
        len = snprintf(out, n,
                       "( appsrc name=scene is-live=true format=time "
                       "caps=video/x-raw,format=I420,width=%d,height=%d,framerate=%d/1 ! "
                       "jpegenc quality=%d ! rtpjpegpay name=pay0 pt=26 )",
                       c->width, c->height, c->fps, c->quality);
    else
        len = snprintf(out, n,
                       "( appsrc name=scene is-live=true format=time "
                       "caps=video/x-raw,format=I420,width=%d,height=%d,framerate=%d/1 ! "
                       "x264enc tune=zerolatency speed-preset=%s bitrate=%d key-int-max=%d ! "
                       "video/x-h264,profile=%s ! rtph264pay name=pay0 pt=96 config-interval=1 )",
                       c->width, c->height, c->fps,
                       // x264 names the smallest profile its tools fit: the fastest preset
                       // leaves CABAC out and so always makes Baseline.
                       strcmp(h264Profile(c), "baseline") == 0 ? "ultrafast" : "superfast", c->bitrate, c->fps,
                       h264Profile(c));
    return len > 0 && (size_t)len < n;
}

// Writes a file whole beside its final name and renames it into place.
static void replaceWhole(const char* target, const char* text)
{
    char work[PATH_SIZE + 8];
    snprintf(work, sizeof work, "%s.part", target);
    FILE* f = fopen(work, "w");
    if (!f)
        return;
    fputs(text, f);
    fclose(f);
    rename(work, target);
}

// The snapshot name under the web root holds the channel number; the web
// server runs the snapshot program on it, which draws the picture then.
static void layOutSnapshot(const Camera* camera, int n, const Channel* c)
{
    char target[PATH_SIZE], text[32];
    int len = snprintf(target, sizeof target, "%s/%s", camera->www, c->snapshotPath);
    if (len <= 0 || (size_t)len >= sizeof target)
        return;
    char* slash = strrchr(target, '/');
    if (slash) {
        *slash = 0;
        g_mkdir_with_parents(target, 0755);
        *slash = '/';
    }
    snprintf(text, sizeof text, "channel %d\n", n + 1);
    replaceWhole(target, text);
}

static void needData(GstElement* source, guint, gpointer data)
{
    Feed* feed = (Feed*)data;
    size_t size = sceneFrameSize(feed->width, feed->height);
    GstBuffer* buffer = gst_buffer_new_allocate(NULL, size, NULL);
    GstMapInfo map;
    if (gst_buffer_map(buffer, &map, GST_MAP_WRITE)) {
        SceneView view;
        currentView(&feed->camera->scene, feed->channel, &view);
        struct timeval now;
        gettimeofday(&now, 0);
        renderScene(map.data, feed->width, feed->height, view, now.tv_sec + now.tv_usec / 1e6);
        gst_buffer_unmap(buffer, &map);
    }
    GST_BUFFER_PTS(buffer) = gst_util_uint64_scale(feed->frames, GST_SECOND, feed->fps);
    GST_BUFFER_DURATION(buffer) = gst_util_uint64_scale(1, GST_SECOND, feed->fps);
    ++feed->frames;
    gst_app_src_push_buffer(GST_APP_SRC(source), buffer);
}

// A pipeline starts for the first client of a mount; later clients share it.
static void onMediaConfigure(GstRTSPMediaFactory*, GstRTSPMedia* media, gpointer data)
{
    Feed* start = (Feed*)data;
    GstElement* element = gst_rtsp_media_get_element(media);
    GstElement* source = gst_bin_get_by_name_recurse_up(GST_BIN(element), "scene");
    if (source) {
        Feed* feed = g_new(Feed, 1);
        *feed = *start;
        feed->frames = 0;
        g_object_set_data_full(G_OBJECT(media), "scene-feed", feed, g_free);
        g_signal_connect(source, "need-data", G_CALLBACK(needData), feed);
        gst_object_unref(source);
    }
    gst_object_unref(element);
}

static void mountChannel(Camera* camera, GstRTSPMountPoints* mounts, int n, const Channel* c)
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
    // Consulted only while the server has an auth object (the ONVIF mode).
    gst_rtsp_media_factory_add_role(factory, "viewer", GST_RTSP_PERM_MEDIA_FACTORY_ACCESS, G_TYPE_BOOLEAN, TRUE,
                                    GST_RTSP_PERM_MEDIA_FACTORY_CONSTRUCT, G_TYPE_BOOLEAN, TRUE, NULL);
    Feed* feed = g_new0(Feed, 1);
    feed->camera = camera;
    feed->channel = n + 1;
    feed->width = c->width;
    feed->height = c->height;
    feed->fps = c->fps;
    g_signal_connect_data(factory, "media-configure", G_CALLBACK(onMediaConfigure), feed,
                          (GClosureNotify)(void (*)(void))g_free, (GConnectFlags)0);
    gst_rtsp_mount_points_add_factory(mounts, mount, factory);
}

// Reads a camera's channel files again and remounts every path: sessions
// already playing keep their picture, new ones get the new settings.
static void loadChannels(Camera* camera)
{
    loadSceneCamera(&camera->scene, camera->scene.root);
    // Attaches the segment here, before any streaming thread looks at it.
    SceneView view;
    currentView(&camera->scene, 1, &view);
    GstRTSPMountPoints* mounts = gst_rtsp_server_get_mount_points(camera->server);
    for (int i = 0; i < MAX_CHANNELS; ++i) {
        Channel* c = &camera->channels[i];
        if (c->present) {
            char mount[VALUE_SIZE + 1];
            snprintf(mount, sizeof mount, "/%s", c->streamPath);
            gst_rtsp_mount_points_remove_factory(mounts, mount);
        }
        readChannel(camera, i, c);
        if (c->present) {
            mountChannel(camera, mounts, i, c);
            layOutSnapshot(camera, i, c);
        }
    }
    g_object_unref(mounts);
    // Whoever sent SIGHUP waits for this number to change.
    ++camera->generation;
    char path[PATH_SIZE], text[32];
    if (rooted(camera, "/tmp/rtsp_server_generation", path, sizeof path)) {
        snprintf(text, sizeof text, "%u\n", camera->generation);
        replaceWhole(path, text);
    }
}

// The camera's accounts that may watch: every web server account, and the
// ONVIF users of level User and up (all the levels there are).
static void addAccounts(GstRTSPAuth* auth, GstRTSPToken* token, const char* file, int passwordField, int* added)
{
    FILE* f = fopen(file, "r");
    if (!f)
        return;
    char line[256];
    while (fgets(line, sizeof line, f)) {
        line[strcspn(line, "\r\n")] = 0;
        char* fields[3] = {line, 0, 0};
        for (int i = 1; i <= passwordField; ++i) {
            char* colon = fields[i - 1] ? strchr(fields[i - 1], ':') : 0;
            if (!colon)
                break;
            *colon = 0;
            fields[i] = colon + 1;
        }
        if (fields[0][0] && fields[passwordField]) {
            gst_rtsp_auth_add_digest(auth, fields[0], fields[passwordField], token);
            ++*added;
        }
    }
    fclose(f);
}

// A fingerprint of what the stream's credentials follow: the mode and both
// account files; the accounts are read again when it changes.
static void accountsFingerprint(const Camera* camera, char* out, size_t n)
{
    static const char* const FILES[] = {"/tmp/onvif/onvif.conf", "/etc/appWeb/appweb.pass",
                                        "/usr/apache/htdocs/onvif/Users.conf"};
    size_t used = 0;
    out[0] = 0;
    for (const char* file : FILES) {
        char path[PATH_SIZE];
        struct stat st;
        if (!rooted(camera, file, path, sizeof path) || stat(path, &st) != 0)
            continue;
        used += snprintf(out + used, used < n ? n - used : 0, "%ld.%09ld:%ld;", (long)st.st_mtim.tv_sec,
                         (long)st.st_mtim.tv_nsec, (long)st.st_size);
        if (used >= n)
            return;
    }
}

static int onvifMode(const Camera* camera)
{
    char path[PATH_SIZE], line[256];
    int onvif = 0;
    if (!rooted(camera, "/tmp/onvif/onvif.conf", path, sizeof path))
        return 0;
    FILE* f = fopen(path, "r");
    if (!f)
        return 0;
    while (fgets(line, sizeof line, f))
        if (strncmp(line, "Conformance.Mode=", 17) == 0)
            onvif = strncmp(line + 17, "onvif", 5) == 0 && strchr("\r\n", line[22]);
    fclose(f);
    return onvif;
}

// In the ONVIF mode the stream asks for the camera's accounts by RTSP digest,
// in the realm of the service's own HTTP digest; in the legacy mode it is open.
static void applyAccounts(Camera* camera)
{
    char fingerprint[256];
    accountsFingerprint(camera, fingerprint, sizeof fingerprint);
    if (strcmp(fingerprint, camera->accounts) == 0)
        return;
    snprintf(camera->accounts, sizeof camera->accounts, "%s", fingerprint);
    if (!onvifMode(camera)) {
        gst_rtsp_server_set_auth(camera->server, NULL);
        return;
    }
    GstRTSPAuth* auth = gst_rtsp_auth_new();
    gst_rtsp_auth_set_supported_methods(auth, GST_RTSP_AUTH_DIGEST);
    gst_rtsp_auth_set_realm(auth, "ONVIF camera");
    GstRTSPToken* token = gst_rtsp_token_new(GST_RTSP_TOKEN_MEDIA_FACTORY_ROLE, G_TYPE_STRING, "viewer", NULL);
    char pass[PATH_SIZE], users[PATH_SIZE];
    int added = 0;
    if (rooted(camera, "/etc/appWeb/appweb.pass", pass, sizeof pass))
        addAccounts(auth, token, pass, 1, &added);
    if (rooted(camera, "/usr/apache/htdocs/onvif/Users.conf", users, sizeof users))
        addAccounts(auth, token, users, 2, &added);
    gst_rtsp_token_unref(token);
    gst_rtsp_server_set_auth(camera->server, auth);
    g_object_unref(auth);
}

static gboolean followAccounts(gpointer)
{
    for (int i = 0; i < cameraCount; ++i)
        applyAccounts(&cameras[i]);
    return G_SOURCE_CONTINUE;
}

static gboolean onReload(gpointer)
{
    for (int i = 0; i < cameraCount; ++i)
        loadChannels(&cameras[i]);
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
    for (int i = 0; i < cameraCount; ++i) {
        GstRTSPSessionPool* pool = gst_rtsp_server_get_session_pool(cameras[i].server);
        gst_rtsp_session_pool_cleanup(pool);
        g_object_unref(pool);
    }
    return G_SOURCE_CONTINUE;
}

static int addCamera(const char* address, const char* root, const char* www)
{
    if (cameraCount >= MAX_CAMERAS || strlen(address) >= sizeof cameras[0].address ||
        strlen(root) >= sizeof cameras[0].scene.root || strlen(www) >= sizeof cameras[0].www ||
        strncmp(address, "127.", 4) != 0) {
        fprintf(stderr, "rtsp-server: camera %s %s refused\n", address, root);
        return 0;
    }
    Camera* camera = &cameras[cameraCount++];
    snprintf(camera->address, sizeof camera->address, "%s", address);
    snprintf(camera->scene.root, sizeof camera->scene.root, "%s", root);
    snprintf(camera->www, sizeof camera->www, "%s", www);
    return 1;
}

static int readCameraList(const char* file)
{
    FILE* f = fopen(file, "r");
    if (!f)
        return 0;
    char line[PATH_SIZE + 80], address[64], root[PATH_SIZE], www[PATH_SIZE + 8];
    int ok = 1;
    while (ok && fgets(line, sizeof line, f))
        if (sscanf(line, "%63s %511s", address, root) == 2) {
            snprintf(www, sizeof www, "%s/www", root);
            ok = addCamera(address, root, www);
        }
    fclose(f);
    return ok && cameraCount > 0;
}

int main(int argc, char** argv)
{
    gst_init(&argc, &argv);
    if (argc == 4 && strcmp(argv[2], "--cameras") == 0) {
        if (!readCameraList(argv[3])) {
            fprintf(stderr, "rtsp-server: no cameras in %s\n", argv[3]);
            return 2;
        }
    } else if (argc == 3) {
        const char* root = getenv("ONVIF_ROOT");
        if (!root || !root[0] || !addCamera("127.0.0.1", root, argv[2])) {
            fprintf(stderr, "rtsp-server: ONVIF_ROOT names no camera root\n");
            return 2;
        }
    } else {
        fprintf(stderr, "usage: rtsp-server PORT WWW_DIR | rtsp-server PORT --cameras FILE\n");
        return 2;
    }
    GMainLoop* loop = g_main_loop_new(NULL, FALSE);
    for (int i = 0; i < cameraCount; ++i) {
        Camera* camera = &cameras[i];
        camera->server = gst_rtsp_server_new();
        gst_rtsp_server_set_address(camera->server, camera->address);
        gst_rtsp_server_set_service(camera->server, argv[1]);
        if (gst_rtsp_server_attach(camera->server, NULL) == 0) {
            fprintf(stderr, "rtsp-server: cannot listen on %s:%s\n", camera->address, argv[1]);
            return 1;
        }
        // After listening: the first generation number tells the camera's
        // start script that the stream is there and the snapshots are laid out.
        loadChannels(camera);
        applyAccounts(camera);
    }
    g_unix_signal_add(SIGHUP, onReload, NULL);
    g_unix_signal_add(SIGTERM, onStop, loop);
    g_unix_signal_add(SIGINT, onStop, loop);
    g_timeout_add_seconds(5, cleanupSessions, NULL);
    g_timeout_add_seconds(1, followAccounts, NULL);
    printf("rtsp-server: rtsp://%s:%s/ ready%s\n", cameras[0].address, argv[1],
           cameraCount > 1 ? " (and the farm's other cameras)" : "");
    fflush(stdout);
    g_main_loop_run(loop);
    for (int i = 0; i < cameraCount; ++i)
        g_object_unref(cameras[i].server);
    g_main_loop_unref(loop);
    return 0;
}
