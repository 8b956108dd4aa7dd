// Path separators. Any thread.
#ifndef KPL_IO_FILEPATH_H_
#define KPL_IO_FILEPATH_H_

#include "kpl/Export.h"

namespace kpl::io {

// True for "/" and for a backslash.
KPL_EXPORT bool IsFilePathSeparator(char c);

// "/".
KPL_EXPORT char GetFilePathSeparator();

// Makes every separator in `path` the correct one, in place. Null is left alone.
KPL_EXPORT void ConvertToCorrectFilePath(char* path);

}  // namespace kpl::io

#endif  // KPL_IO_FILEPATH_H_
