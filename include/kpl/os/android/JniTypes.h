// The JNI types that the library's declarations name, without <jni.h>: a program that does not use
// Java needs no JNI headers. <jni.h> may be included before or after.
#ifndef KPL_OS_ANDROID_JNITYPES_H_
#define KPL_OS_ANDROID_JNITYPES_H_

#ifdef __ANDROID__
struct _JNIEnv;
struct _JavaVM;
// As in <jni.h>.
typedef _JNIEnv JNIEnv;
typedef _JavaVM JavaVM;
#else
struct JNIEnv_;
struct JavaVM_;
// As in <jni.h>.
typedef JNIEnv_ JNIEnv;
typedef JavaVM_ JavaVM;
#endif

class _jobject;
class _jclass;
class _jbyteArray;
// References, as in <jni.h>.
typedef _jobject* jobject;
typedef _jclass* jclass;
typedef _jbyteArray* jbyteArray;

#endif  // KPL_OS_ANDROID_JNITYPES_H_
