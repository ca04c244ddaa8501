// PTZ nodes and configurations: their listings, options and changes.
#include "state/shm_words.h"
#include "state/mode.h"
#include "frame/frame.h"
#include "ptz/head.h"
#include "frame/request_values.h"
#include "frame/setting_reads.h"
#include "state/setting_rules.h"
#include "frame/handlers.h"
#include "frame/xmlsearch.h"
#include "state/profiles.h"
#include "state/checkers.h"
#include "state/config.h"
#include "state/paths.h"
#include "state/shm.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define PTZ_DIR "/usr/apache/htdocs/onvif/"
#define PTZ_NODE_LIST PTZ_DIR "PTZ_NODE.conf"
#define RS485_PROTOCOL_CONF "/etc/sysconfig/rs485protocol.conf"

#define SPACES "http://www.onvif.org/ver10/tptz/"
#define PT_POSITION SPACES "PanTiltSpaces/PositionGenericSpace"
#define PT_TRANSLATION SPACES "PanTiltSpaces/TranslationGenericSpace"
#define PT_VELOCITY SPACES "PanTiltSpaces/VelocityGenericSpace"
#define PT_VELOCITY_DEGREES SPACES "PanTiltSpaces/VelocitySpaceDegrees"
#define PT_SPEED SPACES "PanTiltSpaces/GenericSpeedSpace"
#define PT_SPEED_DEGREES SPACES "PanTiltSpaces/SpeedSpaceDegrees"
#define ZOOM_POSITION SPACES "ZoomSpaces/PositionGenericSpace"
#define ZOOM_TRANSLATION SPACES "ZoomSpaces/TranslationGenericSpace"
#define ZOOM_VELOCITY SPACES "ZoomSpaces/VelocityGenericSpace"
#define ZOOM_SPEED SPACES "ZoomSpaces/ZoomGenericSpeedSpace"

static int panTilt() { return modelHas(Cap::PtzPanTilt); }
static int zoom() { return modelHas(Cap::PtzZoom); }
static int hasPTZ() { return modelHas(Cap::PtzMotors); }
static int integratedDome() { return modelHas(Cap::PtzDome); }

enum NoPTZWording { NO_PTZ_LIST, NO_PTZ_NVT, NO_PTZ_SET };

static int refuseWithoutPTZ(NoPTZWording wording)
{
    if (hasPTZ())
        return 0;
    if (wording == NO_PTZ_LIST)
        writeSenderFault("ter:PTZNotSupported", "PTZ is not supported.");
    else if (wording == NO_PTZ_NVT)
        writeSenderFault2("ActionNotSupported", "PTZNotSupported", "PTZ is not supported by the NVT.",
                          "PTZ is not supported by the NVT.");
    else
        writePtzNotSupportedFault();
    return 1;
}

// Splits "Key=value" into the key and its one-word value; 0 for no such line.
static int splitSetting(char* line, char** key, char** value)
{
    char* fields[2];
    if (splitFields(line, '=', fields, 2) != 2)
        return 0;
    *key = fields[0];
    *value = fields[1];
    (*value)[strcspn(*value, " \t")] = 0;
    return 1;
}

// One printed row: the key, what it prints around its value, and the
// capability word that must be above 0 (0: always printed).
struct PrintRow {
    const char* key;
    const char* before;
    const char* after;
    int capability;
};

// The spaces of a node, in file order. A space opens with its URI line and
// closes with its last range line.
#define SPACE_ROWS(name, cap) \
    {#name ".URI", "<tt:" #name "><tt:URI>", "</tt:URI>", cap}, \
    {#name ".XRange.Min", "<tt:XRange><tt:Min>", "</tt:Min>", cap}, \
    {#name ".XRange.Max", "<tt:Max>", "</tt:Max></tt:XRange>", cap}, \
    {#name ".YRange.Min", "<tt:YRange><tt:Min>", "</tt:Min>", cap}, \
    {#name ".YRange.Max", "<tt:Max>", "</tt:Max></tt:YRange></tt:" #name ">", cap}
#define SPACE_ROWS_X(name, cap) \
    {#name ".URI", "<tt:" #name "><tt:URI>", "</tt:URI>", cap}, \
    {#name ".XRange.Min", "<tt:XRange><tt:Min>", "</tt:Min>", cap}, \
    {#name ".XRange.Max", "<tt:Max>", "</tt:Max></tt:XRange></tt:" #name ">", cap}

static const PrintRow NODE_SPACE_ROWS[] = {
    SPACE_ROWS(AbsolutePanTiltPositionSpace, PAN_TILT_WORD),
    SPACE_ROWS_X(AbsoluteZoomPositionSpace, ZOOM_WORD),
    SPACE_ROWS(RelativePanTiltTranslationSpace, PAN_TILT_WORD),
    SPACE_ROWS_X(RelativeZoomTranslationSpace, ZOOM_WORD),
    SPACE_ROWS(ContinuousPanTiltVelocitySpace, PAN_TILT_WORD),
    SPACE_ROWS_X(ContinuousZoomVelocitySpace, ZOOM_WORD),
    SPACE_ROWS_X(PanTiltSpeedSpace, PAN_TILT_WORD),
    SPACE_ROWS_X(ZoomSpeedSpace, ZOOM_WORD),
};

static const PrintRow* findRow(const PrintRow* rows, size_t count, const char* key)
{
    for (size_t i = 0; i < count; ++i)
        if (strcmp(rows[i].key, key) == 0)
            return &rows[i];
    return 0;
}

static int capable(int word) { return word == 0 || shmWord(word) > 0; }

static int rs485SwitchOn()
{
    FILE* f = fopenRoot(RS485_PROTOCOL_CONF, "r");
    if (!f) {
        log_message_to_onvifErrorFile(1, "deviceService:Read_Print_PTZ_NODE: %s missing", RS485_PROTOCOL_CONF);
        return 0;
    }
    char line[256];
    int on = 0;
    while (fgets(line, sizeof line, f)) {
        const char* at = strstr(line, "root.RS485Control.Switch=");
        if (at) {
            on = atoi(at + strlen("root.RS485Control.Switch=")) == 1;
            break;
        }
    }
    fclose(f);
    return on;
}

// How many presets the attached head keeps.
static void printMaximumNumberOfPresets(const char* value)
{
    const char* shown = "0";
    if (integratedDome()) {
        shown = strcmp(value, "NONE") == 0 ? "0" : value;
    } else if (modelHas(Cap::PtzRs485Head) && strcmp(value, "NONE") != 0 &&
               rs485SwitchOn()) {
        shown = modelHas(Cap::PtzHeadReportsPresets) ? value : modelHas(Cap::PtzSmallPresetStore) ? "127" : "0";
    }
    appendResponse("<tt:MaximumNumberOfPresets>%s</tt:MaximumNumberOfPresets>", shown);
}

static void Read_Print_PTZ_Node(const char* fileName)
{
    FILE* f = openStoreFile(PTZ_DIR, fileName);
    if (!f) {
        logServiceError("Read_Print_PTZ_NODE", "%s", "FILE missing");
        return;
    }
    char line[256];
    int spacesOpen = 0;
    while (fgets(line, sizeof line, f)) {
        char *key, *value;
        if (!splitSetting(line, &key, &value))
            continue;
        if (strcmp(key, "Name") == 0) {
            appendResponse("<tt:Name>%s</tt:Name>", value);
        } else if (const PrintRow* row = findRow(NODE_SPACE_ROWS, sizeof NODE_SPACE_ROWS / sizeof *NODE_SPACE_ROWS, key)) {
            int last = strcmp(key, "ZoomSpeedSpace.XRange.Max") == 0;
            if (capable(row->capability)) {
                if (!spacesOpen)
                    appendResponse("<tt:SupportedPTZSpaces>");
                spacesOpen = 1;
                appendBetween(row->before, value, row->after);
            }
            if (last) {
                appendMarkup(spacesOpen ? "</tt:SupportedPTZSpaces>" : "<tt:SupportedPTZSpaces></tt:SupportedPTZSpaces>");
                spacesOpen = 0;
            }
        } else if (strcmp(key, "MaximumNumberOfPresets") == 0) {
            printMaximumNumberOfPresets(value);
        } else if ((strcmp(key, "HomeSupported") == 0 || strcmp(key, "AuxiliaryCommands") == 0) &&
                   strcmp(value, "NONE") != 0) {
            appendResponse("<tt:%s>%s</tt:%s>", key, value, key);
        }
    }
    fclose(f);
}

static const PrintRow CONF_ROWS[] = {
    {"DefaultAbsolutePantTiltPositionSpace", "<tt:DefaultAbsolutePantTiltPositionSpace>",
     "</tt:DefaultAbsolutePantTiltPositionSpace>", PAN_TILT_WORD},
    {"DefaultAbsoluteZoomPositionSpace", "<tt:DefaultAbsoluteZoomPositionSpace>",
     "</tt:DefaultAbsoluteZoomPositionSpace>", ZOOM_WORD},
    {"DefaultRelativePanTiltTranslationSpace", "<tt:DefaultRelativePanTiltTranslationSpace>",
     "</tt:DefaultRelativePanTiltTranslationSpace>", PAN_TILT_WORD},
    {"DefaultRelativeZoomTranslationSpace", "<tt:DefaultRelativeZoomTranslationSpace>",
     "</tt:DefaultRelativeZoomTranslationSpace>", ZOOM_WORD},
    {"DefaultContinuousPanTiltVelocitySpace", "<tt:DefaultContinuousPanTiltVelocitySpace>",
     "</tt:DefaultContinuousPanTiltVelocitySpace>", PAN_TILT_WORD},
    {"DefaultContinuousZoomVelocitySpace", "<tt:DefaultContinuousZoomVelocitySpace>",
     "</tt:DefaultContinuousZoomVelocitySpace>", ZOOM_WORD},
    // A speed's start tag is built piece by piece, attribute after attribute.
    {"DefaultPTZSpeed.PanTilt.space", "<tt:PanTilt space=\"", "\" ", PAN_TILT_WORD},
    {"DefaultPTZSpeed.PanTilt.y", "y=\"", "\" ", PAN_TILT_WORD},
    {"DefaultPTZSpeed.PanTilt.x", "x=\"", "\"></tt:PanTilt>", PAN_TILT_WORD},
    {"DefaultPTZSpeed.Zoom.space", "<tt:Zoom space=\"", "\" ", ZOOM_WORD},
    {"DefaultPTZSpeed.Zoom.x", "x=\"", "\"></tt:Zoom>", ZOOM_WORD},
    {"DefaultPTZTimeout", "<tt:DefaultPTZTimeout>", "</tt:DefaultPTZTimeout>", 0},
    {"PanTiltLimits.Range.URI", "<tt:PanTiltLimits><tt:Range><tt:URI>", "</tt:URI>", PAN_TILT_WORD},
    {"PanTiltLimits.Range.XRange.Min", "<tt:XRange><tt:Min>", "</tt:Min>", PAN_TILT_WORD},
    {"PanTiltLimits.Range.XRange.Max", "<tt:Max>", "</tt:Max></tt:XRange>", PAN_TILT_WORD},
    {"PanTiltLimits.Range.YRange.Min", "<tt:YRange><tt:Min>", "</tt:Min>", PAN_TILT_WORD},
    {"PanTiltLimits.Range.YRange.Max", "<tt:Max>", "</tt:Max></tt:YRange></tt:Range></tt:PanTiltLimits>", PAN_TILT_WORD},
    {"ZoomLimits.Range.URI", "<tt:ZoomLimits><tt:Range><tt:URI>", "</tt:URI>", ZOOM_WORD},
    {"ZoomLimits.Range.XRange.Min", "<tt:XRange><tt:Min>", "</tt:Min>", ZOOM_WORD},
    {"ZoomLimits.Range.XRange.Max", "<tt:Max>", "</tt:Max></tt:XRange></tt:Range></tt:ZoomLimits>", ZOOM_WORD},
};

void Read_Print_PTZ_Conf(const char* fileName)
{
    FILE* f = openStoreFile(PTZ_DIR, fileName);
    if (!f) {
        logServiceError("Read_Print_PTZFile", "%s", "FILE missing");
        return;
    }
    char line[512];
    int speedOpen = 0;
    while (fgets(line, sizeof line, f)) {
        char *key, *value;
        if (!splitSetting(line, &key, &value))
            continue;
        int unset = strcmp(value, "NONE") == 0;
        if (strcmp(key, "Name") == 0 || strcmp(key, "UseCount") == 0 || strcmp(key, "NodeToken") == 0) {
            const char* shown = unset ? "" : value;
            // The schema's use count is a number: the ONVIF mode shows one
            // where the file holds none.
            if (onvifMode() && strcmp(key, "UseCount") == 0 && (!*shown || strspn(shown, "0123456789") != strlen(shown)))
                shown = "0";
            appendResponse("<tt:%s>%s</tt:%s>", key, shown, key);
            continue;
        }
        const PrintRow* row = findRow(CONF_ROWS, sizeof CONF_ROWS / sizeof *CONF_ROWS, key);
        if (!row)
            continue;
        int speed = strncmp(key, "DefaultPTZSpeed.", 16) == 0;
        if (speed && !speedOpen) {
            appendResponse("<tt:DefaultPTZSpeed>");
            speedOpen = 1;
        }
        if (capable(row->capability) && !(unset && !speed))
            appendBetween(row->before, value, row->after);
        if (strcmp(key, "DefaultPTZSpeed.Zoom.x") == 0 && speedOpen) {
            appendResponse("</tt:DefaultPTZSpeed>");
            speedOpen = 0;
        }
    }
    fclose(f);
}

// A list file of "<token>.<suffix>" lines: calls print for each token whose
// file opens, inside its element (elementOpen ends where the token goes).
static int listEach(const char* listFile, const char* func, const char* elementOpen, const char* elementClose,
                    void (*print)(const char*))
{
    FILE* list = fopenRoot(listFile, "r");
    if (!list) {
        logServiceError(func, "%s missing", listFile);
        return 0;
    }
    char line[256];
    while (fgets(line, sizeof line, list)) {
        line[strcspn(line, "\r\n")] = 0;
        char token[256];
        snprintf(token, sizeof token, "%s", line);
        token[strcspn(token, ".")] = 0;
        FILE* probe = openStoreFile(PTZ_DIR, line);
        if (!probe) {
            logServiceError(func, "%s missing", line);
            continue;
        }
        fclose(probe);
        appendMarkup(elementOpen);
        appendResponse("%s\">", token);
        print(line);
        appendMarkup(elementClose);
    }
    fclose(list);
    return 1;
}

void GetNodes()
{
    if (refuseWithoutPTZ(NO_PTZ_LIST))
        return;
    setResponse("<tptz:GetNodesResponse>");
    if (listEach(PTZ_NODE_LIST, "GetNodes", "<tptz:PTZNode token=\"", "</tptz:PTZNode>", Read_Print_PTZ_Node))
        appendResponse("</tptz:GetNodesResponse>");
}

void GetConfigurations()
{
    if (refuseWithoutPTZ(NO_PTZ_LIST))
        return;
    setResponse("<tptz:GetConfigurationsResponse>");
    if (listEach(ONVIF_PTZ_CONF, "GetConfigurations", "<tptz:PTZConfiguration token=\"",
                 "</tptz:PTZConfiguration>", Read_Print_PTZ_Conf))
        appendResponse("</tptz:GetConfigurationsResponse>");
}

// The file "<token><suffix>" of the PTZ directory exists; a token that
// could name a file elsewhere names none.
static int ptzFileExists(const char* token, const char* suffix, char* fileName, size_t n)
{
    formatChecked(fileName, n, "%s%s", token, suffix);
    FILE* f = openStoreFile(PTZ_DIR, fileName);
    if (f)
        fclose(f);
    return f != 0;
}

void GetNode()
{
    if (refuseWithoutPTZ(NO_PTZ_NVT))
        return;
    char token[129], fileName[160];
    if (requestTextEither("tptz:NodeToken", "NodeToken", token, 129) == Read::Refused)
        return;
    if (!ptzFileExists(token, ".Node", fileName, sizeof fileName)) {
        char detail[300];
        snprintf(detail, sizeof detail, "No such PTZNode %s on the NVT.", token);
        writeSenderFault2("InvalidArgVal", "NoEntity", "No such PTZNode on the NVT.", detail);
        return;
    }
    setResponse("<tptz:GetNodeResponse><tptz:PTZNode token=\"%s\">", token);
    Read_Print_PTZ_Node(fileName);
    appendResponse("</tptz:PTZNode></tptz:GetNodeResponse>");
}

static void writeNoConfigurationFault(const char* token)
{
    char detail[300];
    snprintf(detail, sizeof detail, "The requested configuration %s does not exist.",
             token);
    writeSenderFault2(onvifMode() ? "InvalidArgVal" : "Action", "NoConfig", "The requested configuration does not exist.",
                      detail);
}

void GetConfiguration()
{
    if (refuseWithoutPTZ(NO_PTZ_NVT))
        return;
    char token[129], fileName[160];
    Read read = requestTextEither("tptz:PTZConfigurationToken", "tptz:ConfigurationName", token, 129);
    if (read == Read::Absent)
        read = requestTextEither("PTZConfigurationToken", "tptz:ConfigurationToken", token, 129);
    if (read == Read::Refused)
        return;
    if (!ptzFileExists(token, ".PTZConf", fileName, sizeof fileName)) {
        writeNoConfigurationFault(token);
        return;
    }
    setResponse("<tptz:GetConfigurationResponse><tptz:PTZConfiguration token=\"%s\">", token);
    Read_Print_PTZ_Conf(fileName);
    appendResponse("</tptz:PTZConfiguration></tptz:GetConfigurationResponse>");
}

static void optionSpace(const char* element, const char* uri, const char* xMin, const char* yRange)
{
    appendResponse("<tt:%s><tt:URI>%s</tt:URI><tt:XRange><tt:Min>%s</tt:Min><tt:Max>1.00</tt:Max></tt:XRange>",
                   element, uri, xMin);
    appendMarkup(yRange);
    appendResponse("</tt:%s>", element);
}

static void Read_Print_ConfigurationOptions()
{
    static const char Y[] = "<tt:YRange><tt:Min>-1.00</tt:Min><tt:Max>1.00</tt:Max></tt:YRange>";
    appendResponse("<tptz:GetConfigurationOptionsResponse><tptz:PTZConfigurationOptions><tt:Spaces>");
    if (panTilt())
        optionSpace("AbsolutePanTiltPositionSpace", PT_POSITION, "-1.00", Y);
    if (zoom())
        optionSpace("AbsoluteZoomPositionSpace", ZOOM_POSITION, "0.00", "");
    if (panTilt())
        optionSpace("RelativePanTiltTranslationSpace", PT_TRANSLATION, "-1.00", Y);
    if (zoom())
        optionSpace("RelativeZoomTranslationSpace", ZOOM_TRANSLATION, "-1.00", "");
    if (panTilt()) {
        optionSpace("ContinuousPanTiltVelocitySpace", PT_VELOCITY, "-1.00", Y);
        optionSpace("ContinuousPanTiltVelocitySpace", PT_VELOCITY_DEGREES, "-1.00", Y);
    }
    if (zoom())
        optionSpace("ContinuousZoomVelocitySpace", ZOOM_VELOCITY, "-1.00", "");
    if (panTilt()) {
        optionSpace("PanTiltSpeedSpace", PT_SPEED, "0.00", "");
        optionSpace("PanTiltSpeedSpace", PT_SPEED_DEGREES, "0.00", "");
    }
    if (zoom())
        optionSpace("ZoomSpeedSpace", ZOOM_SPEED, "0.00", "");
    appendResponse("</tt:Spaces><tt:PTZTimeout><tt:Min>PT%dS</tt:Min><tt:Max>PT%dS</tt:Max></tt:PTZTimeout>"
                   "</tptz:PTZConfigurationOptions></tptz:GetConfigurationOptionsResponse>", 1, 600);
}

void GetConfigurationOptions()
{
    if (refuseWithoutPTZ(NO_PTZ_NVT))
        return;
    char token[129], fileName[160];
    if (requestText("ConfigurationToken", token, 129) == Read::Refused)
        return;
    if (!ptzFileExists(token, ".PTZConf", fileName, sizeof fileName)) {
        writeNoConfigurationFault(token);
        return;
    }
    setResponse("%s", "");
    Read_Print_ConfigurationOptions();
}

// ---------------------------------------------------------------------------
// SetConfiguration: its rows, read and applied by the settings engine.

// Plain text up to max characters; with min 1 also of the name characters.
static int checkText(char* value, const SettingRow* row, const char*, void*)
{
    return strlen(value) > (size_t)row->max || (row->min && CheckChar(value));
}

// A default space: on the integrated dome only the one it moves in.
static int checkDomeSpace(char* value, const SettingRow* row, const char* space, void* ctx)
{
    return checkText(value, row, space, ctx) || (integratedDome() && strcmp(value, space) != 0);
}

static int checkExactText(char* value, const SettingRow*, const char* text, void*)
{
    return strcmp(value, text) != 0;
}

// A number as stored: checked, converted through single precision, six decimals.
static int checkPtzNumber(char* value, const SettingRow*, const char*, void*)
{
    if (strlen(value) >= 33 || CheckFloat(value) || !value[0])
        return 1;
    char stored[64];
    snprintf(stored, sizeof stored, "%f", (double)(float)strtod(value, 0));
    snprintf(value, SETTING_VALUE_SIZE, "%s", stored);
    return 0;
}

static int checkPtzBool(char* value, const SettingRow*, const char*, void*) { return CheckBool(value); }

#define PTZ_TEXT(path, key, length, nameChars) {path, key, checkText, nameChars, length, 0, 0, FORM_AS_GIVEN, 0, 0}
#define PTZ_SPACE(path, key, space) {path, key, checkDomeSpace, 0, 128, space, 0, FORM_AS_GIVEN, 0, 0}
#define PTZ_ROW(path, key, check, option) {path, key, check, 0, 128, option, 0, FORM_AS_GIVEN, 0, 0}

// The speed's paths name the attribute of the PanTilt or Zoom element; the
// limits' paths the element within the limits.
static const SettingRow PTZ_CONFIGURATION_ROWS[] = {
    // path, key, check, min, max, option, parameter, form, flags, refusal
    PTZ_TEXT("tt:Name", "Name", 64, 1),
    PTZ_TEXT("tt:UseCount", "UseCount", 16, 1),
    PTZ_TEXT("tt:NodeToken", "NodeToken", 16, 1),
    PTZ_SPACE("tt:DefaultAbsolutePantTiltPositionSpace", "DefaultAbsolutePantTiltPositionSpace", PT_POSITION),
    PTZ_SPACE("tt:DefaultAbsoluteZoomPositionSpace", "DefaultAbsoluteZoomPositionSpace", ZOOM_POSITION),
    PTZ_SPACE("tt:DefaultRelativePanTiltTranslationSpace", "DefaultRelativePanTiltTranslationSpace", PT_TRANSLATION),
    PTZ_SPACE("tt:DefaultRelativeZoomTranslationSpace", "DefaultRelativeZoomTranslationSpace", ZOOM_TRANSLATION),
    PTZ_SPACE("tt:DefaultContinuousPanTiltVelocitySpace", "DefaultContinuousPanTiltVelocitySpace", PT_VELOCITY),
    PTZ_SPACE("tt:DefaultContinuousZoomVelocitySpace", "DefaultContinuousZoomVelocitySpace", ZOOM_VELOCITY),
    PTZ_TEXT("tt:DefaultPTZTimeout", "DefaultPTZTimeout", 16, 1),
    PTZ_ROW("tt:ForcePersistence", 0, checkPtzBool, 0),
    PTZ_ROW("DefaultPTZSpeed/PanTilt/@x", "DefaultPTZSpeed.PanTilt.x", checkPtzNumber, 0),
    PTZ_ROW("DefaultPTZSpeed/PanTilt/@y", "DefaultPTZSpeed.PanTilt.y", checkPtzNumber, 0),
    PTZ_ROW("DefaultPTZSpeed/PanTilt/@space", "DefaultPTZSpeed.PanTilt.space", checkExactText, PT_SPEED),
    PTZ_ROW("DefaultPTZSpeed/Zoom/@x", "DefaultPTZSpeed.Zoom.x", checkPtzNumber, 0),
    PTZ_ROW("DefaultPTZSpeed/Zoom/@space", "DefaultPTZSpeed.Zoom.space", checkExactText, ZOOM_SPEED),
    PTZ_ROW("PanTiltLimits/URI", "PanTiltLimits.Range.URI", checkText, 0),
    PTZ_ROW("PanTiltLimits/XRange/Min", "PanTiltLimits.Range.XRange.Min", checkPtzNumber, 0),
    PTZ_ROW("PanTiltLimits/XRange/Max", "PanTiltLimits.Range.XRange.Max", checkPtzNumber, 0),
    PTZ_ROW("PanTiltLimits/YRange/Min", "PanTiltLimits.Range.YRange.Min", checkPtzNumber, 0),
    PTZ_ROW("PanTiltLimits/YRange/Max", "PanTiltLimits.Range.YRange.Max", checkPtzNumber, 0),
    PTZ_ROW("ZoomLimits/URI", "ZoomLimits.Range.URI", checkExactText, ZOOM_POSITION),
    PTZ_ROW("ZoomLimits/XRange/Min", "ZoomLimits.Range.XRange.Min", checkPtzNumber, 0),
    PTZ_ROW("ZoomLimits/XRange/Max", "ZoomLimits.Range.XRange.Max", checkPtzNumber, 0),
};

// The text of the first element named name at or after row start, inside the
// rows before end (-1: no end).
static SettingRead readAfter(const char* name, int start, int end, char* buf, size_t n)
{
    int row = start < 0 ? -1 : requestRowOf(name, start);
    if (row < 0 || (end >= 0 && row >= end))
        return SettingRead::Absent;
    return settingReadOf(requestRowValue(row, buf, n));
}

// The speed: the PanTilt element's attributes come first, the Zoom's after them.
static SettingRead readSpeed(const char* part, const char* attribute, char* buf, size_t n)
{
    int hasPanTilt = requestRowOf("PanTilt", 0) >= 0, hasZoom = requestRowOf("Zoom", 0) >= 0;
    if (!requestHas("DefaultPTZSpeed"))
        return SettingRead::Absent;
    if (strcmp(part, "PanTilt") == 0)
        return hasPanTilt && panTilt() ? settingReadOf(requestAttribute(attribute, 0, buf, n)) : SettingRead::Absent;
    return hasZoom && zoom() ? settingReadOf(requestAttribute(attribute, hasPanTilt ? 1 : 0, buf, n))
                             : SettingRead::Absent;
}

// The limits of one kind: its URI and the X (and Y) ranges; the pan/tilt
// limits end where the zoom limits start.
static SettingRead readLimits(const char* limits, const char* rest, char* buf, size_t n)
{
    int panTiltLimits = strcmp(limits, "PanTiltLimits") == 0;
    if (!(panTiltLimits ? panTilt() : zoom()))
        return SettingRead::Absent;
    int row = requestRowOf(limits, 0);
    if (row < 0)
        return SettingRead::Absent;
    int end = panTiltLimits ? requestRowOf("ZoomLimits", 0) : -1;
    if (strcmp(rest, "URI") == 0)
        return readAfter("URI", row, end, buf, n);
    char range[8];
    snprintf(range, sizeof range, "%.6s", rest);
    return readAfter(rest + strlen(range) + 1, requestRowOf(range, row), end, buf, n);
}

static SettingRead readPtzRow(const SettingRow* row, char* buf, size_t n, void*)
{
    const char* slash = strchr(row->path, '/');
    if (!slash)
        return settingReadOf(requestText(row->path, buf, n));
    char first[32], second[16];
    snprintf(first, sizeof first, "%.*s", (int)(slash - row->path), row->path);
    if (strcmp(first, "DefaultPTZSpeed") == 0) {
        snprintf(second, sizeof second, "%.*s", (int)strcspn(slash + 1, "/"), slash + 1);
        return readSpeed(second, strstr(row->path, "/@") + 2, buf, n);
    }
    return readLimits(first, slash + 1, buf, n);
}

static void writeConfigModifyFault(const SettingRow*, void*)
{
    writeSenderFault2("InvalidArgVal", "ConfigModify", "The configuration parameters are not possible to set.",
                      "The configuration parameters are not possible to set.");
}

void SetConfiguration()
{
    if (refuseWithoutPTZ(NO_PTZ_SET))
        return;
    char token[17], fileName[64];
    if (requestAttribute("token", 0, token, 17) == Read::Refused)
        return;
    formatChecked(fileName, sizeof fileName, "%s.PTZConf", token);
    int listed = isListedConfiguration(ONVIF_PTZ_CONF, fileName, "SetConfiguration", "ONVIF_PTZ_CONF");
    if (!listed || !isSafeFileToken(token)) {
        writeSenderFault2("InvalidArgVal", "NoConfig", "The configuration does not exist.",
                          "The configuration does not exist.");
        return;
    }
    char path[128];
    formatChecked(path, sizeof path, PTZ_DIR "%s", fileName);
    SettingTable table = {PTZ_CONFIGURATION_ROWS, (int)(sizeof PTZ_CONFIGURATION_ROWS / sizeof PTZ_CONFIGURATION_ROWS[0]),
                          path, 0, SETTINGS_PASS_UNCHANGED | SETTINGS_ALWAYS_REWRITE, 129, 0, readPtzRow, 0, 0,
                          writeConfigModifyFault, 0};
    static SettingValues values;
    // A file that cannot be rewritten keeps its values; the answer is the same.
    if (applySettings(&table, &values) != SETTINGS_REFUSED)
        setResponse("<tptz:SetConfigurationResponse></tptz:SetConfigurationResponse>");
}
