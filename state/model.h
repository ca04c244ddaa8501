// What the camera's model, variant, lens and IO layout words mean: the codes
// the camera writes into them, and one table of capabilities by name.
#ifndef STATE_MODEL_H
#define STATE_MODEL_H

#include "state/shm_words.h"

// C(name, word, code): every code a service or tool needs by name.
#define MODEL_CODE_LIST(C) \
    C(VARIANT_GENERIC,            VARIANT_CODE,     1)  /* the generic camera */ \
    C(VARIANT_WIDE_SENSOR,        VARIANT_CODE,     9)  /* 2560-wide sensor, free upper channels */ \
    C(VARIANT_LENIENT,            VARIANT_CODE,     11) /* kHz sample rates, lenient Unsubscribe */ \
    C(VARIANT_OPEN_SETUP,         VARIANT_CODE,     12) /* media set-up without credentials */ \
    C(VARIANT_VANTOR,             VARIANT_CODE,     16) /* its own programs and snapshot paths */ \
    C(VARIANT_V20,                VARIANT_CODE,     24) /* reports version 2.0, motion window */ \
    C(VARIANT_COUNTRY_SCOPE,      VARIANT_CODE,     30) /* open interfaces, country scope shown */ \
    C(VARIANT_VENDOR_TOPICS,      VARIANT_CODE,     32) /* vendor event topics */ \
    C(VARIANT_ONE_PULL_POINT,     VARIANT_CODE,     34) /* one pull point, no analytics topic */ \
    C(MODEL_WITHOUT_TAMPERING,    MODEL_CODE_WORD,  2)  /* no tampering, small preset store */ \
    C(MODEL_NO_IMAGING,           MODEL_CODE_WORD,  3) \
    C(MODEL_EXPOSURE_AS_STORED,   MODEL_CODE_WORD,  4) \
    C(MODEL_HEAD_PRESETS,         MODEL_CODE_WORD,  5)  /* an RS-485 head's preset count shown */ \
    C(MODEL_A5S_SDK310,           MODEL_CODE_WORD,  6)  /* one encoder pipeline for all channels */ \
    C(MODEL_WITHOUT_TABLES,       MODEL_CODE_WORD,  7)  /* no imaging table of its own */ \
    C(MODEL_WITHOUT_OPTIONS,      MODEL_CODE_WORD,  42) /* no media options of its own */ \
    C(PAN_TILT_NONE,              PAN_TILT_WORD,    0) \
    C(PAN_TILT_RS485,             PAN_TILT_WORD,    1)  /* a head on the RS-485 port */ \
    C(PAN_TILT_INTEGRATED,        PAN_TILT_WORD,    2)  /* the dome's own pan/tilt */ \
    C(LENS_NONE,                  ZOOM_WORD,        0) \
    C(LENS_TEN_STEPS,             ZOOM_WORD,        1) \
    C(LENS_UNCONTROLLED,          ZOOM_WORD,        2)  /* zooms, but takes no position */ \
    C(LENS_THREE_STEPS,           ZOOM_WORD,        3) \
    C(LENS_SPLIT_SIXTH_STEP,      ZOOM_WORD,        4)  /* ten steps, the sixth in two halves */ \
    C(LENS_EIGHTEEN_STEPS,        ZOOM_WORD,        5) \
    C(LENS_DOME,                  ZOOM_WORD,        6)  /* the dome's zoom module */ \
    C(IO_LAYOUT_NONE,             IO_LAYOUT_WORD,   0) \
    C(IO_LAYOUT_BASIC,            IO_LAYOUT_WORD,   1)  /* 1 input, 1 relay, RS-485 port */ \
    C(IO_LAYOUT_HEAD,             IO_LAYOUT_WORD,   2)  /* PTZ head, 4 inputs, 1 relay */ \
    C(IO_LAYOUT_HEAD_TWO_RELAYS,  IO_LAYOUT_WORD,   3)  /* PTZ head, 4 inputs, 2 relays */ \
    C(IO_LAYOUT_HEAD_TWO_RELAYS_B, IO_LAYOUT_WORD,  4) \
    C(IO_LAYOUT_INPUTS_ONLY,      IO_LAYOUT_WORD,   5)  /* 4 inputs, no relay */ \
    C(WEB_USER_ADMIN,             WEB_USER_WORD,    1) \
    C(WEB_USER_ROOT,              WEB_USER_WORD,    2) \
    C(ZOOM_MODULE_1274,           ZOOM_MODULE_WORD, 0)  /* named by their position factor */ \
    C(ZOOM_MODULE_2241,           ZOOM_MODULE_WORD, 1) \
    C(ZOOM_MODULE_2452,           ZOOM_MODULE_WORD, 2) \
    C(ZOOM_MODULE_2489,           ZOOM_MODULE_WORD, 3) \
    C(ZOOM_MODULE_5972,           ZOOM_MODULE_WORD, 7) \
    C(ZOOM_MODULE_7311,           ZOOM_MODULE_WORD, 8) \
    C(ZOOM_MODULE_9408,           ZOOM_MODULE_WORD, 9) \
    C(ZOOM_MODULE_1260,           ZOOM_MODULE_WORD, 22) \
    C(ZOOM_MODULE_1280,           ZOOM_MODULE_WORD, 23)

enum ModelCode {
#define MODEL_CODE_ENUM(name, word, code) name = code,
    MODEL_CODE_LIST(MODEL_CODE_ENUM)
#undef MODEL_CODE_ENUM
};

// X(name, text): what services ask of the camera; the tools name them by text.
#define MODEL_CAPABILITY_LIST(X) \
    X(AuthWaivedForSetup,         "auth.waivedForSetup") \
    X(AuthWaivedForInterfaces,    "auth.waivedForInterfaces") \
    X(DeviceVersion20,            "device.version20") \
    X(ScopesCountryAsOnvif,       "scopes.countryAsOnvif") \
    X(PathsVariantOwn,            "paths.variantOwn") \
    X(AudioSampleRateKHz,         "audio.sampleRateKHz") \
    X(MediaFreeUpperChannels,     "media.freeUpperChannels") \
    X(MediaSharedEncoderPipeline, "media.sharedEncoderPipeline") \
    X(MediaVariantOptions,        "media.variantOptions") \
    X(MediaChannel2,              "media.channel2") \
    X(MediaChannel3,              "media.channel3") \
    X(MediaChannel4,              "media.channel4") \
    X(MediaMaxProfiles,           "media.maxProfiles") \
    X(EventsVendorTopics,         "events.vendorTopics") \
    X(EventsOnePullPoint,         "events.onePullPoint") \
    X(EventsPullPoints,           "events.pullPoints") \
    X(EventsAddressInHeader,      "events.addressInHeader") \
    X(EventsLenientUnsubscribe,   "events.lenientUnsubscribe") \
    X(EventsMotionSourceWindow,   "events.motionSourceWindow") \
    X(EventsNoTampering,          "events.noTampering") \
    X(EventsMaxMessages,          "events.maxMessages") \
    X(EventsInputs,               "events.inputs") \
    X(EventsRelays,               "events.relays") \
    X(IoInputs,                   "io.inputs") \
    X(IoRelays,                   "io.relays") \
    X(IoRelayOutputs,             "io.relayOutputs") \
    X(IoHeadRelayList,            "io.headRelayList") \
    X(IoPtzHead,                  "io.ptzHead") \
    X(RelaysIdleFixedOnHead,      "relays.idleFixedOnHead") \
    X(PtzPanTilt,                 "ptz.panTilt") \
    X(PtzIntegratedPanTilt,       "ptz.integratedPanTilt") \
    X(PtzZoom,                    "ptz.zoom") \
    X(PtzMotors,                  "ptz.motors") \
    X(PtzDome,                    "ptz.dome") \
    X(PtzRs485Head,               "ptz.rs485Head") \
    X(PtzSmallPresetStore,        "ptz.smallPresetStore") \
    X(PtzPresetLimit,             "ptz.presetLimit") \
    X(PtzHeadReportsPresets,      "ptz.headReportsPresets") \
    X(LensZoomFactor,             "lens.zoomFactor") \
    X(LensPresetZoomFactor,       "lens.presetZoomFactor") \
    X(ImagingNone,                "imaging.none") \
    X(ImagingExposureInSeconds,   "imaging.exposureInSeconds")

enum class Cap {
#define MODEL_CAPABILITY_ENUM(name, text) name,
    MODEL_CAPABILITY_LIST(MODEL_CAPABILITY_ENUM)
#undef MODEL_CAPABILITY_ENUM
    Count
};

// The values of the media.channel capabilities: whether the stream mode gives
// an encoder channel to its profile (with a shared encoder pipeline).
enum { CHANNEL_CLOSED = 0, CHANNEL_IF_LOWER_H264 = 1, CHANNEL_OPEN = 2 };

// The value of a capability for the camera the segment describes: its first
// row in the table whose conditions hold; 0 when none does. A plain
// capability's value is 1.
int modelValue(Cap cap);
inline bool modelHas(Cap cap) { return modelValue(cap) != 0; }
// A capability by its text, for the tools: 1 and *cap set when known.
// (state/model_names.cpp: only the tools and tests link it.)
int capabilityByText(const char* text, Cap* cap);
// How many rows the table gives a capability.
int capabilityRows(Cap cap);

// A segment word or a code by name, for the tools: 1 and *value set when known.
int shmNameValue(const char* name, int* value);

#endif
