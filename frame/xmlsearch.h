// The request document flattened into element and attribute tables, and
// the search functions handlers read request values with.
#ifndef FRAME_XMLSEARCH_H
#define FRAME_XMLSEARCH_H

class TiXmlNode;

#define XML_TABLE_ROWS 64

extern char* ElementBuffer1[XML_TABLE_ROWS];
extern char* ElementBuffer2[XML_TABLE_ROWS];
extern char* ElementBuffer3[XML_TABLE_ROWS];
extern char* ElementBuffer4[XML_TABLE_ROWS];
extern int G_xmlElementNum;
extern int G_xmlAttributeNum;
extern char* ElementBuffer1_WSSE[XML_TABLE_ROWS];
extern char* ElementBuffer2_WSSE[XML_TABLE_ROWS];
extern char* ElementBuffer3_WSSE[XML_TABLE_ROWS];
extern char* ElementBuffer4_WSSE[XML_TABLE_ROWS];
extern int G_xmlElementNum_WSSE;
extern int G_xmlAttributeNum_WSSE;
extern const char* PrimaryElementName;
extern int G_XML;  // 1 media, 2 events, 0 other
extern char G_event_service[8];

void parseXML(const char* text);
void ParaseUpdateXml(TiXmlNode* node);
void ParaseUpdateXml_WSSE(TiXmlNode* node);

int searchDataInElement(const char* key, char* dest, int length);
int searchDataInElement_Continuous(const char* key, char* dest, int length, int startRow);
int searchDataInElementOnly(const char* key);
int searchDataInElementAfterStrOnly(const char* anchor, const char* key);
int searchElementAfterStrInElement(const char* anchor, const char* key, char* dest, int length);
int searchAttriInElement(const char* key, char* dest, int length);
int searchAttriInElementContinous(const char* key, char* dest, int length, int n);
int searchAttriInElementTemp(const char* key, char* dest, int length);
int searchAttriAfterStrInElement(const char* anchor, const char* key, char* dest, int length);

// The text of the first body element at or after startRow whose name the
// key matches (as searchDataInElement matches), and its row; 0 when none.
// For the typed reads of request_values.h; handlers use those.
const char* elementText(const char* key, int startRow, int* foundRow);
// The value of the occurrence-th (from 0) attribute the key matches, or 0.
const char* attributeText(const char* key, int occurrence);

// The same searches over the header tables (the authentication step's).
int searchDataInHeader(const char* key, char* dest, int length);

void showElementBuffer();
void showStringToFile(const char* text);

// Empties every table (tests parse several documents in one process).
void clearElementTables();

#endif
