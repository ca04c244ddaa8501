// Typed, bounded reads of request values: the only way handlers take text,
// tokens, numbers and flags out of a request.
#ifndef FRAME_REQUEST_VALUES_H
#define FRAME_REQUEST_VALUES_H

#include <stddef.h>

// What a read found. A value that does not fit its buffer, or is not of its
// type or range, is refused whole: never cut, never guessed. The read has
// then written the standard refusal already; the handler returns, or writes
// its action's own fault over it. No conversion to a flag exists, so a
// refusal can never be taken for "present".
enum class [[nodiscard]] Read { Refused, Absent, Value };

// The text of the first element the key names (a key with a prefix matches
// the element of that name; one without, any prefix). An empty element reads
// as "(null)", as the camera's search always gave it.
Read requestText(const char* key, char* buf, size_t n);
// The first of two names the request holds (the second is read only when
// the first is absent).
Read requestTextEither(const char* key, const char* otherKey, char* buf, size_t n);
// The same, searching from the element table row startRow on; *row gets the
// row found (for lists: read, then go on after that row).
Read requestTextFrom(const char* key, int startRow, int* row, char* buf, size_t n);
// The first row at or after startRow whose name the key matches as the reads
// match it, or -1. Reads no text, so it never refuses.
int requestRowFrom(const char* key, int startRow);
// The text of the first element the key matches in rows [fromRow, toRow):
// absent when that element stands at or after toRow.
Read requestTextWithin(const char* key, int fromRow, int toRow, char* buf, size_t n);
// 1 when the request holds an element of that name (its text aside).
int requestHas(const char* key);
// The value of an attribute (occurrence 0 is the first that matches).
Read requestAttribute(const char* key, int occurrence, char* buf, size_t n);
// Text that names a file of the store: letters, digits, '-', '_', '.', no "..".
Read requestToken(const char* key, char* buf, size_t n);
// A whole decimal number (optional sign) within [min, max].
Read requestNumber(const char* key, long min, long max, long* out);
// A decimal fraction (as xs:float writes it) within [min, max].
Read requestDecimal(const char* key, double min, double max, double* out);
// xs:boolean: "true"/"1" or "false"/"0".
Read requestBool(const char* key, int* out);

// The element table row by row, for lists and for elements told apart by
// where they stand: the number of rows, a row's local name and its text
// (0 when the row does not exist or has no text), and the first row at or
// after start with exactly that name (-1 when none).
int requestRows();
const char* requestRowName(int row);
const char* requestRowText(int row);
int requestRowOf(const char* name, int start);
// A row's text copied whole into buf, as requestText reads.
Read requestRowValue(int row, char* buf, size_t n);

// The request by namespace and nesting. A key "tt:PanTilt" names a local
// name and, through the prefix's usual namespace (tds, trt, tptz, timg, tmd,
// tev, wsnt, tt), a namespace URI; an element matches when its local name is
// the key's and its namespace is that URI (or, undeclared, that prefix). A
// key without a prefix matches any namespace.
// The first element anywhere that the key names, or -1.
int requestRowNamed(const char* key);
// The first element directly inside parentRow that the key names, or -1.
int requestRowIn(const char* key, int parentRow);
// The text of key directly inside the first parentKey element.
Read requestTextIn(const char* parentKey, const char* key, char* buf, size_t n);
// The value of the attribute (local name) of the element at row.
Read requestAttributeOf(int row, const char* name, char* buf, size_t n);
// The namespace URI of the body's element (its prefix when undeclared).
const char* requestBodyNamespace();

// Parsers the reads use, for values that arrive by other ways (attributes).
int parseNumber(const char* text, long min, long max, long* out);
int parseDecimal(const char* text, double min, double max, double* out);
int parseBool(const char* text, int* out);
// An xs:dateTime as YYYY-MM-DDThh:mm:ss, with optional fraction of a second
// and "Z": year, month, day, hour, minute, second into parts.
int parseDateTime(const char* text, int parts[6]);

// The standard refusal of a request value: status 400, Sender,
// ter:InvalidArgVal and the given second subcode (without "ter:").
void refuseRequestValue(const char* subcode2, const char* reason, const char* detail);

#endif
