// Printers of the media configurations inside listings: each appends the
// body of one configuration (given its file name) to the response.
#ifndef MEDIA_PRINTERS_H
#define MEDIA_PRINTERS_H

void Read_Print_VideoSourceFile(const char* fileName);
void Read_Print_AudioSourceFile(const char* fileName);
void Read_Print_VideoEncoderFile(const char* fileName);
void Read_Print_AudioEncoderFile(const char* fileName);
void Read_Print_MetadataFile(const char* fileName);
void Read_Print_MetadataOptionsFile(const char* fileName);

#endif
