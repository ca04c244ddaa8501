// The subscription filter: a topic expression and a message content reduced
// to the one filter code the camera's event process keeps in a slot.
#include "events/events.h"
#include "frame/request_values.h"

#include <stdio.h>
#include <string.h>

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

// Reduces the request's filter to one code; FILTER_BAD_* when refused. The
// analytics motion topic and the "(null)" topic are taken only where the
// camera's own topics are the ONVIF ones and it keeps several pull points.
int classifyFilter(int vendorNames, int onePullPoint, int isSubscribe, int* code)
{
    char topic[65], content[257];
    Read topicRead = requestText("wsnt:TopicExpression", topic, 65);
    Read contentRead = requestText("wsnt:MessageContent", content, (isSubscribe ? 64 : 256) + 1);
    if (topicRead == Read::Refused || contentRead == Read::Refused)
        return FILTER_REFUSED;
    int hasTopic = topicRead == Read::Value, hasContent = contentRead == Read::Value;
    if (!hasTopic && !hasContent) {
        *code = FILTER_NONE;
        return FILTER_OK;
    }
    if (!hasTopic) {
        *code = FILTER_CONTENT_ONLY;
        return contentAloneAccepted(content) ? FILTER_OK : FILTER_BAD_CONTENT;
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
