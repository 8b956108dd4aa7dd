#ifndef KPL_NET_CLOSINGS_H_
#define KPL_NET_CLOSINGS_H_

namespace kpl::net {

// How many sockets of this process have been closed so far. While it stays the same, none of those
// that were open is not: who watches many need not ask each. Any thread.
unsigned int Closings();

// One more. Any thread.
void CountClosing();

}  // namespace kpl::net

#endif  // KPL_NET_CLOSINGS_H_
