// Helpers for NUL-terminated byte strings. The extractors look only at "/" (never at a backslash)
// and never at the first character: a separator or dot there does not count. What they return is
// new memory, never a part of the argument; the caller releases it with delete[]. Any thread.
#ifndef KPL_TOOLS_STRINGTOOLS_H_
#define KPL_TOOLS_STRINGTOOLS_H_

#include "kpl/Export.h"

namespace kpl::tools {

// Converts in place, byte by byte, with the C library's tables for the current locale. Returns its
// argument; null is ignored.
KPL_EXPORT char* strlwr(char* s);
KPL_EXPORT char* strupr(char* s);

// The directory without its trailing separator: "/usr/lib" of "/usr/lib/a.so". Null for null and
// where no "/" counts: "a.so", "/a.so".
KPL_EXPORT char* ExtractFilePath(const char* path);

// What follows the last "/" that counts: "a.so" of "/usr/lib/a.so". Null for null, for a name
// without a directory, and when nothing follows.
KPL_EXPORT char* ExtractFileName(const char* path);

// From the last dot that counts to the end, dot included: ".MP3" of "song.MP3". Directories are not
// taken into account: ".d/file" of "a.d/file". Null for null, without a dot, and when nothing
// follows.
template <class T>
T* ExtractFileExtension(const T* path);
extern template KPL_EXPORT char* ExtractFileExtension<char>(const char* path);

// The same for plain strings.
KPL_EXPORT char* ExtractFileExtension(const char* path);

// Whether the path's extension is `ext` (with its dot), whatever the case of its letters. False for
// null and for a path without an extension.
KPL_EXPORT bool IsFileExt(const char* path, const char* ext);

// strcasecmp: below, equal to or above 0. Neither may be null.
KPL_EXPORT int StrCmpIgnoreCase(const char* a, const char* b);

}  // namespace kpl::tools

#endif  // KPL_TOOLS_STRINGTOOLS_H_
