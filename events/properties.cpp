// The event topics the camera announces, by product variant.
#include "frame/frame.h"
#include "state/shm_words.h"
#include "frame/handlers.h"
#include "state/mode.h"
#include "state/shm.h"

static void leaf(const char* element, const char* sourceName, const char* sourceType, const char* dataName,
                 const char* dataType)
{
    appendResponse("<%s wstop:topic=\"true\"><tt:MessageDescription IsProperty=\"true\"><tt:Source>"
                   "<tt:SimpleItemDescription Name=\"%s\" Type=\"%s\"></tt:SimpleItemDescription></tt:Source>"
                   "<tt:Data><tt:SimpleItemDescription Name=\"%s\" Type=\"%s\"></tt:SimpleItemDescription></tt:Data>"
                   "</tt:MessageDescription></%s>", element, sourceName, sourceType, dataName, dataType, element);
}

static void videoSourceTopics(int tampering)
{
    leaf("MotionAlarm", "VideoSourceToken", "tt:ReferenceToken", "State", "xsd:boolean");
    if (tampering)
        leaf("TamperingDetection", "VideoSourceToken", "tt:ReferenceToken", "State", "xsd:boolean");
}

static void triggerTopics()
{
    appendResponse("<tns1:Device wstop:topic=\"true\"><Trigger wstop:topic=\"true\">");
    leaf("BinaryInput", "BinaryInputToken", "tt:ReferenceToken", "State", "xsd:boolean");
    leaf("Relay", "RelayToken", "tt:ReferenceToken", "State", "xs:string");
    appendResponse("</Trigger></tns1:Device>");
}

// The standard's topics, each item with its real type; only leaves are topics.
static void standardTopics(int tampering)
{
    appendResponse("<tns1:VideoSource>");
    leaf("MotionAlarm", "Source", "tt:ReferenceToken", "State", "xsd:boolean");
    if (tampering) {
        appendResponse("<GlobalSceneChange>");
        leaf("ImagingService", "Source", "tt:ReferenceToken", "State", "xsd:boolean");
        appendResponse("</GlobalSceneChange>");
    }
    appendResponse("</tns1:VideoSource><tns1:Device><Trigger>");
    leaf("DigitalInput", "InputToken", "tt:ReferenceToken", "LogicalState", "xsd:boolean");
    leaf("Relay", "RelayToken", "tt:ReferenceToken", "LogicalState", "tt:RelayLogicalState");
    appendResponse("</Trigger></tns1:Device>");
}

void GetEventProperties()
{
    int tampering = !modelHas(Cap::EventsNoTampering);
    setResponse("<tev:GetEventPropertiesResponse><tev:TopicNamespaceLocation>"
                "http://www.onvif.org/onvif/ver10/topics/topicns.xml</tev:TopicNamespaceLocation>"
                "<wsnt:FixedTopicSet>true</wsnt:FixedTopicSet><wstop:TopicSet>");
    if (onvifMode()) {
        standardTopics(tampering);
    } else if (modelHas(Cap::EventsVendorTopics)) {
        appendResponse("<tns1:VideoAnalytics wstop:topic=\"true\">");
        leaf("tnsaxis:MotionDetection", "VideoSourceToken", "tt:ReferenceToken", "motion", "xsd:boolean");
        if (tampering)
            leaf("TamperingDetection", "VideoSourceToken", "tt:ReferenceToken", "State", "xsd:boolean");
        appendResponse("</tns1:VideoAnalytics><tns1:Device wstop:topic=\"true\">");
        leaf("tnsiv:BinaryInput", "BinaryInputToken", "tt:ReferenceToken", "State", "xsd:boolean");
        leaf("tnsiv:Relay", "RelayToken", "tt:ReferenceToken", "State", "xs:string");
        appendResponse("</tns1:Device>");
    } else if (modelHas(Cap::EventsOnePullPoint)) {
        appendResponse("<tns1:VideoSource wstop:topic=\"true\">");
        videoSourceTopics(tampering);
        appendResponse("</tns1:VideoSource>");
        triggerTopics();
    } else {
        // The two roots go without the topic mark here; clients of this variant expect it so.
        appendResponse("<tns1:VideoAnalytics>");
        leaf("tnsavg:MotionDetection", "VideoSourceConfigurationToken", "tt:ReferenceToken", "MotionActive",
             "xsd:boolean");
        appendResponse("</tns1:VideoAnalytics><tns1:VideoSource>");
        videoSourceTopics(tampering);
        appendResponse("</tns1:VideoSource>");
        triggerTopics();
    }
    appendResponse("</wstop:TopicSet>"
                   "<wsnt:TopicExpressionDialect>http://www.onvif.org/ver10/tev/topicExpression/ConcreteSet"
                   "</wsnt:TopicExpressionDialect>"
                   "<wsnt:TopicExpressionDialect>http://docs.oasis-open.org/wsn/t-1/TopicExpression/Concrete"
                   "</wsnt:TopicExpressionDialect>"
                   "<tev:MessageContentFilterDialect>http://www.onvif.org/ver10/tev/messageContentFilter/ItemFilter"
                   "</tev:MessageContentFilterDialect>"
                   "<tev:MessageContentSchemaLocation>http://www.onvif.org/onvif/ver10/schema/onvif.xsd"
                   "</tev:MessageContentSchemaLocation></tev:GetEventPropertiesResponse>");
}
