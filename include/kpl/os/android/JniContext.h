#ifndef KPL_OS_ANDROID_JNICONTEXT_H_
#define KPL_OS_ANDROID_JNICONTEXT_H_

#include <string>
#include <vector>

#include "kpl/Export.h"
#include "kpl/os/android/JniTypes.h"

// What this header declares is in the library only where it was built with JNI headers.

// Looks a class up by its name in JNI form ("com/kapelo/net/CHttpClient") and returns a global
// reference, which the caller releases with FreeJavaClass. Null for a null `env` or an empty name,
// and, with a forced message, for a class that is not found; the Java exception is then pending and
// stays so. The look-up's local reference stays too, until the thread's native call returns.
// The thread of `env`; only one with the application's class loader finds its classes.
KPL_EXPORT jclass LoadJavaClass(JNIEnv* env, const std::string& name);

// Releases a global class reference; nothing happens if either is null. The thread of `env`.
KPL_EXPORT void FreeJavaClass(JNIEnv* env, jclass cls);

namespace kpl::os::android {

// The process's Java virtual machine, and global references to the Java classes that native code
// calls. Only the initialising thread can look classes up by name; all others use what it found.
//
// No lock: Initialize and Finalize come before and after all other use. Neither clears a Java
// exception: after a class was not found, NoClassDefFoundError is pending on the initialising
// thread, and the application must take it (ExceptionClear) before it does anything else there.
class KPL_EXPORT JniContext {
public:
    // The only one; made on first use, finalised at process exit. Any thread.
    static JniContext& GetInstance();
    JniContext(const JniContext&) = delete;
    JniContext& operator=(const JniContext&) = delete;

    // Keeps the machine and this thread's environment, and loads every class in `classNames` (JNI
    // form). Does nothing for the machine already held; lets go of another one first. A class that
    // is not found leaves a null entry. A null machine, or one that this thread is not attached to,
    // is reported by a forced message; the latter is held all the same, without classes.
    // To be called from JNI_OnLoad: a thread with the application's class loader.
    void Initialize(JavaVM* vm, std::vector<std::string>& classNames);

    // Releases the classes and lets go of `vm` and of its environment. With null, another machine,
    // or on a thread that is not attached to it: only a forced message. The initialising thread.
    void Finalize(JavaVM* vm);

    // The machine held, or null. Any thread.
    JavaVM* GetJVM() const;

    // Begins JNI work on the calling thread: the kept environment on the initialising thread, a
    // new attachment on any other. Null without a machine, and, with a forced message, when the
    // machine refuses. A thread that got an environment calls DetachThread. Any thread.
    JNIEnv* AttachThread();

    // Ends it: detaches any thread but the initialising one, so also a thread that the application
    // had attached itself, whose environment and local references are then gone. Any thread.
    void DetachThread();

    // The cached global reference, null for a name that was not loaded. Owned by the context; goes
    // with Finalize. Any thread.
    jclass GetJavaClass(const char* name);

private:
    struct PrivateImpl;

    JniContext();
    ~JniContext();

    PrivateImpl* m_impl;
};

}  // namespace kpl::os::android

#endif  // KPL_OS_ANDROID_JNICONTEXT_H_
