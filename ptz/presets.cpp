// Presets and the home position. The camera's PTZ processes keep the
// presets; this service reads their stores and asks the PTZ program to
// store, recall or delete one.
#include "ptz/ptzmove.h"
#include "state/mode.h"
#include "frame/frame.h"
#include "frame/request_values.h"
#include "frame/handlers.h"
#include "frame/xmlsearch.h"
#include "state/checkers.h"
#include "state/config.h"
#include "state/paths.h"
#include "state/shm.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define INTEGRATED_STORE "/etc/dynamic/ptz.conf"
#define RS485_STORE_MODEL2 "/etc/sysconfig/presetlist.conf"
#define RS485_STORE "/etc/sysconfig/preset_ptz.conf"
#define MAX_PRESETS 255

enum PresetStore { STORE_NONE, STORE_INTEGRATED, STORE_RS485 };

static PresetStore presetStore()
{
    if (modelHas(Cap::IoPtzHead))
        return STORE_INTEGRATED;
    if (modelHas(Cap::PtzRs485Head))
        return STORE_RS485;
    return STORE_NONE;
}

static const char* rs485StoreFile()
{
    return modelHas(Cap::PtzSmallPresetStore) ? RS485_STORE_MODEL2 : RS485_STORE;
}

static int presetLimit() { return modelValue(Cap::PtzPresetLimit); }

// The checks every preset action starts with; 0 after a fault.
static int presetChecks(const char* func)
{
    static const char* const keys[] = {"ProfileToken", 0};
    if (refuseWithoutPtzMotors())
        return 0;
    if (presetStore() == STORE_NONE) {
        writePtzNotSupportedFault();
        return 0;
    }
    return ptzProfileCheck(keys, 64, 0, func);
}

// One preset of a store.
struct Preset {
    int number;
    double pan, tilt, zoom;
    char name[70];
};

// Calls visit for every preset in store order; returns 0 when the store is missing.
static int eachPreset(int (*visit)(const Preset&, void*), void* ctx)
{
    PresetStore store = presetStore();
    FILE* f = fopenRoot(store == STORE_INTEGRATED ? INTEGRATED_STORE : rs485StoreFile(), "r");
    if (!f)
        return 0;
    char line[256];
    Preset p;
    int pending = 0;
    while (fgets(line, sizeof line, f)) {
        if (store == STORE_RS485) {
            int slot = 0;
            char state[16] = "";
            if (sscanf(line, "root.preset.position%d.set=%15s", &slot, state) == 2 && strcmp(state, "yes") == 0) {
                memset(&p, 0, sizeof p);
                p.number = slot;
                // The head stores no names: a preset is called by its number.
                snprintf(p.name, sizeof p.name, "Preset%d", slot);
                if (visit(p, ctx))
                    break;
            }
            continue;
        }
        char number[16] = "", pan[32] = "", tilt[32] = "", zoom[32] = "", name[70] = "";
        if (sscanf(line, "root.PTZ.PresetPos.P%15[^.].Pos=%31[^,],%31[^,],%31[^,\n]", number, pan, tilt, zoom) == 4) {
            memset(&p, 0, sizeof p);
            p.number = atoi(number);
            p.pan = atof(pan);
            p.tilt = atof(tilt);
            p.zoom = atof(zoom);
            pending = 1;
        } else if (pending && sscanf(line, "root.PTZ.PresetPos.P%15[^.].Label=%69s", number, name) == 2) {
            snprintf(p.name, sizeof p.name, "%s", name);
            pending = 0;
            if (visit(p, ctx))
                break;
        }
    }
    fclose(f);
    return 1;
}

struct PresetQuery {
    int number;          // the preset looked for
    const char* name;    // a name looked for among the others
    int found, nameTaken, count, firstFree;
    unsigned char used[MAX_PRESETS + 2];
};

static int notePreset(const Preset& p, void* ctx)
{
    PresetQuery* q = (PresetQuery*)ctx;
    ++q->count;
    if (p.number == q->number)
        q->found = 1;
    else if (q->name && q->name[0] && strcmp(p.name, q->name) == 0)
        q->nameTaken = 1;
    if (p.number >= 1 && p.number <= MAX_PRESETS)
        q->used[p.number] = 1;
    return 0;
}

static void surveyPresets(PresetQuery* q)
{
    eachPreset(notePreset, q);
    q->firstFree = 0;
    for (int n = 1; n <= MAX_PRESETS && !q->firstFree; ++n)
        if (!q->used[n])
            q->firstFree = n;
}

// The RS-485 store's first free slot ("no"), or 0.
static int firstFreeRs485Slot()
{
    FILE* f = fopenRoot(rs485StoreFile(), "r");
    if (!f)
        return 0;
    char line[256];
    int slot = 0, found = 0;
    char state[16];
    while (!found && fgets(line, sizeof line, f))
        found = sscanf(line, "root.preset.position%d.set=%15s", &slot, state) == 2 && strncmp(state, "no", 2) == 0;
    fclose(f);
    return found ? slot : 0;
}

static void writeTokenNotIntegerFault()
{
    // No preset has such a token: the standard names that fault.
    if (onvifMode())
        writeSenderFault2("InvalidArgVal", "NoToken", "The requested PresetToken does not exist.",
                          "The requested preset token must be integer.");
    else
        writeSenderFault("ter:InvalidArgVal", "The requested preset token must be integer.");
}

// A preset token as a number: digits only, and a slot a store can have.
static int presetNumber(const char* token, int* number)
{
    if (!token[0] || CheckInt(token) || strlen(token) > 4)
        return 0;
    *number = atoi(token);
    return 1;
}

void SetPreset()
{
    if (!presetChecks("SetPreset"))
        return;
    char token[17], name[70];
    Read tokenRead = requestText("tptz:PresetToken", token, 17);
    Read nameRead = requestText("tptz:PresetName", name, 67);
    if (tokenRead == Read::Refused || nameRead == Read::Refused)
        return;
    int hasToken = tokenRead == Read::Value && strcmp(token, "(null)") != 0;
    int hasName = nameRead == Read::Value && strcmp(name, "(null)") != 0;
    int number = 0;
    if (hasToken && !presetNumber(token, &number))
        return writeTokenNotIntegerFault();
    PresetQuery q;
    memset(&q, 0, sizeof q);
    q.number = number;
    q.name = hasName ? name : 0;
    surveyPresets(&q);
    if (!hasToken)
        number = presetStore() == STORE_RS485 ? firstFreeRs485Slot() : q.firstFree;
    int isNew = !hasToken || !q.found;
    if ((isNew && q.count >= presetLimit()) || number < 1 || number > presetLimit()) {
        writeSenderFault("ter:TooManyPresets", "Maximum number of Presets reached.");
        return;
    }
    if (hasName && CheckPresetname(name)) {
        writeSenderFault("ter:InvalidPresetName", "The PresetName is either too long or contains invalid characters.");
        return;
    }
    if (q.nameTaken) {
        writeSenderFault("ter:PresetExist", "The requested name already exist for another preset.");
        return;
    }
    char value[100];
    if (hasName) {
        // The name goes to the PTZ program as it is, as one value.
        int n = snprintf(value, sizeof value, "%d,%s", number, name);
        if (n < 0 || (size_t)n >= sizeof value) {
            actionNotServed();  // never a cut name
            return;
        }
        runPtzCommand("com/ptz.cgi", "setserverpresetname", "setserverpresetname", value);
    } else {
        snprintf(value, sizeof value, "%d", number);
        runPtzCommand("com/ptz.cgi", "setserverpresetno", "setserverpresetno", value);
    }
    setResponse("<tptz:SetPresetResponse><tptz:PresetToken>%d</tptz:PresetToken></tptz:SetPresetResponse>", number);
}

static int listPreset(const Preset& p, void*)
{
    const char* name = p.name;
    if (presetStore() == STORE_RS485) {
        appendResponse("<tptz:Preset token=\"%d\"><tt:Name>%s</tt:Name></tptz:Preset>", p.number, name);
        return 0;
    }
    double x = p.pan / 180;
    if (x > 1)
        x -= 2;  // past 180 degrees the head is on the negative side
    if (p.pan == -179)
        x = -1.0;  // stored for -180, which the head cannot reach
    int factor = zoomModuleFactor(1);
    appendResponse("<tptz:Preset token=\"%d\"><tt:Name>%s</tt:Name><tt:PTZPosition>"
                   "<tt:PanTilt space=\"" PT_POSITION_SPACE "\" y=\"%.1f\" x=\"%.1f\"></tt:PanTilt>"
                   "<tt:Zoom space=\"" ZOOM_POSITION_SPACE "\" x=\"%.1f\"></tt:Zoom></tt:PTZPosition></tptz:Preset>",
                   p.number, name, (p.tilt - 45) / 45, x, factor ? p.zoom / factor : 0.0);
    return 0;
}

void GetPresets()
{
    if (!presetChecks("GetPresets"))
        return;
    setResponse("<tptz:GetPresetsResponse>");
    eachPreset(listPreset, 0);
    appendResponse("</tptz:GetPresetsResponse>");
}

// Looks the request's token up; writes the fault and returns 0 when it names no preset.
static int existingPreset(int length, int withFullStop, int* number)
{
    char token[33];
    if (requestText("tptz:PresetToken", token, length + 1) == Read::Refused)
        return 0;
    if (!presetNumber(token, number)) {
        writeTokenNotIntegerFault();
        return 0;
    }
    PresetQuery q;
    memset(&q, 0, sizeof q);
    q.number = *number;
    surveyPresets(&q);
    if (q.found)
        return 1;
    char detail[128];
    if (withFullStop) {
        writeSenderFault2("InvalidArgVal", "NoToken", "The requested PresetToken does not exist.",
                          "The requested PresetToken does not exist.");
    } else {
        snprintf(detail, sizeof detail, "The PresetToken, %s, does not exist", token);
        writeSenderFault2("InvalidArgVal", "NoToken", "The requested PresetToken does not exist", detail);
    }
    return 0;
}

void GotoPreset()
{
    int number;
    if (!presetChecks("GotoPreset") || !existingPreset(32, 1, &number))
        return;
    char value[16];
    snprintf(value, sizeof value, "%d", number);
    runPtzCommand("com/ptz.cgi", "gotoserverpresetno", "gotoserverpresetno", value);
    setResponse("<tptz:GotoPresetResponse></tptz:GotoPresetResponse>");
}

void RemovePreset()
{
    int number;
    if (!presetChecks("RemovePreset") || !existingPreset(16, 0, &number))
        return;
    char value[16];
    snprintf(value, sizeof value, "%d", number);
    runPtzCommand("com/ptz.cgi", "removeserverpresetno", "removeserverpresetno", value);
    setResponse("<tptz:RemovePresetResponse></tptz:RemovePresetResponse>");
}

void SetHomePosition()
{
    if (!presetChecks("SetHomePosition"))
        return;
    runPtzCommand("com/ptzconfig.cgi", "home", "home", "yes");
    setResponse("<tptz:SetHomePositionResponse></tptz:SetHomePositionResponse>");
}

void GotoHomePosition()
{
    if (!presetChecks("GotoHomePosition"))
        return;
    // The integrated head keeps a home of its own; an RS-485 head goes to its zero.
    if (presetStore() == STORE_INTEGRATED)
        runPtzCommand("com/ptz.cgi", "move", "move", "home");
    else
        runPtzCommand("com/ptz.cgi", "", "pan", "0", "tilt", "0", "zoom", "0");
    setResponse("<tptz:GotoHomePositionResponse></tptz:GotoHomePositionResponse>");
}
