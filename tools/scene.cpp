// scene: renders the view of the simulated camera's panorama that its PTZ head
// points at, with the caption burnt in. Angles: azimuth grows to the right,
// "depth" is degrees below the zenith-side of the scene and grows downwards,
// so a larger pan moves the content left and a larger tilt moves it up.
#include "tools/scene.h"

#include <math.h>
#include <stdio.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <time.h>

#define HORIZON 48.0           // depth of the horizon, degrees
#define WIDEST_VIEW 60.0       // horizontal field of view at zoom 0, degrees
#define ZOOM_FACTOR 20.0       // the narrowest view is this many times narrower
#define MOTION_WORD 21

struct Landmark {
    double azimuth, halfWidth, height;  // degrees
    unsigned char y, u, v;
};

// Buildings, towers and hills, each with its own colour and size so that any
// view tells where it points.
static const Landmark LANDMARKS[] = {
    {0, 3, 16, 76, 84, 255},    // red tower at north
    {30, 9, 6, 150, 44, 21},    // green hall
    {62, 5, 11, 105, 212, 234}, // magenta block
    {95, 12, 4, 120, 120, 120}, // grey wall
    {128, 4, 14, 29, 255, 107}, // blue tower
    {165, 10, 8, 200, 128, 128},// white hall
    {200, 2, 20, 60, 128, 128}, // dark mast
    {238, 8, 10, 170, 166, 16}, // cyan block
    {275, 6, 5, 145, 54, 34},   // green-yellow shed
    {310, 11, 9, 95, 100, 200}, // brick row
    {340, 4, 13, 180, 60, 150}, // yellow tower
};
#define LANDMARK_COUNT (sizeof LANDMARKS / sizeof LANDMARKS[0])

// 5x7 glyphs, one row per byte, the leftmost pixel in bit 4.
struct Glyph {
    char c;
    unsigned char rows[7];
};
static const Glyph FONT[] = {
    {'0', {0x0E, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0E}}, {'1', {0x04, 0x0C, 0x04, 0x04, 0x04, 0x04, 0x0E}},
    {'2', {0x0E, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1F}}, {'3', {0x1F, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0E}},
    {'4', {0x02, 0x06, 0x0A, 0x12, 0x1F, 0x02, 0x02}}, {'5', {0x1F, 0x10, 0x1E, 0x01, 0x01, 0x11, 0x0E}},
    {'6', {0x06, 0x08, 0x10, 0x1E, 0x11, 0x11, 0x0E}}, {'7', {0x1F, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08}},
    {'8', {0x0E, 0x11, 0x11, 0x0E, 0x11, 0x11, 0x0E}}, {'9', {0x0E, 0x11, 0x11, 0x0F, 0x01, 0x02, 0x0C}},
    {'A', {0x0E, 0x11, 0x11, 0x11, 0x1F, 0x11, 0x11}}, {'B', {0x1E, 0x11, 0x11, 0x1E, 0x11, 0x11, 0x1E}},
    {'C', {0x0E, 0x11, 0x10, 0x10, 0x10, 0x11, 0x0E}}, {'D', {0x1C, 0x12, 0x11, 0x11, 0x11, 0x12, 0x1C}},
    {'E', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x1F}}, {'F', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x10}},
    {'G', {0x0E, 0x11, 0x10, 0x17, 0x11, 0x11, 0x0F}}, {'H', {0x11, 0x11, 0x11, 0x1F, 0x11, 0x11, 0x11}},
    {'I', {0x0E, 0x04, 0x04, 0x04, 0x04, 0x04, 0x0E}}, {'J', {0x07, 0x02, 0x02, 0x02, 0x02, 0x12, 0x0C}},
    {'K', {0x11, 0x12, 0x14, 0x18, 0x14, 0x12, 0x11}}, {'L', {0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x1F}},
    {'M', {0x11, 0x1B, 0x15, 0x15, 0x11, 0x11, 0x11}}, {'N', {0x11, 0x11, 0x19, 0x15, 0x13, 0x11, 0x11}},
    {'O', {0x0E, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0E}}, {'P', {0x1E, 0x11, 0x11, 0x1E, 0x10, 0x10, 0x10}},
    {'Q', {0x0E, 0x11, 0x11, 0x11, 0x15, 0x12, 0x0D}}, {'R', {0x1E, 0x11, 0x11, 0x1E, 0x14, 0x12, 0x11}},
    {'S', {0x0F, 0x10, 0x10, 0x0E, 0x01, 0x01, 0x1E}}, {'T', {0x1F, 0x04, 0x04, 0x04, 0x04, 0x04, 0x04}},
    {'U', {0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0E}}, {'V', {0x11, 0x11, 0x11, 0x11, 0x11, 0x0A, 0x04}},
    {'W', {0x11, 0x11, 0x11, 0x15, 0x15, 0x15, 0x0A}}, {'X', {0x11, 0x11, 0x0A, 0x04, 0x0A, 0x11, 0x11}},
    {'Y', {0x11, 0x11, 0x11, 0x0A, 0x04, 0x04, 0x04}}, {'Z', {0x1F, 0x01, 0x02, 0x04, 0x08, 0x10, 0x1F}},
    {':', {0x00, 0x0C, 0x0C, 0x00, 0x0C, 0x0C, 0x00}}, {'.', {0x00, 0x00, 0x00, 0x00, 0x00, 0x0C, 0x0C}},
    {'-', {0x00, 0x00, 0x00, 0x1F, 0x00, 0x00, 0x00}}, {'+', {0x00, 0x04, 0x04, 0x1F, 0x04, 0x04, 0x00}},
    {'/', {0x00, 0x01, 0x02, 0x04, 0x08, 0x10, 0x00}}, {'_', {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x1F}},
};

static const unsigned char* glyphRows(char c)
{
    if (c >= 'a' && c <= 'z')
        c = (char)(c - 'a' + 'A');
    for (const Glyph& g : FONT)
        if (g.c == c)
            return g.rows;
    return 0;  // drawn as a space
}

// Scene colour at one azimuth column and depth row.
struct Column {
    int landmark;      // index or -1
    int tick;          // 0, 1 (10 degree mark) or 2 (30 degree mark)
    int object;        // the walking object covers this column
};

static double wrap360(double a)
{
    a = fmod(a, 360.0);
    return a < 0 ? a + 360.0 : a;
}

static Column columnAt(double azimuth, double tickHalfWidth, double objectAzimuth)
{
    Column c = {-1, 0, 0};
    double a = wrap360(azimuth);
    for (size_t i = 0; i < LANDMARK_COUNT; ++i) {
        double off = fabs(wrap360(a - LANDMARKS[i].azimuth + 180.0) - 180.0);
        if (off <= LANDMARKS[i].halfWidth) {
            c.landmark = (int)i;
            break;
        }
    }
    double nearest = floor(a / 10.0 + 0.5) * 10.0;
    if (fabs(a - nearest) <= tickHalfWidth)
        c.tick = fmod(nearest, 30.0) == 0 ? 2 : 1;
    c.object = objectAzimuth > -1000 && fabs(wrap360(a - objectAzimuth + 180.0) - 180.0) <= 1.5;
    return c;
}

static void colourAt(const Column& c, double depth, unsigned char out[3])
{
    if (c.object && depth >= HORIZON - 7 && depth < HORIZON + 1) {
        out[0] = 180, out[1] = 40, out[2] = 200;  // orange walker
        return;
    }
    if (c.landmark >= 0 && depth < HORIZON && depth >= HORIZON - LANDMARKS[c.landmark].height) {
        const Landmark& l = LANDMARKS[c.landmark];
        // Rows of windows give the buildings texture.
        int window = fmod(HORIZON - depth, 2.0) < 0.6;
        out[0] = (unsigned char)(window ? l.y / 2 : l.y), out[1] = l.u, out[2] = l.v;
        return;
    }
    if (c.tick && depth >= HORIZON && depth < HORIZON + (c.tick == 2 ? 3.0 : 1.5)) {
        out[0] = 235, out[1] = 128, out[2] = 128;
        return;
    }
    if (depth < HORIZON) {
        double t = fmax(0.0, fmin(1.0, (depth + 20.0) / (HORIZON + 20.0)));
        out[0] = (unsigned char)(70 + 110 * t), out[1] = 165, out[2] = 105;  // sky, brighter low
        return;
    }
    int band = (int)floor((depth - HORIZON) / 3.0) & 1;
    out[0] = (unsigned char)(band ? 75 : 95), out[1] = 105, out[2] = 110;  // field
}

size_t sceneFrameSize(int width, int height)
{
    return (size_t)width * height * 3 / 2;
}

// Caption text: a dark box with light 5x7 glyphs, scale pixels per dot.
static void drawText(unsigned char* frame, int width, int height, int x, int y, int scale, const char* text, int box)
{
    unsigned char* luma = frame;
    unsigned char* cb = frame + width * height;
    unsigned char* cr = cb + (width / 2) * (height / 2);
    int cellW = 6 * scale, cellH = 9 * scale;
    int boxW = (int)strlen(text) * cellW + scale, boxH = cellH;
    if (box)
        for (int py = y; py < y + boxH; ++py)
            for (int px = x; px < x + boxW; ++px) {
                if (px < 0 || py < 0 || px >= width || py >= height)
                    continue;
                luma[py * width + px] = 16;
                cb[(py / 2) * (width / 2) + px / 2] = 128;
                cr[(py / 2) * (width / 2) + px / 2] = 128;
            }
    for (int i = 0; text[i]; ++i) {
        const unsigned char* rows = glyphRows(text[i]);
        if (!rows)
            continue;
        for (int r = 0; r < 7; ++r)
            for (int b = 0; b < 5; ++b) {
                if (!(rows[r] & (0x10 >> b)))
                    continue;
                for (int dy = 0; dy < scale; ++dy)
                    for (int dx = 0; dx < scale; ++dx) {
                        int px = x + scale + i * cellW + b * scale + dx, py = y + scale + r * scale + dy;
                        if (px >= 0 && py >= 0 && px < width && py < height)
                            luma[py * width + px] = 235;
                    }
            }
    }
}

void renderScene(unsigned char* frame, int width, int height, const SceneView& view, double now)
{
    unsigned char* luma = frame;
    unsigned char* cb = frame + width * height;
    unsigned char* cr = cb + (width / 2) * (height / 2);
    double zoom = fmax(0.0, fmin(1.0, view.zoom));
    double degreesPerPixel = WIDEST_VIEW / (1.0 + (ZOOM_FACTOR - 1.0) * zoom) / width;
    double objectAzimuth = view.motion ? 22.0 * sin(now * 0.6) : -2000;
    double tickHalfWidth = fmax(0.15, degreesPerPixel * 0.75);
    static Column columns[8192];
    if (width > 8192)
        return;
    for (int x = 0; x < width; ++x)
        columns[x] = columnAt(view.pan + (x + 0.5 - width / 2.0) * degreesPerPixel, tickHalfWidth, objectAzimuth);
    unsigned char colour[3];
    for (int y = 0; y < height; ++y) {
        double depth = view.tilt + (y + 0.5 - height / 2.0) * degreesPerPixel;
        unsigned char* row = luma + (size_t)y * width;
        int chromaRow = !(y & 1);
        for (int x = 0; x < width; ++x) {
            colourAt(columns[x], depth, colour);
            row[x] = colour[0];
            if (chromaRow && !(x & 1)) {
                cb[(y / 2) * (width / 2) + x / 2] = colour[1];
                cr[(y / 2) * (width / 2) + x / 2] = colour[2];
            }
        }
    }
    // Azimuth labels under the ten-degree marks.
    int small = height >= 540 ? 2 : 1;
    int labelY = (int)((HORIZON + 3.5 - view.tilt) / degreesPerPixel + height / 2.0);
    double first = ceil((view.pan - width / 2.0 * degreesPerPixel) / 10.0) * 10.0;
    for (double a = first; a <= view.pan + width / 2.0 * degreesPerPixel; a += 10.0) {
        char label[8];
        snprintf(label, sizeof label, "%d", (int)wrap360(a));
        int x = (int)((a - view.pan) / degreesPerPixel + width / 2.0) - (int)strlen(label) * 3 * small;
        drawText(frame, width, height, x, labelY, small, label, 0);
    }
    // The caption.
    int scale = height >= 180 ? height / 180 : 1;
    char line[96];
    snprintf(line, sizeof line, "%.40s CH%d", view.name && view.name[0] ? view.name : "CAMERA", view.channel);
    drawText(frame, width, height, 4 * scale, 4 * scale, scale, line, 1);
    time_t seconds = (time_t)now;
    struct tm local;
    localtime_r(&seconds, &local);
    strftime(line, sizeof line, "%Y-%m-%d %H:%M:%S", &local);
    drawText(frame, width, height, 4 * scale, 14 * scale, scale, line, 1);
    snprintf(line, sizeof line, "PAN %+.1f TILT %.1f ZOOM %.2f", view.pan, view.tilt, zoom);
    drawText(frame, width, height, 4 * scale, height - 13 * scale, scale, line, 1);
    if (view.motion)
        drawText(frame, width, height, width - 40 * scale, 4 * scale, scale, "MOTION", 1);
}

void loadSceneCamera(SceneCamera* camera, const char* root)
{
    if (camera->root != root)
        snprintf(camera->root, sizeof camera->root, "%s", root);
    snprintf(camera->name, sizeof camera->name, "CAMERA");
    char path[512], line[256];
    snprintf(path, sizeof path, "%s/tmp/onvif/onvif.conf", camera->root);
    FILE* f = fopen(path, "r");
    if (!f)
        return;
    while (fgets(line, sizeof line, f))
        if (strncmp(line, "HostnameInformation.Name=", 25) == 0) {
            line[strcspn(line, "\r\n")] = 0;
            if (line[25])
                snprintf(camera->name, sizeof camera->name, "%.63s", line + 25);  // a caption, shortened
        }
    fclose(f);
}

// The camera's segment, found the way the service finds it, only looked up:
// the picture never creates one.
static int* cameraWords(SceneCamera* camera)
{
    if (camera->words)
        return camera->words;
    char path[512];
    snprintf(path, sizeof path, "%s/tmp/ONVIF_SHM/onvif", camera->root);
    key_t key = ftok(path, 0);
    int id = key == (key_t)-1 ? -1 : shmget(key, 0, 0);
    void* p = id < 0 ? (void*)-1 : shmat(id, 0, SHM_RDONLY);
    camera->words = p == (void*)-1 ? 0 : (int*)p;
    return camera->words;
}

void currentView(SceneCamera* camera, int channel, SceneView* view)
{
    view->pan = 0, view->tilt = 45, view->zoom = 0;
    char path[512];
    snprintf(path, sizeof path, "%s/tmp/ptz_head_view", camera->root);
    FILE* f = fopen(path, "r");
    if (f) {
        double p, t, z;
        if (fscanf(f, "%lf %lf %lf", &p, &t, &z) == 3)
            view->pan = p, view->tilt = t, view->zoom = z;
        fclose(f);
    }
    int* words = cameraWords(camera);
    view->motion = words && words[MOTION_WORD] == 1;
    view->name = camera->name;
    view->channel = channel;
}
