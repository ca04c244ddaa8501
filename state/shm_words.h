// Every word of the device-state segment this program reads or writes: its
// number, who writes it, and what it means. The daemons own most of them.
#ifndef STATE_SHM_WORDS_H
#define STATE_SHM_WORDS_H

// Word                          No.   Writer      Meaning
#define SERVICE_READY            1     // camera    1: requests may be served
#define VARIANT_CODE             2     // camera    model variant (topics, paths, encoder variants)
#define STREAM_MODE_WORD         10    // camera    stream mode of the video encoders
#define PAN_TILT_WORD            16    // camera    pan/tilt hardware kind (0 none)
#define ZOOM_WORD                17    // camera    lens kind (0 none, 6 integrated zoom module)
#define IO_LAYOUT_WORD           18    // camera    IO and PTZ layout (relays, inputs, RS-485 head)
#define UNSUBSCRIBE_CLEAR_WORD   20    // service   cleared when a subscription ends
#define MOTION_WORD              21    // camera    motion alarm state
#define TAMPERING_WORD           22    // camera    tampering alarm state
#define INPUT_WORD_1             23    // camera    digital input 1 state (23 to 26)
#define IRIS_PRESENT_WORD        36    // camera    iris control present (-1 none)
#define GAIN_WORD                38    // camera    current gain
#define WDR_WORD                 39    // camera    wide dynamic range group present (-1 none)
#define BACKLIGHT_WORD           41    // camera    backlight compensation group present (-1 none)
#define WHITE_BALANCE_WORD       42    // camera    white balance group present (-1 none)
#define PAN_TILT_TIMER_WORD      55    // service   pan/tilt move timer, tenths of a second
#define ZOOM_TIMER_WORD          56    // service   zoom move timer, tenths of a second
#define SHUTTER_WORD             57    // camera    current shutter time, units of 100 us
#define MAINTENANCE_WORD         60    // service   reboot / factory default command
#define SCOPES_CHANGED_WORD      62    // service   scopes changed, for the discovery daemon
#define WS_MSG_NUM               64    // camera    pending settings messages: readers wait
#define WEB_USER_WORD            66    // camera    the web user the control programs run as
#define ZOOM_STEP6_WORD          68    // service   zoom step variant of the integrated dome
#define AUDIO_INPUTS_WORD        76    // camera    audio present
#define DISCOVERY_WORD           77    // service   1 discoverable, 0 not
#define ZOOM_MODULE_WORD         78    // camera    zoom module code (position factor)
#define MODEL_CODE_WORD          79    // camera    device model code (3: no imaging)
#define EVENT_FILE_BUSY_WORD     82    // camera    the event daemon is writing event files
#define SUBSCRIPTION_CHANGE_WORD 83    // service   subscription table changed
#define IRIS_WORD                84    // camera    current iris
#define SUBSCRIPTION_TABLE_WORD  85    // service   subscription slots (85 to 834)
#define RELAY_WORD_1             836   // camera    relay output states
#define IDLE_STATE_WORD_1        838   // service   relay idle states
#define LOGICAL_STATE_WORD_1     842   // service   relay logical states
#define AUTH_ON_WORD             845   // camera    1: authentication on

#endif
