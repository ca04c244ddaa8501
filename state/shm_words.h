// Every word of the device-state segment this program reads or writes: its
// number, who writes it, and what it means. The daemons own most of them.
// The list also gives the simulated camera's tools their names (onvif-shm
// takes a name wherever it takes a word number).
#ifndef STATE_SHM_WORDS_H
#define STATE_SHM_WORDS_H

// W(name, number, writer, meaning)
#define SHM_WORD_LIST(W) \
    W(SERVICE_READY,            1,    camera,  "1: requests may be served") \
    W(VARIANT_CODE,             2,    camera,  "model variant (topics, paths, encoder variants)") \
    W(STREAM_MODE_WORD,         10,   camera,  "stream mode of the video encoders") \
    W(PAN_TILT_WORD,            16,   camera,  "pan/tilt hardware kind (0 none)") \
    W(ZOOM_WORD,                17,   camera,  "lens kind (0 none, 6 integrated zoom module)") \
    W(IO_LAYOUT_WORD,           18,   camera,  "IO and PTZ layout (relays, inputs, RS-485 head)") \
    W(UNSUBSCRIBE_CLEAR_WORD,   20,   service, "cleared when a subscription ends") \
    W(MOTION_WORD,              21,   camera,  "motion alarm state") \
    W(TAMPERING_WORD,           22,   camera,  "tampering alarm state") \
    W(INPUT_WORD_1,             23,   camera,  "digital input 1 state (23 to 26)") \
    W(IRIS_PRESENT_WORD,        36,   camera,  "iris control present (-1 none)") \
    W(GAIN_WORD,                38,   camera,  "current gain") \
    W(WDR_WORD,                 39,   camera,  "wide dynamic range group present (-1 none)") \
    W(BACKLIGHT_WORD,           41,   camera,  "backlight compensation group present (-1 none)") \
    W(WHITE_BALANCE_WORD,       42,   camera,  "white balance group present (-1 none)") \
    W(PAN_TILT_TIMER_WORD,      55,   service, "pan/tilt move timer, tenths of a second") \
    W(ZOOM_TIMER_WORD,          56,   service, "zoom move timer, tenths of a second") \
    W(SHUTTER_WORD,             57,   camera,  "current shutter time, units of 100 us") \
    W(MAINTENANCE_WORD,         60,   service, "reboot / factory default command") \
    W(SCOPES_CHANGED_WORD,      62,   service, "scopes changed, for the discovery daemon") \
    W(WS_MSG_NUM,               64,   camera,  "pending settings messages: readers wait") \
    W(WEB_USER_WORD,            66,   camera,  "the web user the control programs run as") \
    W(ZOOM_STEP6_WORD,          68,   service, "zoom step variant of the integrated dome") \
    W(AUDIO_INPUTS_WORD,        76,   camera,  "audio present") \
    W(DISCOVERY_WORD,           77,   service, "1 discoverable, 0 not") \
    W(ZOOM_MODULE_WORD,         78,   camera,  "zoom module code (position factor)") \
    W(MODEL_CODE_WORD,          79,   camera,  "device model code (3: no imaging)") \
    W(EVENT_FILE_BUSY_WORD,     82,   camera,  "the event daemon is writing event files") \
    W(SUBSCRIPTION_CHANGE_WORD, 83,   service, "subscription table changed") \
    W(IRIS_WORD,                84,   camera,  "current iris") \
    W(SUBSCRIPTION_TABLE_WORD,  85,   service, "subscription slots (85 to 834)") \
    W(RELAY_WORD_1,             836,  camera,  "relay output states") \
    W(IDLE_STATE_WORD_1,        838,  service, "relay idle states") \
    W(LOGICAL_STATE_WORD_1,     842,  service, "relay logical states") \
    W(AUTH_ON_WORD,             845,  camera,  "1: authentication on")

enum ShmWord {
#define SHM_WORD_ENUM(name, number, writer, meaning) name = number,
    SHM_WORD_LIST(SHM_WORD_ENUM)
#undef SHM_WORD_ENUM
};

#endif
