// Flattening of the request into element tables, each element with its
// namespace and parent, and the walks the typed reads are built on.
#include "frame/xmlsearch.h"
#include "state/mode.h"
#include "frame/frame.h"
#include "state/paths.h"
#include "state/shm.h"

#include <stdio.h>
#include <string.h>
#include <string>
#include <tinyxml.h>

char* ElementBuffer1[XML_TABLE_ROWS];
char* ElementBuffer2[XML_TABLE_ROWS];
char* ElementBuffer3[XML_TABLE_ROWS];
char* ElementBuffer4[XML_TABLE_ROWS];
int G_xmlElementNum;
int G_xmlAttributeNum;
char* ElementBuffer1_WSSE[XML_TABLE_ROWS];
char* ElementBuffer2_WSSE[XML_TABLE_ROWS];
char* ElementBuffer3_WSSE[XML_TABLE_ROWS];
char* ElementBuffer4_WSSE[XML_TABLE_ROWS];
int G_xmlElementNum_WSSE;
int G_xmlAttributeNum_WSSE;
const char* PrimaryElementName;
int G_XML;
char G_event_service[8];
const char* ElementNamespace[XML_TABLE_ROWS];
int ElementParent[XML_TABLE_ROWS];
int AttributeElement[XML_TABLE_ROWS];
// Set when a row did not fit its table: the request is then refused whole,
// never served from a cut list.
static int tablesOverflowed;

// Key work-area sizes: keys longer than these never match.
#define KEY_LIMIT_DATA 131
#define KEY_LIMIT_ATTR 35

static const char NULL_TEXT[] = "(null)";

// The namespace declarations in scope while the body is flattened, innermost
// last. Declarations past the stack leave their prefixes unresolved (the
// prefix then stands for its namespace), never a wrong URI.
struct NamespaceDeclaration {
    const char* prefix;  // "" for the default namespace
    const char* uri;
};
static NamespaceDeclaration scope[2 * XML_TABLE_ROWS];
static int scopeCount;

// Called before the element's attribute names are cut to their local parts:
// the prefix pointer stays valid after the cut.
static void declareNamespaces(TiXmlElement* el)
{
    for (TiXmlAttribute* a = el->FirstAttribute(); a; a = a->Next()) {
        const char* name = a->Name();
        if (strncmp(name, "xmlns", 5) != 0 || (name[5] && name[5] != ':'))
            continue;
        if (scopeCount >= (int)(sizeof scope / sizeof *scope))
            return;
        scope[scopeCount].prefix = name[5] ? name + 6 : "";
        scope[scopeCount].uri = a->Value();
        ++scopeCount;
    }
}

static const char* namespaceOf(const char* prefix)
{
    for (int i = scopeCount - 1; i >= 0; --i)
        if (strcmp(scope[i].prefix, prefix) == 0)
            return scope[i].uri;
    return prefix;
}

struct Tables {
    char** names;
    char** texts;
    char** attrNames;
    char** attrValues;
    int* elementNum;
    int* attributeNum;
};

static Tables bodyTables()
{
    Tables t = {ElementBuffer1, ElementBuffer2, ElementBuffer3, ElementBuffer4, &G_xmlElementNum, &G_xmlAttributeNum};
    return t;
}

static Tables headerTables()
{
    Tables t = {ElementBuffer1_WSSE, ElementBuffer2_WSSE, ElementBuffer3_WSSE, ElementBuffer4_WSSE,
                &G_xmlElementNum_WSSE, &G_xmlAttributeNum_WSSE};
    return t;
}

void clearElementTables()
{
    memset(ElementBuffer1, 0, sizeof ElementBuffer1);
    memset(ElementBuffer2, 0, sizeof ElementBuffer2);
    memset(ElementBuffer3, 0, sizeof ElementBuffer3);
    memset(ElementBuffer4, 0, sizeof ElementBuffer4);
    memset(ElementBuffer1_WSSE, 0, sizeof ElementBuffer1_WSSE);
    memset(ElementBuffer2_WSSE, 0, sizeof ElementBuffer2_WSSE);
    memset(ElementBuffer3_WSSE, 0, sizeof ElementBuffer3_WSSE);
    memset(ElementBuffer4_WSSE, 0, sizeof ElementBuffer4_WSSE);
    G_xmlElementNum = G_xmlAttributeNum = 0;
    G_xmlElementNum_WSSE = G_xmlAttributeNum_WSSE = 0;
    PrimaryElementName = 0;
    G_XML = 0;
    memset(G_event_service, 0, sizeof G_event_service);
    memset(ElementNamespace, 0, sizeof ElementNamespace);
    memset(ElementParent, 0, sizeof ElementParent);
    memset(AttributeElement, 0, sizeof AttributeElement);
    scopeCount = 0;
    tablesOverflowed = 0;
}

// Cuts a prefixed name to its local part inside the document's own string:
// the part after the first colon, ended at a second colon.
// TIXML_STRING: std::string with Debian's TinyXML, its own string without STL.
static char* localNameInPlace(const TIXML_STRING& name)
{
    char* s = const_cast<char*>(name.c_str());
    char* colon = strchr(s, ':');
    if (!colon)
        return s;
    *colon = 0;
    char* local = colon + 1;
    char* second = strchr(local, ':');
    if (second)
        *second = 0;
    return local;
}

// The part of a key after its first colon, cut at a second colon; 0 when
// the key has no colon. part must hold the key's length.
static const char* keyTail(const char* key, char* part, size_t n)
{
    const char* colon = strchr(key, ':');
    if (!colon)
        return 0;
    snprintf(part, n, "%s", colon + 1);
    char* second = strchr(part, ':');
    if (second)
        *second = 0;
    return part;
}

// The name matches the key: whole-key equality, or the key's part after
// its colon equals the name.
static int keyMatches(const char* name, const char* key, const char* tail)
{
    return strcmp(name, key) == 0 || (tail && strcmp(name, tail) == 0);
}

static void flatten(TiXmlNode* node, const Tables& t, int header, int parentRow)
{
    for (TiXmlElement* el = node->FirstChildElement(); el && !tablesOverflowed; el = el->NextSiblingElement()) {
        const int scopeMark = scopeCount;
        if (!header)
            declareNamespaces(el);
        if (!header && *t.elementNum == 0) {
            const char* full = el->Value();
            G_XML = strstr(full, "trt:") ? 1 : strstr(full, "tev:") ? 2 : 0;
        }
        if (*t.elementNum >= XML_TABLE_ROWS) {
            tablesOverflowed = 1;
            return;
        }
        const char* fullName = el->Value();
        char* name = localNameInPlace(el->ValueTStr());
        char* text = const_cast<char*>(el->GetText());
        int row = (*t.elementNum)++;
        t.names[row] = name;
        t.texts[row] = text;
        if (!header) {
            ElementNamespace[row] = namespaceOf(name == fullName ? "" : fullName);
            ElementParent[row] = parentRow;
        }
        // The ONVIF mode takes a subscription's address from the header on every model.
        if (header && strcmp(name, "To") == 0 && text && (modelHas(Cap::EventsAddressInHeader) || onvifMode())) {
            char work[128];
            memset(work, 0, sizeof work);
            strncpy(work, text, sizeof work - 1);
            const char* idx = strstr(work, "device_service?Idx=");
            if (idx) {
                idx += strlen("device_service?Idx=");
                size_t i = 0;
                memset(G_event_service, 0, sizeof G_event_service);
                while (idx[i] && idx[i] != ' ' && idx[i] != '\t' && idx[i] != '\n' && idx[i] != '\r' &&
                       i < sizeof G_event_service - 1) {
                    G_event_service[i] = idx[i];
                    ++i;
                }
            }
        }
        for (TiXmlAttribute* a = el->FirstAttribute(); a; a = a->Next()) {
            if (*t.attributeNum >= XML_TABLE_ROWS) {
                tablesOverflowed = 1;
                return;
            }
            int attributeRow = (*t.attributeNum)++;
            t.attrNames[attributeRow] = localNameInPlace(a->NameTStr());
            t.attrValues[attributeRow] = const_cast<char*>(a->Value());
            if (!header)
                AttributeElement[attributeRow] = row;
        }
        flatten(el, t, header, row);
        scopeCount = scopeMark;
    }
}

void ParaseUpdateXml(TiXmlNode* node) { flatten(node, bodyTables(), 0, -1); }
void ParaseUpdateXml_WSSE(TiXmlNode* node) { flatten(node, headerTables(), 1, -1); }

void parseXML(const char* text)
{
    tablesOverflowed = 0;
    G_myDocument->Parse(text);
    // A document that does not parse whole is no request, whatever part of it was read.
    TiXmlElement* envelope = G_myDocument->Error() ? 0 : G_myDocument->FirstChildElement();
    TiXmlElement* first = envelope ? envelope->FirstChildElement() : 0;
    if (!first) {
        G_httpAck = 400;
        return;
    }
    TiXmlElement* body = first;
    if (strcmp(first->Value(), "SOAP-ENV:Header") == 0 || strstr(first->Value(), "Header")) {
        ParaseUpdateXml_WSSE(first);
        body = first->NextSiblingElement();
    }
    if (!body || tablesOverflowed) {
        G_httpAck = 400;
        return;
    }
    scopeCount = 0;
    declareNamespaces(envelope);
    declareNamespaces(body);
    ParaseUpdateXml(body);
    if (tablesOverflowed) {
        G_httpAck = 400;
        return;
    }
    PrimaryElementName = ElementBuffer1[0] ? ElementBuffer1[0] : "";
    if (G_xmlAttributeNum > 0) {
        const char* v = ElementBuffer4[0];
        G_XML = strstr(v, "media") ? 1 : strstr(v, "event") ? 2 : 0;
    }
    G_httpAck = 200;
}

// Rows are examined up to and including the count, and never past the table.
static int lastRow(int count) { return count < XML_TABLE_ROWS - 1 ? count : XML_TABLE_ROWS - 1; }

// The row at or after start whose element name the key matches, or -1.
static int findDataRow(const Tables& t, const char* key, int start)
{
    char tailBuf[KEY_LIMIT_DATA + 1];
    if (strlen(key) > KEY_LIMIT_DATA || start < 0)
        return -1;
    const char* tail = keyTail(key, tailBuf, sizeof tailBuf);
    for (int i = start; i <= lastRow(*t.elementNum); ++i) {
        if (!t.names[i])
            return -1;
        if (keyMatches(t.names[i], key, tail))
            return i;
    }
    return -1;
}

const char* elementText(const char* key, int startRow, int* foundRow)
{
    Tables t = bodyTables();
    int row = findDataRow(t, key, startRow);
    if (row < 0)
        return 0;
    if (foundRow)
        *foundRow = row;
    return t.texts[row] ? t.texts[row] : NULL_TEXT;
}

const char* attributeText(const char* key, int occurrence)
{
    char tailBuf[KEY_LIMIT_ATTR + 1];
    if (strlen(key) > KEY_LIMIT_ATTR)
        return 0;
    const char* tail = keyTail(key, tailBuf, sizeof tailBuf);
    int seen = 0;
    for (int i = 0; i <= lastRow(G_xmlAttributeNum); ++i) {
        if (!ElementBuffer3[i])
            return 0;
        if (keyMatches(ElementBuffer3[i], key, tail) && ++seen > occurrence)
            return ElementBuffer4[i] ? ElementBuffer4[i] : "";
    }
    return 0;
}
