// The library's version. The build reads it from here, so this is the only place to change it.
#ifndef KPL_VERSION_H_
#define KPL_VERSION_H_

// Major, minor and patch of the semantic version; the major one is the soversion too.
#define KPL_VERSION_MAJOR 1
#define KPL_VERSION_MINOR 0
#define KPL_VERSION_PATCH 0

// All three as text.
#define KPL_VERSION "1.0.0"

#endif  // KPL_VERSION_H_
