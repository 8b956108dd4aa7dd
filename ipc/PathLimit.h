#ifndef KPL_IPC_PATHLIMIT_H_
#define KPL_IPC_PATHLIMIT_H_

namespace kpl::ipc {

// Size of every path buffer, its NUL included.
constexpr int kPathSize = 256;

// False if a FIFO path of this server could be cut off, whatever the connection's id: two names
// that differ only behind the cut would meet on one FIFO. Such a name is refused everywhere.
bool PathsFit(const char* serverName);

}  // namespace kpl::ipc

#endif  // KPL_IPC_PATHLIMIT_H_
