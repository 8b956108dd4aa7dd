// Marks what the shared library exports; every other symbol is hidden.
#ifndef KPL_EXPORT_H_
#define KPL_EXPORT_H_

// On a class or function of the public interface.
#define KPL_EXPORT __attribute__((visibility("default")))

// printf-style checking of a format argument; positions count from 1, and a member's `this` is 1.
#define KPL_PRINTF(formatIndex, firstArgument) \
    __attribute__((format(printf, formatIndex, firstArgument)))

#endif  // KPL_EXPORT_H_
