// The capability table: what each model, variant, lens and IO layout code
// means to the services, as data. A new camera model is new rows here.
#include "state/model.h"
#include "state/shm.h"

#include <limits.h>
#include <string.h>

namespace {

// A word whose value lies in [low, high]; word 0 holds always.
struct WordIn {
    int word, low, high;
};

struct ModelRow {
    const char* name;
    WordIn when, also;  // both must hold
    int value;
};

const WordIn ALWAYS = {0, 0, 0};
WordIn is(int word, int code) { return {word, code, code}; }
WordIn from(int word, int low) { return {word, low, INT_MAX}; }
WordIn within(int word, int low, int high) { return {word, low, high}; }

// Rows of one name are tried in order, so a later row without conditions is
// that name's default; several rows of one name with value 1 are "any of".
const ModelRow MODEL_TABLE[] = {
    // Credentials.
    {"auth.waivedForSetup", is(VARIANT_CODE, VARIANT_OPEN_SETUP), ALWAYS, 1},
    {"auth.waivedForInterfaces", is(VARIANT_CODE, VARIANT_OPEN_SETUP), ALWAYS, 1},
    {"auth.waivedForInterfaces", is(VARIANT_CODE, VARIANT_COUNTRY_SCOPE), ALWAYS, 1},
    // Device.
    {"device.version20", is(VARIANT_CODE, VARIANT_V20), ALWAYS, 1},
    {"scopes.countryAsOnvif", is(VARIANT_CODE, VARIANT_COUNTRY_SCOPE), ALWAYS, 1},
    {"paths.variantOwn", is(VARIANT_CODE, VARIANT_VANTOR), ALWAYS, 1},
    // Media and audio.
    {"audio.sampleRateKHz", is(VARIANT_CODE, VARIANT_LENIENT), ALWAYS, 1},
    {"media.freeUpperChannels", is(VARIANT_CODE, VARIANT_WIDE_SENSOR), ALWAYS, 1},
    {"media.sharedEncoderPipeline", is(MODEL_CODE_WORD, MODEL_A5S_SDK310), ALWAYS, 1},
    {"media.variantOptions", is(VARIANT_CODE, VARIANT_WIDE_SENSOR), ALWAYS, 1},
    {"media.variantOptions", is(VARIANT_CODE, VARIANT_COUNTRY_SCOPE), ALWAYS, 1},
    {"media.variantOptions", from(VARIANT_CODE, VARIANT_OPEN_SETUP), ALWAYS, 1},
    // Events.
    {"events.vendorTopics", is(VARIANT_CODE, VARIANT_VENDOR_TOPICS), ALWAYS, 1},
    {"events.onePullPoint", is(VARIANT_CODE, VARIANT_ONE_PULL_POINT), ALWAYS, 1},
    {"events.addressInHeader", is(VARIANT_CODE, VARIANT_VENDOR_TOPICS), ALWAYS, 1},
    {"events.addressInHeader", is(VARIANT_CODE, VARIANT_ONE_PULL_POINT), ALWAYS, 1},
    {"events.lenientUnsubscribe", is(VARIANT_CODE, VARIANT_LENIENT), ALWAYS, 1},
    {"events.motionSourceWindow", is(VARIANT_CODE, VARIANT_V20), ALWAYS, 1},
    {"events.noTampering", is(MODEL_CODE_WORD, MODEL_WITHOUT_TAMPERING), ALWAYS, 1},
    {"events.maxMessages", is(MODEL_CODE_WORD, MODEL_WITHOUT_TAMPERING), ALWAYS, 3},
    {"events.maxMessages", is(IO_LAYOUT_WORD, IO_LAYOUT_HEAD), ALWAYS, 7},
    {"events.maxMessages", within(IO_LAYOUT_WORD, IO_LAYOUT_HEAD_TWO_RELAYS, IO_LAYOUT_HEAD_TWO_RELAYS_B), ALWAYS, 8},
    {"events.maxMessages", ALWAYS, ALWAYS, 4},
    // The inputs and relays whose initial states a pull point gets.
    {"events.inputs", within(IO_LAYOUT_WORD, IO_LAYOUT_HEAD, IO_LAYOUT_HEAD_TWO_RELAYS_B), ALWAYS, 4},
    {"events.inputs", ALWAYS, ALWAYS, 1},
    {"events.relays", within(IO_LAYOUT_WORD, IO_LAYOUT_HEAD_TWO_RELAYS, IO_LAYOUT_HEAD_TWO_RELAYS_B), ALWAYS, 2},
    {"events.relays", ALWAYS, ALWAYS, 1},
    // IO: the connectors the capabilities count, the relay outputs served.
    {"io.inputs", is(IO_LAYOUT_WORD, IO_LAYOUT_BASIC), ALWAYS, 1},
    {"io.inputs", from(IO_LAYOUT_WORD, IO_LAYOUT_HEAD), ALWAYS, 4},
    {"io.relays", within(IO_LAYOUT_WORD, IO_LAYOUT_BASIC, IO_LAYOUT_HEAD), ALWAYS, 1},
    {"io.relays", within(IO_LAYOUT_WORD, IO_LAYOUT_HEAD_TWO_RELAYS, IO_LAYOUT_HEAD_TWO_RELAYS_B), ALWAYS, 2},
    {"io.relayOutputs", from(IO_LAYOUT_WORD, IO_LAYOUT_BASIC), ALWAYS, 1},
    {"io.headRelayList", within(IO_LAYOUT_WORD, IO_LAYOUT_HEAD_TWO_RELAYS, IO_LAYOUT_HEAD_TWO_RELAYS_B), ALWAYS, 1},
    {"io.ptzHead", within(IO_LAYOUT_WORD, IO_LAYOUT_HEAD, IO_LAYOUT_HEAD_TWO_RELAYS_B), ALWAYS, 1},
    {"relays.idleFixedOnHead", is(VARIANT_CODE, VARIANT_VENDOR_TOPICS),
     within(IO_LAYOUT_WORD, IO_LAYOUT_HEAD, IO_LAYOUT_HEAD_TWO_RELAYS_B), 1},
    // PTZ.
    {"ptz.panTilt", from(PAN_TILT_WORD, PAN_TILT_RS485), ALWAYS, 1},
    {"ptz.integratedPanTilt", from(PAN_TILT_WORD, PAN_TILT_INTEGRATED), ALWAYS, 1},
    {"ptz.zoom", from(ZOOM_WORD, LENS_TEN_STEPS), ALWAYS, 1},
    {"ptz.motors", from(PAN_TILT_WORD, PAN_TILT_RS485), ALWAYS, 1},
    {"ptz.motors", from(ZOOM_WORD, LENS_TEN_STEPS), ALWAYS, 1},
    {"ptz.dome", is(PAN_TILT_WORD, PAN_TILT_INTEGRATED), is(ZOOM_WORD, LENS_DOME), 1},
    {"ptz.rs485Head", is(IO_LAYOUT_WORD, IO_LAYOUT_BASIC), is(PAN_TILT_WORD, PAN_TILT_RS485), 1},
    {"ptz.smallPresetStore", is(MODEL_CODE_WORD, MODEL_WITHOUT_TAMPERING), ALWAYS, 1},
    {"ptz.presetLimit", is(MODEL_CODE_WORD, MODEL_WITHOUT_TAMPERING), ALWAYS, 127},
    {"ptz.presetLimit", ALWAYS, ALWAYS, 255},
    {"ptz.headReportsPresets", within(MODEL_CODE_WORD, MODEL_HEAD_PRESETS, MODEL_A5S_SDK310), ALWAYS, 1},
    // The zoom module's position factor; presets use their own for one module.
    {"lens.zoomFactor", is(ZOOM_MODULE_WORD, ZOOM_MODULE_1274), ALWAYS, 1274},
    {"lens.zoomFactor", is(ZOOM_MODULE_WORD, ZOOM_MODULE_2241), ALWAYS, 2241},
    {"lens.zoomFactor", is(ZOOM_MODULE_WORD, ZOOM_MODULE_2452), ALWAYS, 2452},
    {"lens.zoomFactor", is(ZOOM_MODULE_WORD, ZOOM_MODULE_2489), ALWAYS, 2489},
    {"lens.zoomFactor", is(ZOOM_MODULE_WORD, ZOOM_MODULE_5972), ALWAYS, 5972},
    {"lens.zoomFactor", is(ZOOM_MODULE_WORD, ZOOM_MODULE_7311), ALWAYS, 7311},
    {"lens.zoomFactor", is(ZOOM_MODULE_WORD, ZOOM_MODULE_9408), ALWAYS, 9408},
    {"lens.zoomFactor", is(ZOOM_MODULE_WORD, ZOOM_MODULE_1260), ALWAYS, 1260},
    {"lens.zoomFactor", is(ZOOM_MODULE_WORD, ZOOM_MODULE_1280), ALWAYS, 1280},
    {"lens.presetZoomFactor", is(ZOOM_MODULE_WORD, ZOOM_MODULE_1280), ALWAYS, 1281},
    // Imaging.
    {"imaging.none", is(MODEL_CODE_WORD, MODEL_NO_IMAGING), ALWAYS, 1},
    {"imaging.exposureInSeconds", is(MODEL_CODE_WORD, MODEL_EXPOSURE_AS_STORED), ALWAYS, 1},
    {"imaging.exposureInSeconds", is(PAN_TILT_WORD, PAN_TILT_INTEGRATED), is(ZOOM_WORD, LENS_DOME), 1},
};

bool holds(const WordIn& c)
{
    if (c.word == 0)
        return true;
    int v = shmWord(c.word);
    return v >= c.low && v <= c.high;
}

}  // namespace

int modelValue(const char* name)
{
    for (const ModelRow& row : MODEL_TABLE)
        if (strcmp(row.name, name) == 0 && holds(row.when) && holds(row.also))
            return row.value;
    return 0;
}

bool modelKnows(const char* name)
{
    for (const ModelRow& row : MODEL_TABLE)
        if (strcmp(row.name, name) == 0)
            return true;
    return false;
}

int shmNameValue(const char* name, int* value)
{
    struct Named {
        const char* name;
        int value;
    };
    static const Named NAMES[] = {
#define SHM_WORD_NAME(n, number, writer, meaning) {#n, number},
        SHM_WORD_LIST(SHM_WORD_NAME)
#undef SHM_WORD_NAME
#define MODEL_CODE_NAME(n, word, code) {#n, code},
        MODEL_CODE_LIST(MODEL_CODE_NAME)
#undef MODEL_CODE_NAME
    };
    for (const Named& n : NAMES)
        if (strcmp(n.name, name) == 0) {
            *value = n.value;
            return 1;
        }
    return 0;
}
