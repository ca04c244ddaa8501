// ptz-head: plays the camera's PTZ process for the simulated camera. It
// carries out the commands the PTZ program stand-in queues, moves a head
// state at the commanded velocities, counts the motion timers of the
// device-state segment down in tenths of a second of the monotonic clock, as
// the camera does (a busy machine delays a tick, never stretches a move),
// keeps presets in the integrated preset store, and leaves the position
// where the query stand-ins print it from and the picture reads it. It tells how far into the queue
// it has carried out commands, so the stand-in can answer a preset only once
// it is stored. Runs until it gets SIGTERM.
#include "state/config.h"
#include "state/paths.h"
#include "state/shm.h"
#include "ptz/ptzmove.h"

#include <math.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#define COMMANDS "/tmp/ptz_head_commands"
#define POSITION "/tmp/ptz_head_position"
#define ZOOM "/tmp/ptz_head_zoom"
#define PRESETS "/etc/dynamic/ptz.conf"
#define DONE "/tmp/ptz_head_done"
#define VIEW "/tmp/ptz_head_view"
#define IDLE_TICK_MS 100
#define MOVING_TICK_MS 40   // the picture follows a moving head smoothly
#define PAN_DEGREES_PER_SECOND 60.0
#define TILT_DEGREES_PER_SECOND 30.0

static volatile sig_atomic_t running = 1;
static void stop(int) { running = 0; }

struct Head {
    double pan = 0, tilt = 45, zoom = 0;        // degrees, degrees, zoom position or step
    double panSpeed = 0, tiltSpeed = 0, zoomSpeed = 0;  // per second
    int hasTarget = 0;
    double targetPan = 0, targetTilt = 45, targetZoom = 0;
    double homePan = 0, homeTilt = 45, homeZoom = 0;
    int graceTicks[2] = {0, 0};  // a new move is not stopped by the old timer word
    double owed[2] = {0, 0};     // seconds run on each timer not yet counted off in tenths
};

// The dome's zoom runs to its module's position factor, a stepped lens to
// its tenth step.
static double zoomLimit()
{
    return shmWord(ZOOM_WORD) == LENS_DOME ? modelValue(Cap::LensZoomFactor) : 10.0;
}

static void writeFileWhole(const char* path, const char* text)
{
    replaceFileContent(path, text);
}

// Written only when they change: an idle farm of heads stays quiet.
static void publishWhenChanged(const char* path, const char* text, char* last, size_t n)
{
    if (strcmp(text, last) == 0)
        return;
    writeFileWhole(path, text);
    snprintf(last, n, "%s", text);
}

static void publish(const Head& h)
{
    static char lastPosition[128], lastZoom[128], lastView[128];
    char text[128];
    snprintf(text, sizeof text, "pan = %f\ntilt = %f\nzoom = %d\n", h.pan, h.tilt, (int)lround(h.zoom));
    publishWhenChanged(POSITION, text, lastPosition, sizeof lastPosition);
    snprintf(text, sizeof text, "zoom = %d\n", (int)lround(h.zoom));
    publishWhenChanged(ZOOM, text, lastZoom, sizeof lastZoom);
    snprintf(text, sizeof text, "%f %f %f\n", h.pan, h.tilt, h.zoom / zoomLimit());
    publishWhenChanged(VIEW, text, lastView, sizeof lastView);
}

struct PresetEdit {
    int number;
    const char* pos;    // new Pos value, or 0 to remove
    const char* label;
    int replaced;
};

static int editPreset(const char* line, FILE* out, void* ctx)
{
    PresetEdit* e = (PresetEdit*)ctx;
    char prefix[64];
    snprintf(prefix, sizeof prefix, "root.PTZ.PresetPos.P%d.", e->number);
    if (!line) {
        if (e->pos && !e->replaced)
            fprintf(out, "%sPos=%s\n%sLabel=%s\n", prefix, e->pos, prefix, e->label);
        return 0;
    }
    if (strncmp(line, prefix, strlen(prefix)) != 0)
        return 0;
    if (e->pos && strstr(line, ".Pos=")) {
        fprintf(out, "%sPos=%s\n%sLabel=%s\n", prefix, e->pos, prefix, e->label);
        e->replaced = 1;
    }
    return 1;
}

static void storePreset(const Head& h, const char* value, int named)
{
    int number = atoi(value);
    char label[80], pos[128];
    const char* comma = strchr(value, ',');
    snprintf(label, sizeof label, "%s", named && comma && comma[1] ? comma + 1 : "");
    if (!label[0])
        snprintf(label, sizeof label, "Preset%d", number);
    for (char* p = label; *p; ++p)
        if (*p == ' ' || *p == '\n')
            *p = '_';  // the store's labels are one word
    snprintf(pos, sizeof pos, "%f,%f,%d", h.pan, h.tilt, (int)lround(h.zoom));
    PresetEdit e = {number, pos, label, 0};
    if (rewriteFileThroughWorkCopy(PRESETS, editPreset, &e) != 0) {
        char text[512];
        snprintf(text, sizeof text, "root.PTZ.PresetPos.P%d.Pos=%s\nroot.PTZ.PresetPos.P%d.Label=%s\n", number, pos,
                 number, label);
        replaceFileContent(PRESETS, text);
    }
}

static int recallPreset(int number, double* pan, double* tilt, double* zoom)
{
    FILE* f = fopenRoot(PRESETS, "r");
    if (!f)
        return 0;
    char line[256];
    int n = 0, found = 0;
    double p, t, z;
    while (!found && fgets(line, sizeof line, f))
        found = sscanf(line, "root.PTZ.PresetPos.P%d.Pos=%lf,%lf,%lf", &n, &p, &t, &z) == 4 && n == number;
    fclose(f);
    if (found) {
        *pan = p;
        *tilt = t;
        *zoom = z;
    }
    return found;
}

static void target(Head& h, double pan, double tilt, double zoom)
{
    h.hasTarget = 1;
    h.targetPan = pan;
    h.targetTilt = tilt;
    h.targetZoom = zoom;
    h.panSpeed = h.tiltSpeed = h.zoomSpeed = 0;
}

// One queued command: the verb and the verbs' own values, tab-separated.
static void apply(Head& h, char* line)
{
    char* f[14];
    int n = 0;
    for (char* p = line; n < 14;) {
        f[n++] = p;
        char* tab = strchr(p, '\t');
        if (!tab)
            break;
        *tab = 0;
        p = tab + 1;
    }
    while (n < 14)
        f[n++] = (char*)"";
    f[13][strcspn(f[13], "\n")] = 0;
    const char* verb = f[0];
    if (strcmp(verb, "continuouspantiltmove") == 0) {
        double x = 0, y = 0;
        sscanf(f[1], "%lf,%lf", &x, &y);
        h.hasTarget = 0;
        h.panSpeed = x / 100 * PAN_DEGREES_PER_SECOND;
        h.tiltSpeed = y / 100 * TILT_DEGREES_PER_SECOND;
        h.graceTicks[0] = 3;
    } else if (strcmp(verb, "continuouszoommove") == 0) {
        h.hasTarget = 0;
        h.zoomSpeed = atof(f[2]) / 100 * zoomLimit() / 4;
        h.graceTicks[1] = 3;
    } else if (strcmp(verb, "move") == 0) {
        if (strcmp(f[6], "home") == 0)
            target(h, h.homePan, h.homeTilt, h.homeZoom);
        else
            target(h, f[3][0] ? atof(f[3]) : h.pan, f[4][0] ? atof(f[4]) : h.tilt, f[5][0] ? atof(f[5]) : h.zoom);
    } else if (strcmp(verb, "zoomratio") == 0) {
        target(h, h.pan, h.tilt, atof(f[7]));
    } else if (strcmp(verb, "zoomsteps") == 0) {
        target(h, h.pan, h.tilt, h.zoom + atof(f[8]));
    } else if (strcmp(verb, "setserverpresetname") == 0) {
        storePreset(h, f[9], 1);
    } else if (strcmp(verb, "setserverpresetno") == 0) {
        storePreset(h, f[10], 0);
    } else if (strcmp(verb, "gotoserverpresetno") == 0) {
        double p, t, z;
        if (recallPreset(atoi(f[11]), &p, &t, &z))
            target(h, p, t, z);
    } else if (strcmp(verb, "removeserverpresetno") == 0) {
        PresetEdit e = {atoi(f[12]), 0, 0, 0};
        rewriteFileThroughWorkCopy(PRESETS, editPreset, &e);
    } else if (strcmp(verb, "home") == 0) {
        h.homePan = h.pan;
        h.homeTilt = h.tilt;
        h.homeZoom = h.zoom;
    } else if (verb[0] == 0 && f[3][0]) {
        target(h, atof(f[3]), atof(f[4]), atof(f[5]));
    }
}

// The timer word of one axis: tenths left, counted down here by the time
// that has run; a stop value ends the motion. Returns how long within the
// last dt seconds the axis was moving.
static double axisMoving(int word, int* grace, double* owed, double dt)
{
    int t = shmWord(word);
    if (*grace > 0) {
        --*grace;
        if (t < 0 && t != TIMER_UNLIMITED) {
            *owed = 0;
            return dt;
        }
    }
    if (t == TIMER_UNLIMITED)
        return dt;
    if (t <= 0) {
        *owed = 0;
        return 0;
    }
    *owed += dt;
    int tenths = (int)(*owed * 10);
    if (tenths >= t) {
        setShmWord(word, TIMER_STOPPED);
        double moved = dt - (*owed - t / 10.0);
        *owed = 0;
        return moved > 0 ? moved : 0;
    }
    setShmWord(word, t - tenths);
    *owed -= tenths / 10.0;
    return dt;
}

static double approach(double value, double goal, double step)
{
    return fabs(goal - value) <= step ? goal : value + (goal > value ? step : -step);
}

static int moving(const Head& h)
{
    return h.hasTarget || h.panSpeed != 0 || h.tiltSpeed != 0 || h.zoomSpeed != 0;
}

static void tick(Head& h, double dt)
{
    double panTilt = axisMoving(PAN_TILT_TIMER_WORD, &h.graceTicks[0], &h.owed[0], dt);
    double zoomTime = axisMoving(ZOOM_TIMER_WORD, &h.graceTicks[1], &h.owed[1], dt);
    if (h.hasTarget) {
        h.pan = approach(h.pan, h.targetPan, PAN_DEGREES_PER_SECOND * dt);
        h.tilt = approach(h.tilt, h.targetTilt, TILT_DEGREES_PER_SECOND * dt);
        h.zoom = approach(h.zoom, h.targetZoom, zoomLimit() / 4 * dt);
        if (h.pan == h.targetPan && h.tilt == h.targetTilt && h.zoom == h.targetZoom)
            h.hasTarget = 0;
        return;
    }
    h.pan += h.panSpeed * panTilt;
    if (h.pan > 180)
        h.pan -= 360;
    if (h.pan < -180)
        h.pan += 360;
    h.tilt = fmin(90, fmax(0, h.tilt + h.tiltSpeed * panTilt));
    h.zoom = fmin(zoomLimit(), fmax(0, h.zoom + h.zoomSpeed * zoomTime));
    if (panTilt < dt)
        h.panSpeed = h.tiltSpeed = 0;
    if (zoomTime < dt)
        h.zoomSpeed = 0;
}

static double monotonicSeconds()
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec + now.tv_nsec / 1e9;
}

// The queue offset up to which commands are carried out, written whole and
// renamed into place so that a reader never sees half a number.
static void acknowledge(long offset)
{
    char path[512], work[520], text[32];
    resolvePath(DONE, path, sizeof path);
    snprintf(work, sizeof work, "%s.part", path);
    snprintf(text, sizeof text, "%ld\n", offset);
    FILE* f = fopen(work, "w");
    if (!f)
        return;
    fputs(text, f);
    fclose(f);
    rename(work, path);
}

int main()
{
    signal(SIGTERM, stop);
    signal(SIGINT, stop);
    int id;
    G_shared_memory = (int*)getShareMemory(&id, ONVIF_SHM_KEY_FILE, ONVIF_SHM_WORDS * 4);
    if (!G_shared_memory) {
        fprintf(stderr, "ptz-head: no device-state segment for this root\n");
        return 1;
    }
    Head h;
    char commands[512];
    resolvePath(COMMANDS, commands, sizeof commands);
    FILE* queue = fopen(commands, "a+");
    if (!queue)
        return 1;
    fseek(queue, 0, SEEK_END);
    long done = ftell(queue);
    acknowledge(done);
    char line[1024];
    double last = monotonicSeconds();
    while (running) {
        clearerr(queue);
        while (fgets(line, sizeof line, queue))
            apply(h, line);
        if (ftell(queue) != done) {
            done = ftell(queue);
            acknowledge(done);
        }
        double now = monotonicSeconds();
        tick(h, now - last);
        last = now;
        publish(h);
        usleep((moving(h) ? MOVING_TICK_MS : IDLE_TICK_MS) * 1000);
    }
    fclose(queue);
    return 0;
}
