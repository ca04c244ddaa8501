// The request document flattened into element and attribute tables: each
// body element's local name, text, namespace and parent row; each
// attribute's local name, value and element row.
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
// Per body row: the element's namespace URI as the document declares it (the
// prefix itself when undeclared, "" without either) and its parent row (-1
// for the body element); per attribute row, the row of its element.
extern const char* ElementNamespace[XML_TABLE_ROWS];
extern int ElementParent[XML_TABLE_ROWS];
extern int AttributeElement[XML_TABLE_ROWS];

void parseXML(const char* text);
void ParaseUpdateXml(TiXmlNode* node);
void ParaseUpdateXml_WSSE(TiXmlNode* node);

// The text of the first body element at or after startRow whose name the
// key matches (its whole name, or its part after the colon, equals the
// element's local name), and its row; 0 when none.
// For the typed reads of request_values.h; handlers use those.
const char* elementText(const char* key, int startRow, int* foundRow);
// The value of the occurrence-th (from 0) attribute the key matches, or 0.
const char* attributeText(const char* key, int occurrence);

// Empties every table (tests parse several documents in one process).
void clearElementTables();

#endif
