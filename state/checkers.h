// Value checkers that setters apply to request values before touching a
// file: 0 means acceptable, 1 means refuse (checkIPv4AddressValid is the
// exception and returns 1 for valid).
#ifndef STATE_CHECKERS_H
#define STATE_CHECKERS_H

int CheckInRange(int value, int min, int max);
int CheckFloatRange(float value, float min, float max);
int CheckInt(const char* text);
int CheckFloat(const char* text);
int CheckBool(char* text);
int CheckBool_tolower(char* text);
int Check_ON_OFF(char* text);
int Check_ON_OFF_AUTO(char* text);
int Check_AUTO_MANUAL(char* text);
int CheckEncoding(const char* text);
int CheckType(const char* text);
int CheckTimeout(const char* text);
int CheckChar(const char* text);
int CheckChar_including_space(const char* text);
int CheckPresetname(const char* text);
int CheckBitrateRange(const char* text);
int CheckPortRange(const char* text);
int CheckTTLRange(const char* text);
int CheckSampleRate(const char* text);
int checkIPv4AddressValid(const char* text);
int CheckH264Profile(const char* text);
int CheckMPEG4Profile(const char* text);

// 1 when the text holds a line feed, a carriage return or any other byte
// that would break a key=value line.
int hasLineBreak(const char* text);

// --- Strict forms for values that reach URIs, commands, the stream server and files ---
// Return 1 when the text is of the form (unlike the Check* rows above).

// Exactly four dot-separated decimal parts of one to three digits, each at
// most 255, and nothing else.
int isStrictIPv4(const char* text);
// An IPv6 address literal (without brackets or zone), at most 45 characters.
int isIPv6Literal(const char* text);
// An xs:duration such as "PT60S", "PT1M30.5S" or "P1DT2H": at least one
// part, digits only, a fraction on the seconds only, at most 32 characters.
int isXmlDuration(const char* text);
// RFC 1123: labels of letters, digits and inner hyphens, 1 to 63 characters,
// joined by single dots, at most 253 characters in all.
int isHostName(const char* text);
// A host name whose last label is not all digits (so no address passes as a name).
int isDomainName(const char* text);
// A port a server can listen on: decimal 1 to 65535.
int isServerPort(const char* text);

#endif
