// The part of the device's <android/log.h> that the library uses, for hosts that have none.
#ifndef KPL_HOST_ANDROID_LOG_H_
#define KPL_HOST_ANDROID_LOG_H_

enum { ANDROID_LOG_DEBUG = 3 };

extern "C" int __android_log_print(int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

#endif  // KPL_HOST_ANDROID_LOG_H_
