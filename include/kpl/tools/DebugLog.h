// The debug log: printf-style messages to the Android log and, when switched on, to a rotating set
// of files LogTools<N>.txt. Messages bring their own prefix and line end; nothing is added.
#ifndef KPL_TOOLS_DEBUGLOG_H_
#define KPL_TOOLS_DEBUGLOG_H_

#include "kpl/Export.h"

namespace kpl::tools {

// Logs one message if the log is enabled; otherwise looks at one flag and returns, without touching
// the arguments. What goes beyond 4094 characters is cut off. Takes no lock except for the file,
// and no heap memory. Any thread.
KPL_EXPORT void DumpDbgMsg(const char* format, ...) KPL_PRINTF(1, 2);

// Logs one message whether or not the log is enabled. Any thread.
KPL_EXPORT void ForceDumpDbgMsg(const char* format, ...) KPL_PRINTF(1, 2);

// Sets both switches: whether DumpDbgMsg prints, and whether messages also go to a file. `toFile`
// opens the next file in the current working directory; files rotate at 4 MiB and the last ten
// stay. A file that cannot be opened is not reported: file output then stops until the next call.
// Controlling thread.
KPL_EXPORT void EnableDumpLog(bool enable, bool toFile);

// The first switch. Any thread.
KPL_EXPORT bool IsDumpLogEnabled();

// Closes the log file; no other is opened until EnableDumpLog is called with `toFile` again.
// Takes no lock: controlling thread, while nobody else logs.
KPL_EXPORT void FlushLogFile();

// Not implemented: forces a message that says so while messages go to a file, else does nothing.
KPL_EXPORT void CollectLogFiles(int);

// Not implemented: forces a message that says so.
KPL_EXPORT void DumpBuffer(char* buffer, int length);

}  // namespace kpl::tools

#endif  // KPL_TOOLS_DEBUGLOG_H_
