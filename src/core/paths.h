// Paths as text, and questions about the file that a path names.
//
// "/" is the only delimiter.  Positions are 1-based, 0 means "not found".  Everything here is re-entrant; only the
// file questions touch the file system, and they follow symbolic links.
#pragma once

#include <sys/stat.h>

#include "core/zostring.h"

// --- characters: text is single-byte, so each is a step of one ---
bool isLeadByte(char c);
int StrCharLength(const char* s);
int ByteType(const char* s, int i);
int ByteType(const String& s, int i);
const char* AnsiStrPos(const char* s, const char* sub);  // strstr
const char* StrNextChar(const char* s);
int AnsiPos(const char* sub, const char* s);

// --- paths ---
bool IsPathDelimiter(const String& s, int i);
bool IsDelimiter(const char* delims, const String& s, int i);
// Position of the last character of s that occurs in delims; a NUL never counts.
int LastDelimiter(const char* delims, const String& s);
String IncludeTrailingPathDelimiter(const String& path);  // an empty path becomes "/"
String ExcludeTrailingPathDelimiter(const String& path);  // drops one "/" at most
String ExtractFilePath(const String& path);               // up to and including the last "/"
String ExtractFileName(const String& path);               // behind the last "/", at most 4095 bytes
// The name's last dot and what follows it, at most 4095 bytes; empty when the name has none.
String ExtractFileExt(const String& path);
String ExpandTilde(const String& path);  // as it stands: "~" is an ordinary name here
// Empty when the working directory is gone or its name is longer than 4094 bytes.
String GetCurrentDir();
// The absolute path without "." and ".." segments and doubled slashes, but for a slash that ends it behind "/.".
// Text only: links are not resolved and nothing need exist.  A path that begins with "~" comes back as it is.
String ExpandFileName(const String& path);

// --- the file behind a path; null is an empty path ---
bool ExamineFile(const char* path, struct stat& status);  // false with errno set
// Each of these looks anew, and any failure to look is the same to them: who compares or concludes from what is
// missing examines the file once instead.
long long FileAge(const char* path);     // modification time in seconds since 1970, -1 when it can't be examined
long long FileSize(const char* path);    // bytes, -1 when it can't be examined
bool FileExists(const char* path);       // a regular file
bool DirectoryExists(const char* path);  // false with errno set, to 0 when it is something else
bool DeleteFile(const char* path);
