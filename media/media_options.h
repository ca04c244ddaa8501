// The model-dependent media options: which data file of /tmp/onvif/options/
// describes this camera, and reading its entries, ranges and lists.
#ifndef MEDIA_MEDIA_OPTIONS_H
#define MEDIA_MEDIA_OPTIONS_H

#include <stddef.h>

#define MEDIA_OPTIONS_DIR "/tmp/onvif/options/"
#define VIDEO_OPTIONS ".VEncoderOptions"
#define AUDIO_OPTIONS ".AEncoderOptions"
#define OPTION_TEXT_SIZE 256

// Reads an entry ("Channel1.FrameRateRange") of the options file of the kind
// (VIDEO_OPTIONS or AUDIO_OPTIONS) for this model and variant: the first of
// model<M>-variant<V>, model<M> and default that exists. 1 when found.
int readMediaOption(const char* kind, const char* entry, char* out, size_t n);

// The same for an entry of encoder channel N ("Channel<N>.<name>").
int readChannelOption(int channel, const char* name, char* out, size_t n);

// "min-max" into its bounds; 0 when the text is no such range.
int parseOptionRange(const char* text, long* min, long* max);

// Takes the next comma-separated item of a list into out; 0 at the end (or
// for an item that does not fit). "NONE" is the empty list.
int nextOptionItem(const char** cursor, char* out, size_t n);

// 1 when item is one of the list's items.
int optionListHas(const char* list, const char* item);

// "WxH" into width and height; 0 when the text is no resolution.
int parseResolution(const char* text, long* width, long* height);

// The encoder channel of a video encoder token ("VideoEncoder3" is 3); 0 when
// the token names no channel.
int encoderChannel(const char* token);

#endif
