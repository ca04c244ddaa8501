// The one settings-rule engine: a service describes each value it may set as
// a row; the engine reads every row's value, checks them all, and only then
// rewrites the settings file once and tells the settings program once.
#ifndef STATE_SETTING_RULES_H
#define STATE_SETTING_RULES_H

#include <stddef.h>

#define SETTING_VALUE_SIZE 256
#define MAX_SETTING_ROWS 32

// What the reader found for a row. Refused: the value is there but cannot be
// taken (too long for its buffer, not of its type); the engine then writes the
// table's refusal and nothing else happens.
enum class SettingRead { Refused, Absent, Value };

// How a stored value is passed to the settings program.
enum SettingForm {
    FORM_AS_GIVEN,
    FORM_YES_NO,          // a flag as the camera's parameters write one
    FORM_BOOT_PROTOCOL,   // the DHCP flag as the network file's boot protocol: "dhcp" or "none"
    FORM_PREFIX_AS_MASK   // a prefix length as a dotted subnet mask
};

enum SettingRowFlags {
    SETTING_REQUIRED = 1,  // the reader refuses the row's absence where its section is given
    SETTING_RESTARTS = 2   // a changed value takes a restart (of the stream, of the network)
};

struct SettingRow;

// 0 accepts the value; may rewrite it in place (within SETTING_VALUE_SIZE) to
// the form it is stored in. bound is the text of the row's option (see
// SettingTable::optionText), "" when the row has none; ctx is the table's.
typedef int (*SettingCheck)(char* value, const SettingRow* row, const char* bound, void* ctx);

struct SettingRow {
    const char* path;       // where the value lies in the request; the table's reader knows the form
    const char* key;        // the settings file key, without '='; 0: only checked
    SettingCheck check;
    long min, max;          // the checker's bounds (a range, a length, an index of the service's description)
    const char* option;     // a named bound: resolved by the table's optionText, or the bound itself
    const char* parameter;  // the settings program's parameter after the table's prefix; 0: none
    SettingForm form;
    unsigned flags;         // SettingRowFlags
    const char* refusal;    // the refusal's second subcode, for tables whose refusal names one
};

enum SettingTableFlags {
    SETTINGS_LOAD_FIRST = 1,       // the file's values are read before the request's (a missing file refuses first)
    SETTINGS_PASS_UNCHANGED = 2,   // every given value is written and passed on, changed or not
    SETTINGS_ALWAYS_REWRITE = 4,   // the file is rewritten even when the request gives nothing
    SETTINGS_KEYS_MUST_EXIST = 8,  // a value whose key has no line gives the whole rewrite up
    SETTINGS_OTHER_LINES_AS_FORMATTED = 16  // lines of no row's key pass as the camera's formatter copies them
};

struct SettingValues;
struct SettingTable {
    const SettingRow* rows;
    int count;
    const char* path;             // the settings file
    const char* parameterPrefix;  // before each parameter ("Video.Ch1."); 0: none
    unsigned flags;               // SettingTableFlags
    size_t valueSize;             // the read buffer: a longer value is refused; 0: SETTING_VALUE_SIZE
    size_t querySize;             // the settings program's query at most; 0: 2048
    // Reads one row's value from the request.
    SettingRead (*read)(const SettingRow* row, char* buf, size_t n, void* ctx);
    // The text of a row's option; 0 refuses the value. 0: the option is the text.
    int (*optionText)(const SettingRow* row, char* out, size_t n, void* ctx);
    // Checks between values once each passed its row; writes its own fault and
    // returns 0 to refuse. It may load the stored values (settingStored) first.
    int (*agree)(SettingValues* v, void* ctx);
    // Writes the refusal of a row's value.
    void (*refuse)(const SettingRow* row, void* ctx);
    void* ctx;
};

// One request's values, row by row: the stored value (when loaded), the
// resulting value (stored overlaid with the request's), and whether given.
struct SettingValues {
    const SettingTable* table;
    char stored[MAX_SETTING_ROWS][SETTING_VALUE_SIZE];
    char value[MAX_SETTING_ROWS][SETTING_VALUE_SIZE];
    int given[MAX_SETTING_ROWS];
    int restart;  // a given row flagged SETTING_RESTARTS changed
};

// The resulting value of a file key ("" when no row has it), whether the
// request gave it, and storing a value read elsewhere for a key (stored and,
// when not given, resulting).
const char* settingValue(const SettingValues* v, const char* key);
int settingGiven(const SettingValues* v, const char* key);
void settingStored(SettingValues* v, const char* key, const char* value);

enum SettingOutcome {
    SETTINGS_DONE,
    SETTINGS_REFUSED,        // the refusal is written
    SETTINGS_NOT_LOADED,     // SETTINGS_LOAD_FIRST and the file is missing
    SETTINGS_QUERY_TOO_LONG,
    SETTINGS_NOT_WRITTEN,    // the file is missing
    SETTINGS_STORE_FAILED,   // the work copy could not be made or stored: the file is unchanged
    SETTINGS_KEY_MISSING     // SETTINGS_KEYS_MUST_EXIST and a key has no line
};

// Reads every row, checks them all, agrees, then writes and runs; nothing is
// written or run unless every value passed. v is the caller's (it is large).
SettingOutcome applySettings(const SettingTable* t, SettingValues* v);

#endif
