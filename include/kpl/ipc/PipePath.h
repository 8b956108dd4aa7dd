// Where the FIFOs of a server named N are, R being the pipe root directory and I a connection's id:
//   R/NRoot      announcements: clients write, the server reads
//   R/NServerI   one connection: the client writes, the server reads
//   R/NClientI   one connection: the server writes, the client reads
#ifndef KPL_IPC_PIPEPATH_H_
#define KPL_IPC_PIPEPATH_H_

#include "kpl/Export.h"

namespace kpl::ipc {

// Replaces the pipe root directory, "/tmp" at load; no trailing slash. Null or empty is ignored.
// Before any server is started or client connected: there is no lock.
KPL_EXPORT void SetPipeRootPath(const char* path);

// Build a path into `buf`, of which all `size` bytes are written: the path, cut off where it does
// not fit, then zeros. Return false and touch nothing for a null or empty `name`, a null `buf`, a
// `size` below 1, a negative `id`. Any thread.
KPL_EXPORT bool GetPipeServerRootPath(const char* name, char* buf, int size);
KPL_EXPORT bool GetPipeServerPath(const char* name, int id, char* buf, int size);
KPL_EXPORT bool GetPipeClientPath(const char* name, int id, char* buf, int size);

}  // namespace kpl::ipc

#endif  // KPL_IPC_PIPEPATH_H_
