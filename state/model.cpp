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
    Cap cap;
    WordIn when, also;  // both must hold
    int value;
};

constexpr WordIn ALWAYS = {0, 0, 0};
constexpr WordIn is(int word, int code) { return {word, code, code}; }
constexpr WordIn from(int word, int low) { return {word, low, INT_MAX}; }
constexpr WordIn within(int word, int low, int high) { return {word, low, high}; }

// Rows of one capability are tried in order, so a later row without
// conditions is its default; several rows with value 1 are "any of". The
// rows follow the order of the capability list in state/model.h.
constexpr ModelRow MODEL_TABLE[] = {
    // Credentials.
    {Cap::AuthWaivedForSetup, is(VARIANT_CODE, VARIANT_OPEN_SETUP), ALWAYS, 1},
    {Cap::AuthWaivedForInterfaces, is(VARIANT_CODE, VARIANT_OPEN_SETUP), ALWAYS, 1},
    {Cap::AuthWaivedForInterfaces, is(VARIANT_CODE, VARIANT_COUNTRY_SCOPE), ALWAYS, 1},
    // Device.
    {Cap::DeviceVersion20, is(VARIANT_CODE, VARIANT_V20), ALWAYS, 1},
    {Cap::ScopesCountryAsOnvif, is(VARIANT_CODE, VARIANT_COUNTRY_SCOPE), ALWAYS, 1},
    {Cap::PathsVariantOwn, is(VARIANT_CODE, VARIANT_VANTOR), ALWAYS, 1},
    // Media and audio.
    {Cap::AudioSampleRateKHz, is(VARIANT_CODE, VARIANT_LENIENT), ALWAYS, 1},
    {Cap::MediaFreeUpperChannels, is(VARIANT_CODE, VARIANT_WIDE_SENSOR), ALWAYS, 1},
    {Cap::MediaSharedEncoderPipeline, is(MODEL_CODE_WORD, MODEL_A5S_SDK310), ALWAYS, 1},
    {Cap::MediaVariantOptions, is(VARIANT_CODE, VARIANT_WIDE_SENSOR), ALWAYS, 1},
    {Cap::MediaVariantOptions, is(VARIANT_CODE, VARIANT_COUNTRY_SCOPE), ALWAYS, 1},
    {Cap::MediaVariantOptions, from(VARIANT_CODE, VARIANT_OPEN_SETUP), ALWAYS, 1},
    // Which stream modes give the upper encoder channels.
    {Cap::MediaChannel2, within(STREAM_MODE_WORD, 1, 3), ALWAYS, CHANNEL_OPEN},
    {Cap::MediaChannel2, within(STREAM_MODE_WORD, 5, 8), ALWAYS, CHANNEL_OPEN},
    {Cap::MediaChannel3, is(STREAM_MODE_WORD, 1), ALWAYS, CHANNEL_IF_LOWER_H264},
    {Cap::MediaChannel3, is(STREAM_MODE_WORD, 2), ALWAYS, CHANNEL_OPEN},
    {Cap::MediaChannel3, within(STREAM_MODE_WORD, 5, 8), ALWAYS, CHANNEL_OPEN},
    {Cap::MediaChannel4, within(STREAM_MODE_WORD, 1, 2), ALWAYS, CHANNEL_IF_LOWER_H264},
    {Cap::MediaChannel4, is(STREAM_MODE_WORD, 5), ALWAYS, CHANNEL_OPEN},
    {Cap::MediaChannel4, within(STREAM_MODE_WORD, 7, 8), ALWAYS, CHANNEL_OPEN},
    // The profiles the media service reports it can hold.
    {Cap::MediaMaxProfiles, ALWAYS, ALWAYS, 10},
    // Events.
    {Cap::EventsVendorTopics, is(VARIANT_CODE, VARIANT_VENDOR_TOPICS), ALWAYS, 1},
    {Cap::EventsOnePullPoint, is(VARIANT_CODE, VARIANT_ONE_PULL_POINT), ALWAYS, 1},
    // The pull points open at once that CreatePullPointSubscription allows.
    {Cap::EventsPullPoints, is(VARIANT_CODE, VARIANT_ONE_PULL_POINT), ALWAYS, 1},
    {Cap::EventsPullPoints, ALWAYS, ALWAYS, 5},
    {Cap::EventsAddressInHeader, is(VARIANT_CODE, VARIANT_VENDOR_TOPICS), ALWAYS, 1},
    {Cap::EventsAddressInHeader, is(VARIANT_CODE, VARIANT_ONE_PULL_POINT), ALWAYS, 1},
    {Cap::EventsLenientUnsubscribe, is(VARIANT_CODE, VARIANT_LENIENT), ALWAYS, 1},
    {Cap::EventsMotionSourceWindow, is(VARIANT_CODE, VARIANT_V20), ALWAYS, 1},
    {Cap::EventsNoTampering, is(MODEL_CODE_WORD, MODEL_WITHOUT_TAMPERING), ALWAYS, 1},
    {Cap::EventsMaxMessages, is(MODEL_CODE_WORD, MODEL_WITHOUT_TAMPERING), ALWAYS, 3},
    {Cap::EventsMaxMessages, is(IO_LAYOUT_WORD, IO_LAYOUT_HEAD), ALWAYS, 7},
    {Cap::EventsMaxMessages, within(IO_LAYOUT_WORD, IO_LAYOUT_HEAD_TWO_RELAYS, IO_LAYOUT_HEAD_TWO_RELAYS_B), ALWAYS, 8},
    {Cap::EventsMaxMessages, ALWAYS, ALWAYS, 4},
    // The inputs and relays whose initial states a pull point gets.
    {Cap::EventsInputs, within(IO_LAYOUT_WORD, IO_LAYOUT_HEAD, IO_LAYOUT_HEAD_TWO_RELAYS_B), ALWAYS, 4},
    {Cap::EventsInputs, ALWAYS, ALWAYS, 1},
    {Cap::EventsRelays, within(IO_LAYOUT_WORD, IO_LAYOUT_HEAD_TWO_RELAYS, IO_LAYOUT_HEAD_TWO_RELAYS_B), ALWAYS, 2},
    {Cap::EventsRelays, ALWAYS, ALWAYS, 1},
    // IO: the connectors the capabilities count, the relay outputs served.
    {Cap::IoInputs, is(IO_LAYOUT_WORD, IO_LAYOUT_BASIC), ALWAYS, 1},
    {Cap::IoInputs, from(IO_LAYOUT_WORD, IO_LAYOUT_HEAD), ALWAYS, 4},
    {Cap::IoRelays, within(IO_LAYOUT_WORD, IO_LAYOUT_BASIC, IO_LAYOUT_HEAD), ALWAYS, 1},
    {Cap::IoRelays, within(IO_LAYOUT_WORD, IO_LAYOUT_HEAD_TWO_RELAYS, IO_LAYOUT_HEAD_TWO_RELAYS_B), ALWAYS, 2},
    {Cap::IoRelayOutputs, from(IO_LAYOUT_WORD, IO_LAYOUT_BASIC), ALWAYS, 1},
    {Cap::IoHeadRelayList, within(IO_LAYOUT_WORD, IO_LAYOUT_HEAD_TWO_RELAYS, IO_LAYOUT_HEAD_TWO_RELAYS_B), ALWAYS, 1},
    {Cap::IoPtzHead, within(IO_LAYOUT_WORD, IO_LAYOUT_HEAD, IO_LAYOUT_HEAD_TWO_RELAYS_B), ALWAYS, 1},
    {Cap::RelaysIdleFixedOnHead, is(VARIANT_CODE, VARIANT_VENDOR_TOPICS),
     within(IO_LAYOUT_WORD, IO_LAYOUT_HEAD, IO_LAYOUT_HEAD_TWO_RELAYS_B), 1},
    // PTZ.
    {Cap::PtzPanTilt, from(PAN_TILT_WORD, PAN_TILT_RS485), ALWAYS, 1},
    {Cap::PtzIntegratedPanTilt, from(PAN_TILT_WORD, PAN_TILT_INTEGRATED), ALWAYS, 1},
    {Cap::PtzZoom, from(ZOOM_WORD, LENS_TEN_STEPS), ALWAYS, 1},
    {Cap::PtzMotors, from(PAN_TILT_WORD, PAN_TILT_RS485), ALWAYS, 1},
    {Cap::PtzMotors, from(ZOOM_WORD, LENS_TEN_STEPS), ALWAYS, 1},
    {Cap::PtzDome, is(PAN_TILT_WORD, PAN_TILT_INTEGRATED), is(ZOOM_WORD, LENS_DOME), 1},
    {Cap::PtzRs485Head, is(IO_LAYOUT_WORD, IO_LAYOUT_BASIC), is(PAN_TILT_WORD, PAN_TILT_RS485), 1},
    {Cap::PtzSmallPresetStore, is(MODEL_CODE_WORD, MODEL_WITHOUT_TAMPERING), ALWAYS, 1},
    {Cap::PtzPresetLimit, is(MODEL_CODE_WORD, MODEL_WITHOUT_TAMPERING), ALWAYS, 127},
    {Cap::PtzPresetLimit, ALWAYS, ALWAYS, 255},
    {Cap::PtzHeadReportsPresets, within(MODEL_CODE_WORD, MODEL_HEAD_PRESETS, MODEL_A5S_SDK310), ALWAYS, 1},
    // The zoom module's position factor; presets use their own for one module.
    {Cap::LensZoomFactor, is(ZOOM_MODULE_WORD, ZOOM_MODULE_1274), ALWAYS, 1274},
    {Cap::LensZoomFactor, is(ZOOM_MODULE_WORD, ZOOM_MODULE_2241), ALWAYS, 2241},
    {Cap::LensZoomFactor, is(ZOOM_MODULE_WORD, ZOOM_MODULE_2452), ALWAYS, 2452},
    {Cap::LensZoomFactor, is(ZOOM_MODULE_WORD, ZOOM_MODULE_2489), ALWAYS, 2489},
    {Cap::LensZoomFactor, is(ZOOM_MODULE_WORD, ZOOM_MODULE_5972), ALWAYS, 5972},
    {Cap::LensZoomFactor, is(ZOOM_MODULE_WORD, ZOOM_MODULE_7311), ALWAYS, 7311},
    {Cap::LensZoomFactor, is(ZOOM_MODULE_WORD, ZOOM_MODULE_9408), ALWAYS, 9408},
    {Cap::LensZoomFactor, is(ZOOM_MODULE_WORD, ZOOM_MODULE_1260), ALWAYS, 1260},
    {Cap::LensZoomFactor, is(ZOOM_MODULE_WORD, ZOOM_MODULE_1280), ALWAYS, 1280},
    {Cap::LensPresetZoomFactor, is(ZOOM_MODULE_WORD, ZOOM_MODULE_1280), ALWAYS, 1281},
    // Imaging.
    {Cap::ImagingNone, is(MODEL_CODE_WORD, MODEL_NO_IMAGING), ALWAYS, 1},
    {Cap::ImagingExposureInSeconds, is(MODEL_CODE_WORD, MODEL_EXPOSURE_AS_STORED), ALWAYS, 1},
    {Cap::ImagingExposureInSeconds, is(PAN_TILT_WORD, PAN_TILT_INTEGRATED), is(ZOOM_WORD, LENS_DOME), 1},
};

constexpr int ROWS = sizeof MODEL_TABLE / sizeof MODEL_TABLE[0];

constexpr bool inCapabilityOrder()
{
    for (int r = 1; r < ROWS; ++r)
        if ((int)MODEL_TABLE[r].cap < (int)MODEL_TABLE[r - 1].cap)
            return false;
    return true;
}
static_assert(inCapabilityOrder(), "the table's rows follow the capability list");

// Where each capability's rows begin (and, one further, end): a lookup reads
// only its own rows, so asking costs no more than the rows say.
struct FirstRows {
    short at[(int)Cap::Count + 1];
};
constexpr FirstRows firstRows()
{
    FirstRows f{};
    int r = 0;
    for (int c = 0; c <= (int)Cap::Count; ++c) {
        while (r < ROWS && (int)MODEL_TABLE[r].cap < c)
            ++r;
        f.at[c] = (short)r;
    }
    return f;
}
constexpr FirstRows FIRST = firstRows();

bool holds(const WordIn& c)
{
    if (c.word == 0)
        return true;
    int v = shmWord(c.word);
    return v >= c.low && v <= c.high;
}

}  // namespace

int modelValue(Cap cap)
{
    for (int r = FIRST.at[(int)cap]; r < FIRST.at[(int)cap + 1]; ++r)
        if (holds(MODEL_TABLE[r].when) && holds(MODEL_TABLE[r].also))
            return MODEL_TABLE[r].value;
    return 0;
}

int capabilityRows(Cap cap)
{
    return FIRST.at[(int)cap + 1] - FIRST.at[(int)cap];
}
