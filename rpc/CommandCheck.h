#ifndef KPL_RPC_COMMANDCHECK_H_
#define KPL_RPC_COMMANDCHECK_H_

namespace kpl::rpc {

// Whether `size` bytes that are no valid command can still become an invoke when more arrive. Says
// no as early as the header shows it, so that a connection does not wait for the end of what cannot
// end.
bool CanBecomeInvoke(const char* bytes, int size);

}  // namespace kpl::rpc

#endif  // KPL_RPC_COMMANDCHECK_H_
