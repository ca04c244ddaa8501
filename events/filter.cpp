// The subscription filter: a topic expression and a message content reduced
// to the one filter code the camera's event process keeps in a slot.
#include "events/events.h"
#include "frame/request_values.h"
#include "state/mode.h"

#include <stdio.h>
#include <string.h>
#include <stdlib.h>

// One term of a message content; nonzero when the term is refused.
int check_msg_content(const char* text, int length)
{
    char term[257], function[257], rest[257];
    memset(function, 0, sizeof function);
    memset(rest, 0, sizeof rest);
    snprintf(term, sizeof term, "%.*s", length < 0 ? 0 : length, text);
    // A term without the item part is no item test at all.
    if (sscanf(term, "%256[^(](//tt:SimpleItem[%256s", function, rest) != 2)
        return 1;
    if (strcmp(function, "boolean") != 0)
        return 1;
    char name[257] = "", value[257] = "";
    sscanf(rest, "@Name=\"%256s", name);
    sscanf(rest, "@Value=\"%256s", value);
    return 0;
}

// Checks each term of a content cut at every separator; 0 when all pass.
static int checkContentTerms(const char* content, const char* separator)
{
    const char* p = content;
    size_t sepLen = strlen(separator);
    for (;;) {
        const char* next = strstr(p, separator);
        int length = next ? (int)(next - p) : (int)strlen(p);
        if (check_msg_content(p, length))
            return 1;
        if (!next)
            return 0;
        p = next + sepLen;
    }
}

static int contentAloneAccepted(const char* content)
{
    if (strstr(content, "or "))
        return !checkContentTerms(content, "or ");
    if (strstr(content, "and "))
        return !checkContentTerms(content, "and ");
    return 1;
}

// With a known topic root, only a content that begins with the word
// "boolean" (or names the item State) passes.
static int contentWithTopicAccepted(const char* content, int doubledParenthesis)
{
    char word[257] = "", name[257] = "";
    sscanf(content, doubledParenthesis ? "%256s((//tns1:SimpleItem[@Name=\"%256[^\"]\"])"
                                       : "%256s(//tns1:SimpleItem[@Name=\"%256[^\"]\"])", word, name);
    return strcmp(word, "boolean") == 0 || strcmp(name, "State") == 0;
}

struct TopicRow {
    const char* root;
    const char* first;   // remainder substring of the first source
    const char* second;  // remainder substring of the second source
    int firstCode, secondCode, bothCode, emptyCode;
};

static const TopicRow ONVIF_TOPICS[] = {
    {"tns1:VideoSource", "MotionAlarm", "TamperingDetection", FILTER_MOTION, FILTER_TAMPERING, FILTER_VIDEO_SOURCE,
     FILTER_VIDEO_SOURCE_ROOT},
    {"tns1:Device", "Trigger/BinaryInput", "Trigger/Relay", FILTER_INPUTS, FILTER_RELAYS, FILTER_DEVICE,
     FILTER_DEVICE_ROOT},
};
static const TopicRow VENDOR_TOPICS[] = {
    {"tns1:VideoAnalytics", "tnsaxis:MotionDetection", "TamperingDetection", FILTER_MOTION, FILTER_TAMPERING,
     FILTER_VIDEO_SOURCE, FILTER_VIDEO_SOURCE_ROOT},
    {"tns1:Device", "tnsiv:BinaryInput", "tnsiv:Relay", FILTER_INPUTS, FILTER_RELAYS, FILTER_DEVICE,
     FILTER_DEVICE_ROOT},
};

static const TopicRow STANDARD_TOPICS[] = {
    {"tns1:VideoSource", "MotionAlarm", "GlobalSceneChange", FILTER_MOTION, FILTER_TAMPERING, FILTER_VIDEO_SOURCE,
     FILTER_VIDEO_SOURCE_ROOT},
    {"tns1:Device", "Trigger/DigitalInput", "Trigger/Relay", FILTER_INPUTS, FILTER_RELAYS, FILTER_DEVICE,
     FILTER_DEVICE_ROOT},
};

// One alternative of a topic expression in the standard's names, as the
// event kinds it takes (filterTakes bits); 0 when it names none. A subtree
// ("//.") or the trigger node alone takes its whole root.
static unsigned standardTopicKinds(const char* topic, size_t length)
{
    char root[257] = "", rest[257] = "", alternative[257];
    snprintf(alternative, sizeof alternative, "%.*s", (int)length, topic);
    sscanf(alternative, " %256[^/]/%256[^ ]", root, rest);
    size_t n = strlen(rest);
    while (n > 0 && (rest[n - 1] == '.' || rest[n - 1] == '/' || rest[n - 1] == '*'))
        rest[--n] = 0;
    for (const TopicRow& row : STANDARD_TOPICS) {
        if (strcmp(root, row.root) != 0)
            continue;
        int first = strstr(rest, row.first) != 0, second = strstr(rest, row.second) != 0;
        int code = !rest[0] || strcmp(rest, "Trigger") == 0 ? row.emptyCode
                   : first && second ? row.bothCode : first ? row.firstCode : second ? row.secondCode : -1;
        if (code < 0)
            return 0;
        unsigned kinds = 0;
        for (int kind = EVENT_MOTION; kind <= EVENT_RELAY; ++kind)
            kinds |= filterTakes(code, (EventKind)kind) << kind;
        return kinds;
    }
    return 0;
}

unsigned standardTopicExpressionKinds(const char* topic)
{
    unsigned kinds = 0;
    for (const char* p = topic;;) {
        size_t length = strcspn(p, "|");
        unsigned one = standardTopicKinds(p, length);
        if (!one)
            return 0;
        kinds |= one;
        if (!p[length])
            return kinds;
        p += length + 1;
    }
}

// The standard's topic expression reduced to the narrowest code that takes
// every kind named.
static int classifyStandardTopic(const char* topic, int* code)
{
    unsigned kinds = standardTopicExpressionKinds(topic);
    if (!kinds)
        return FILTER_BAD_TOPIC;
    static const struct { unsigned kinds; int code; } CODES[] = {
        {1u << EVENT_MOTION, FILTER_MOTION}, {1u << EVENT_TAMPERING, FILTER_TAMPERING},
        {(1u << EVENT_MOTION) | (1u << EVENT_TAMPERING), FILTER_VIDEO_SOURCE},
        {1u << EVENT_INPUT, FILTER_INPUTS}, {1u << EVENT_RELAY, FILTER_RELAYS},
        {(1u << EVENT_INPUT) | (1u << EVENT_RELAY), FILTER_DEVICE},
    };
    *code = FILTER_NONE;
    for (const auto& c : CODES)
        if (c.kinds == kinds)
            *code = c.code;
    return FILTER_OK;
}

// Reduces the request's filter to one code; FILTER_BAD_* when refused. The
// analytics motion topic and the "(null)" topic are taken only where the
// camera's own topics are the ONVIF ones and it keeps several pull points.
int classifyFilter(int vendorNames, int onePullPoint, int isSubscribe, int* code)
{
    char topic[257], content[257];
    // The standard's topic names, and their unions, are longer.
    Read topicRead = requestText("wsnt:TopicExpression", topic, onvifMode() ? 257 : 65);
    Read contentRead = requestText("wsnt:MessageContent", content, (isSubscribe && !onvifMode() ? 64 : 256) + 1);
    if (topicRead == Read::Refused || contentRead == Read::Refused)
        return FILTER_REFUSED;
    int hasTopic = topicRead == Read::Value, hasContent = contentRead == Read::Value;
    if (!hasTopic && !hasContent) {
        *code = FILTER_NONE;
        return FILTER_OK;
    }
    if (onvifMode() && hasContent && !standardContentValid(content))
        return FILTER_BAD_CONTENT;
    if (!hasTopic) {
        *code = FILTER_CONTENT_ONLY;
        if (onvifMode())
            return FILTER_OK;
        return contentAloneAccepted(content) ? FILTER_OK : FILTER_BAD_CONTENT;
    }
    if (onvifMode()) {
        return classifyStandardTopic(topic, code);
    }
    char root[65] = "", rest[65] = "";
    sscanf(topic, "%64[^/]/%64s", root, rest);
    const TopicRow* rows = vendorNames ? VENDOR_TOPICS : ONVIF_TOPICS;
    for (int i = 0; i < 2; ++i) {
        const TopicRow& row = rows[i];
        if (strcmp(root, row.root) != 0)
            continue;
        int first = strstr(rest, row.first) != 0, second = strstr(rest, row.second) != 0;
        if (!rest[0])
            *code = row.emptyCode;
        else if (first && second)
            *code = row.bothCode;
        else if (first)
            *code = row.firstCode;
        else if (second)
            *code = row.secondCode;
        else
            return FILTER_BAD_TOPIC;
        return !hasContent || contentWithTopicAccepted(content, isSubscribe) ? FILTER_OK : FILTER_BAD_CONTENT;
    }
    int defaultVariant = !vendorNames && !onePullPoint;
    if (defaultVariant && strcmp(root, "tns1:VideoAnalytics") == 0) {
        if (!strstr(rest, "tnsavg:MotionDetection"))
            return FILTER_BAD_TOPIC;
        *code = FILTER_ANALYTICS_MOTION;
        return !hasContent || contentWithTopicAccepted(content, isSubscribe) ? FILTER_OK : FILTER_BAD_CONTENT;
    }
    if (defaultVariant && strstr(topic, "(null)")) {
        *code = FILTER_CONTENT_ONLY;
        return !hasContent || contentAloneAccepted(content) ? FILTER_OK : FILTER_BAD_CONTENT;
    }
    return FILTER_BAD_TOPIC;
}

int refuseFilter(int result)
{
    if (result == FILTER_OK)
        return 0;
    if (result == FILTER_REFUSED)
        return 1;
    writeInvalidFilterFault("Argument Value Invalid", "The Subscribe message contained an unsupported filter",
                            result == FILTER_BAD_TOPIC ? "wsnt:TopicExpression" : "wsnt:MessageContent");
    return 1;
}

// --- Message content filters in the ONVIF mode ---
// The item filter dialect: boolean(//tt:SimpleItem[@Name="..." and
// @Value="..."]) terms joined by "and" and "or" ("and" binds closer). The
// camera keeps the text beside the subscription and tests each message.

int standardContentValid(const char* content)
{
    int parens = 0, brackets = 0;
    for (const char* p = content; *p; ++p) {
        parens += *p == '(' ? 1 : *p == ')' ? -1 : 0;
        brackets += *p == '[' ? 1 : *p == ']' ? -1 : 0;
        if (parens < 0 || brackets < 0)
            return 0;
    }
    return parens == 0 && brackets == 0 && strstr(content, "boolean(") && strstr(content, "Item[");
}

// The value of name="..." in the term, or an empty text.
static void quotedAttribute(const char* term, size_t length, const char* name, char* out, size_t n)
{
    out[0] = 0;
    size_t nameLength = strlen(name);
    for (const char* p = term; p + nameLength < term + length; ++p) {
        if (strncmp(p, name, nameLength) != 0 || p[nameLength] != '"')
            continue;
        const char* value = p + nameLength + 1;
        const char* end = (const char*)memchr(value, '"', term + length - value);
        if (end)
            snprintf(out, n, "%.*s", (int)(end - value), value);
        return;
    }
}

// One item test: some item of the message has the name and value given.
static int termTakes(const char* term, size_t length, const char* message)
{
    char name[128], value[128], wanted[300];
    quotedAttribute(term, length, "@Name=", name, sizeof name);
    quotedAttribute(term, length, "@Value=", value, sizeof value);
    if (name[0] && value[0])
        snprintf(wanted, sizeof wanted, "Name=\"%s\" Value=\"%s\"", name, value);
    else if (name[0])
        snprintf(wanted, sizeof wanted, "Name=\"%s\"", name);
    else if (value[0])
        snprintf(wanted, sizeof wanted, "Value=\"%s\"", value);
    else
        return 1;
    return strstr(message, wanted) != 0;
}

// The next top-level "and"/"or" word from p, or the end of the text.
static const char* nextJoin(const char* p, const char** word)
{
    int depth = 0;
    for (; *p; ++p) {
        depth += (*p == '(' || *p == '[') ? 1 : (*p == ')' || *p == ']') ? -1 : 0;
        if (depth == 0 && (strncmp(p, " and ", 5) == 0 || strncmp(p, " or ", 4) == 0)) {
            *word = p[1] == 'a' ? "and" : "or";
            return p;
        }
    }
    *word = 0;
    return p;
}

int contentTakes(const char* content, const char* message)
{
    int any = 0, all = 1;
    for (const char* p = content;;) {
        const char* word;
        const char* end = nextJoin(p, &word);
        all = all && termTakes(p, end - p, message);
        if (!word || strcmp(word, "or") == 0) {
            any = any || all;
            all = 1;
        }
        if (!word)
            return any;
        p = end + strlen(word) + 2;
    }
}
