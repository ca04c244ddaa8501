// PTZ nodes and configurations: their listings, options and changes, and
// binding a configuration into a media profile.
#include "state/shm_words.h"
#include "frame/frame.h"
#include "ptz/head.h"
#include "frame/request_values.h"
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
#define ONVIF_PTZ_CONF PTZ_DIR "PTZ.conf"
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

static int panTilt() { return shmWord(PAN_TILT_WORD) > 0; }
static int zoom() { return shmWord(ZOOM_WORD) > 0; }
static int hasPTZ() { return panTilt() || zoom(); }
static int integratedDome() { return shmWord(PAN_TILT_WORD) == 2 && shmWord(ZOOM_WORD) == 6; }

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
    } else if (shmWord(IO_LAYOUT_WORD) == 1 && shmWord(PAN_TILT_WORD) == 1 && strcmp(value, "NONE") != 0 &&
               rs485SwitchOn()) {
        int model = shmWord(MODEL_CODE_WORD);
        shown = model == 5 || model == 6 ? value : model == 2 ? "127" : "0";
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
            appendResponse("<tt:%s>%s</tt:%s>", key, unset ? "" : value, key);
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
    if (!requestText("tptz:NodeToken", token, 129))
        requestText("NodeToken", token, 129);
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
    writeSenderFault2("Action", "NoConfig", "The requested configuration does not exist.", detail);
}

void GetConfiguration()
{
    if (refuseWithoutPTZ(NO_PTZ_NVT))
        return;
    char token[129], fileName[160];
    if (!requestText("tptz:PTZConfigurationToken", token, 129) &&
        !requestText("tptz:ConfigurationName", token, 129) &&
        !requestText("PTZConfigurationToken", token, 129))
        requestText("tptz:ConfigurationToken", token, 129);
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
    requestText("ConfigurationToken", token, 129);
    if (!ptzFileExists(token, ".PTZConf", fileName, sizeof fileName)) {
        writeNoConfigurationFault(token);
        return;
    }
    setResponse("%s", "");
    Read_Print_ConfigurationOptions();
}

// The new values of a configuration; a value the request leaves out keeps
// the file's line.
#define MAX_SETTINGS 24
struct ConfChange {
    const char* keys[MAX_SETTINGS];
    char values[MAX_SETTINGS][130];
    int count;
};

static void setValue(ConfChange* c, const char* key, const char* value)
{
    if (c->count >= MAX_SETTINGS)
        return;
    c->keys[c->count] = key;
    snprintf(c->values[c->count], sizeof c->values[0], "%s", value);
    ++c->count;
}

// A number as stored: checked, converted through single precision, six decimals.
static int setNumber(ConfChange* c, const char* key, const char* text)
{
    if (strlen(text) >= 33 || CheckFloat(text) || !text[0])
        return 1;
    char stored[64];
    snprintf(stored, sizeof stored, "%f", (double)(float)strtod(text, 0));
    setValue(c, key, stored);
    return 0;
}

static int rowOf(const char* name, int start)
{
    return requestRowOf(name, start);
}

// Text of the first element named name at or after row start, inside the
// rows before end; 0 when none.
static const char* textAfter(const char* name, int start, int end)
{
    int row = start < 0 ? -1 : rowOf(name, start);
    const char* text = requestRowText(row);
    return row >= 0 && (end < 0 || row < end) ? (text ? text : "(null)") : 0;
}

// The limits of one kind: its URI and the X (and Y) ranges.
static int readLimits(ConfChange* c, const char* element, const char* prefix, int withY, int end)
{
    int row = rowOf(element, 0);
    if (row < 0)
        return 0;
    static char keys[2][6][64];
    char (*k)[64] = keys[withY ? 0 : 1];
    snprintf(k[0], 64, "%s.Range.URI", prefix);
    snprintf(k[1], 64, "%s.Range.XRange.Min", prefix);
    snprintf(k[2], 64, "%s.Range.XRange.Max", prefix);
    snprintf(k[3], 64, "%s.Range.YRange.Min", prefix);
    snprintf(k[4], 64, "%s.Range.YRange.Max", prefix);
    const char* uri = textAfter("URI", row, end);
    if (uri) {
        if (hasLineBreak(uri) || strlen(uri) > 128)
            return 1;
        if (!withY && strcmp(uri, ZOOM_POSITION) != 0)
            return 1;
        setValue(c, k[0], uri);
    }
    int xRow = rowOf("XRange", row), yRow = rowOf("YRange", row);
    const char* values[4] = {textAfter("Min", xRow, end), textAfter("Max", xRow, end),
                             withY ? textAfter("Min", yRow, end) : 0, withY ? textAfter("Max", yRow, end) : 0};
    for (int i = 0; i < 4; ++i)
        if (values[i] && setNumber(c, k[i + 1], values[i]))
            return 1;
    return 0;
}

static int readSpeed(ConfChange* c)
{
    if (!requestHas("DefaultPTZSpeed"))
        return 0;
    char text[130];
    int hasPanTilt = rowOf("PanTilt", 0) >= 0, hasZoom = rowOf("Zoom", 0) >= 0;
    int n = 1;
    if (hasPanTilt && panTilt()) {
        if (requestAttribute("x", 0, text, 129) && setNumber(c, "DefaultPTZSpeed.PanTilt.x", text))
            return 1;
        if (requestAttribute("y", 0, text, 129) && setNumber(c, "DefaultPTZSpeed.PanTilt.y", text))
            return 1;
        if (requestAttribute("space", 0, text, 129)) {
            if (strcmp(text, PT_SPEED) != 0)
                return 1;
            setValue(c, "DefaultPTZSpeed.PanTilt.space", text);
        }
        n = 2;
    } else if (hasPanTilt) {
        n = 2;
    }
    if (hasZoom && zoom()) {
        if (requestAttribute("x", n - 1, text, 129) && setNumber(c, "DefaultPTZSpeed.Zoom.x", text))
            return 1;
        if (requestAttribute("space", n - 1, text, 129)) {
            if (strcmp(text, ZOOM_SPEED) != 0)
                return 1;
            setValue(c, "DefaultPTZSpeed.Zoom.space", text);
        }
    }
    return 0;
}

static int replaceConfLine(const char* line, FILE* out, void* ctx)
{
    ConfChange* c = (ConfChange*)ctx;
    if (!line)
        return 0;
    for (int i = 0; i < c->count; ++i) {
        size_t n = strlen(c->keys[i]);
        if (strncmp(line, c->keys[i], n) == 0 && line[n] == '=') {
            fprintf(out, "%s=%s\n", c->keys[i], c->values[i]);
            return 1;
        }
    }
    return 0;
}

static void writeConfigModifyFault()
{
    writeSenderFault2("InvalidArgVal", "ConfigModify", "The configuration parameters are not possible to set.",
                      "The configuration parameters are not possible to set.");
}

void SetConfiguration()
{
    if (refuseWithoutPTZ(NO_PTZ_SET))
        return;
    char token[17], fileName[64];
    requestAttribute("token", 0, token, 17);
    formatChecked(fileName, sizeof fileName, "%s.PTZConf", token);
    int listed = isListedConfiguration(ONVIF_PTZ_CONF, fileName, "SetConfiguration", "ONVIF_PTZ_CONF");
    if (!listed || !isSafeFileToken(token)) {
        writeSenderFault2("InvalidArgVal", "NoConfig", "The configuration does not exist.",
                          "The configuration does not exist.");
        return;
    }
    ConfChange c;
    memset(&c, 0, sizeof c);
    static const struct { const char* element; const char* key; int length; int checkChar; } plain[] = {
        {"tt:Name", "Name", 64, 1}, {"tt:UseCount", "UseCount", 16, 1}, {"tt:NodeToken", "NodeToken", 16, 1},
        {"tt:DefaultAbsolutePantTiltPositionSpace", "DefaultAbsolutePantTiltPositionSpace", 128, 0},
        {"tt:DefaultAbsoluteZoomPositionSpace", "DefaultAbsoluteZoomPositionSpace", 128, 0},
        {"tt:DefaultRelativePanTiltTranslationSpace", "DefaultRelativePanTiltTranslationSpace", 128, 0},
        {"tt:DefaultRelativeZoomTranslationSpace", "DefaultRelativeZoomTranslationSpace", 128, 0},
        {"tt:DefaultContinuousPanTiltVelocitySpace", "DefaultContinuousPanTiltVelocitySpace", 128, 0},
        {"tt:DefaultContinuousZoomVelocitySpace", "DefaultContinuousZoomVelocitySpace", 128, 0},
        {"tt:DefaultPTZTimeout", "DefaultPTZTimeout", 16, 1},
    };
    static const char* const domeSpaces[] = {PT_POSITION, ZOOM_POSITION, PT_TRANSLATION, ZOOM_TRANSLATION,
                                             PT_VELOCITY, ZOOM_VELOCITY};
    int bad = 0;
    for (size_t i = 0; i < sizeof plain / sizeof *plain && !bad; ++i) {
        char value[130];
        if (!requestText(plain[i].element, value, (plain[i].length) + 1))
            continue;
        bad = hasLineBreak(value) || (plain[i].checkChar && CheckChar(value)) ||
              (i >= 3 && i <= 8 && integratedDome() && strcmp(value, domeSpaces[i - 3]) != 0);
        setValue(&c, plain[i].key, value);
    }
    char force[17];
    if (!bad && requestText("tt:ForcePersistence", force, 17))
        bad = CheckBool(force);
    int zoomLimitsRow = rowOf("ZoomLimits", 0);
    bad = bad || readSpeed(&c) || (panTilt() && readLimits(&c, "PanTiltLimits", "PanTiltLimits", 1, zoomLimitsRow)) ||
          (zoom() && readLimits(&c, "ZoomLimits", "ZoomLimits", 0, -1));
    if (bad) {
        writeConfigModifyFault();
        return;
    }
    char path[128];
    formatChecked(path, sizeof path, PTZ_DIR "%s", fileName);
    if (rewriteFileThroughWorkCopy(path, replaceConfLine, &c) == WORK_COPY_FAILED)
        return answerStoreFailure(path);
    setResponse("<tptz:SetConfigurationResponse></tptz:SetConfigurationResponse>");
}

// Finds the profile of the request for the binding actions; 0 after a fault.
static int bindingProfile(char* fileName, size_t n)
{
    char profile[PROFILE_TOKEN_MAX + 1];
    requestText("trt:ProfileToken", profile, PROFILE_TOKEN_MAX + 1);
    if (findProfile(profile, fileName, n) != PROFILE_FOUND) {
        writeNoProfileFault();
        return 0;
    }
    return 1;
}

void AddPTZConfiguration()
{
    if (refuseWithoutPTZ(NO_PTZ_NVT))
        return;
    char fileName[64], config[PROFILE_TOKEN_MAX + 1], configFile[64];
    if (!bindingProfile(fileName, sizeof fileName))
        return;
    requestText("trt:ConfigurationToken", config, PROFILE_TOKEN_MAX + 1);
    formatChecked(configFile, sizeof configFile, "%s.PTZConf", config);
    if (!isSafeFileToken(config) || !isListedConfiguration(ONVIF_PTZ_CONF, configFile, "AddPTZConfiguration", "ONVIF_PTZ_CONF")) {
        writeSenderFault2("InvalidArgVal", "NoConfig", "PTZConfiguration does not exist",
                          "The PTZConfiguration indicated by the ConfigurationToken does not exist");
        return;
    }
    rewriteProfileField(fileName, "PTZ=", config, 0, 0);
    setResponse("<trt:AddPTZConfigurationResponse></trt:AddPTZConfigurationResponse>");
}

void RemovePTZConfiguration()
{
    if (refuseWithoutPTZ(NO_PTZ_NVT))
        return;
    char fileName[64], bound[CONFIG_TOKEN_MAX + 1] = "NONE";
    if (!bindingProfile(fileName, sizeof fileName))
        return;
    readProfileField(fileName, "PTZ=", bound, sizeof bound);
    if (strcmp(bound, "NONE") == 0) {
        writeSenderFault2("InvalidArgVal", "NoConfig", "There exists no PTZ configuration in the media profile",
                          "There exists no PTZ configuration in the media profile");
        return;
    }
    rewriteProfileField(fileName, "PTZ=", "NONE", 0, 0);
    setResponse("<trt:RemovePTZConfigurationResponse></trt:RemovePTZConfigurationResponse>");
}
