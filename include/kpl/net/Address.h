// Addresses as dotted IPv4 text.
#ifndef KPL_NET_ADDRESS_H_
#define KPL_NET_ADDRESS_H_

#include <string>

#include "kpl/Export.h"

namespace kpl::net {

// The first address of `host` that is not 127.0.0.1. `service`, for example a port number as text,
// is required. False, with an empty `ip`, if there is none or an argument is null or empty. Any
// thread.
KPL_EXPORT bool GetIpByName(const char* host, const char* service, std::string& ip);

// The same by the resolver that is not re-entrant: one thread at a time in the process.
KPL_EXPORT bool GetIpByName(const std::string& host, std::string& ip);

// The address of the first network interface that is not 127.0.0.1. With only such ones, true and
// "127.0.0.1"; without any interface, true and `ip` as it was. False on system errors, which go to
// stderr. Any thread.
KPL_EXPORT bool GetLocalIP(std::string& ip);

}  // namespace kpl::net

#endif  // KPL_NET_ADDRESS_H_
