// snapshot: the simulated camera's snapshot, a CGI program the web server runs
// for each snapshot name the stream server has laid out under the web root.
// The file it is given names the channel; the picture is rendered and encoded
// now, so it shows what the stream shows at this moment.
//   snapshot FILE      (root: ONVIF_ROOT)
#include "frame/onvif_security.h"
#include "tools/scene.h"

#include <stdio.h>
#include <jpeglib.h>
#include <stdlib.h>
#include <string.h>
#include <sys/time.h>
#include <unistd.h>

static int readNumber(FILE* f, const char* key, int fallback, int low, int high)
{
    char line[256];
    size_t keyLen = strlen(key);
    rewind(f);
    while (fgets(line, sizeof line, f)) {
        if (strncmp(line, key, keyLen) != 0 || line[keyLen] != '=')
            continue;
        char* end;
        long v = strtol(line + keyLen + 1, &end, 10);
        return end == line + keyLen + 1 || v < low || v > high ? fallback : (int)v;
    }
    return fallback;
}

static void refuse(const char* status)
{
    printf("Status: %s\r\nContent-Type: text/plain\r\n\r\n%s\n", status, status);
}

int main(int argc, char** argv)
{
    const char* root = getenv("ONVIF_ROOT");
    if (argc != 2 || !root || !root[0] || strlen(root) >= sizeof(SceneCamera::root)) {
        refuse("500 Internal Server Error");
        return 0;
    }
    // In the ONVIF mode the picture asks for the camera's own accounts, as
    // the service and the stream do; basic too, for clients that only have it.
    if (!mediaRequestAuthorized(1))
        return 0;
    int channel = 0;
    FILE* marker = fopen(argv[1], "r");
    if (!marker || fscanf(marker, "channel %d", &channel) != 1 || channel < 1 || channel > 8) {
        if (marker)
            fclose(marker);
        refuse("404 Not Found");
        return 0;
    }
    fclose(marker);
    char path[512];
    snprintf(path, sizeof path, "%s/tmp/onvif/VideoEncoder%d.VEncoder", root, channel);
    FILE* settings = fopen(path, "r");
    if (!settings) {
        refuse("404 Not Found");
        return 0;
    }
    int width = readNumber(settings, "Resolution.Width", 640, 16, 4096) & ~1;
    int height = readNumber(settings, "Resolution.Height", 360, 16, 2160) & ~1;
    int quality = readNumber(settings, "Quality", 80, 1, 100);
    fclose(settings);

    static SceneCamera camera;
    loadSceneCamera(&camera, root);
    SceneView view;
    currentView(&camera, channel, &view);
    unsigned char* frame = (unsigned char*)malloc(sceneFrameSize(width, height));
    if (!frame) {
        refuse("500 Internal Server Error");
        return 0;
    }
    struct timeval now;
    gettimeofday(&now, 0);
    renderScene(frame, width, height, view, now.tv_sec + now.tv_usec / 1e6);

    // The I420 planes go to the encoder as raw 4:2:0 data, no conversion.
    jpeg_compress_struct cinfo;
    jpeg_error_mgr jerr;
    cinfo.err = jpeg_std_error(&jerr);
    jpeg_create_compress(&cinfo);
    unsigned char* jpeg = 0;
    unsigned long jpegSize = 0;
    jpeg_mem_dest(&cinfo, &jpeg, &jpegSize);
    cinfo.image_width = width;
    cinfo.image_height = height;
    cinfo.input_components = 3;
    cinfo.in_color_space = JCS_YCbCr;
    jpeg_set_defaults(&cinfo);
    jpeg_set_colorspace(&cinfo, JCS_YCbCr);
    cinfo.raw_data_in = TRUE;
    cinfo.comp_info[0].h_samp_factor = 2, cinfo.comp_info[0].v_samp_factor = 2;
    cinfo.comp_info[1].h_samp_factor = 1, cinfo.comp_info[1].v_samp_factor = 1;
    cinfo.comp_info[2].h_samp_factor = 1, cinfo.comp_info[2].v_samp_factor = 1;
    jpeg_set_quality(&cinfo, quality, TRUE);
    jpeg_start_compress(&cinfo, TRUE);
    unsigned char* planes[3] = {frame, frame + width * height, frame + width * height + (width / 2) * (height / 2)};
    int strides[3] = {width, width / 2, width / 2};
    JSAMPROW rows[3][16];
    JSAMPARRAY data[3] = {rows[0], rows[1], rows[2]};
    while (cinfo.next_scanline < cinfo.image_height) {
        // Rows past the bottom of a plane repeat its last row.
        for (int c = 0; c < 3; ++c) {
            int count = c == 0 ? 16 : 8;
            int first = c == 0 ? (int)cinfo.next_scanline : (int)cinfo.next_scanline / 2;
            int last = (c == 0 ? height : height / 2) - 1;
            for (int r = 0; r < count; ++r)
                rows[c][r] = planes[c] + (size_t)(first + r < last ? first + r : last) * strides[c];
        }
        jpeg_write_raw_data(&cinfo, data, 16);
    }
    jpeg_finish_compress(&cinfo);
    jpeg_destroy_compress(&cinfo);
    free(frame);

    printf("Content-Type: image/jpeg\r\nContent-Length: %lu\r\nCache-Control: no-store\r\n\r\n", jpegSize);
    fflush(stdout);
    fwrite(jpeg, 1, jpegSize, stdout);
    free(jpeg);
    return 0;
}
