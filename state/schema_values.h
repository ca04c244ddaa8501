// Texts the ONVIF mode stores only when the schema takes them back: an
// xs:duration and an xs:anyURI.
#ifndef STATE_SCHEMA_VALUES_H
#define STATE_SCHEMA_VALUES_H

// 1 for "P1DT2H", "PT10S", "-PT1.5S": P, then at least one part, and after a
// T at least one time part.
int isDurationText(const char* text);

// 1 for a non-empty text of the URI characters only (letters, digits,
// -._~:/?#[]@!$&'()*+,;= and % followed by two hex digits).
int isUriText(const char* text);

#endif
