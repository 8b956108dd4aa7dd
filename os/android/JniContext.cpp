#include "kpl/os/android/JniContext.h"

#include <jni.h>
#include <pthread.h>

#include <map>

#include "kpl/tools/DebugLog.h"

using kpl::tools::ForceDumpDbgMsg;

jclass LoadJavaClass(JNIEnv* env, const std::string& name) {
    if (env == nullptr || name.empty()) {
        return nullptr;
    }
    jclass found = env->FindClass(name.c_str());
    if (found == nullptr) {
        ForceDumpDbgMsg("LoadJavaClass(): ????????? Cannot find class %s\n", name.c_str());
        return nullptr;
    }
    return static_cast<jclass>(env->NewGlobalRef(found));
}

void FreeJavaClass(JNIEnv* env, jclass cls) {
    if (env != nullptr && cls != nullptr) {
        env->DeleteGlobalRef(cls);
    }
}

namespace kpl::os::android {

namespace {

// Null on a thread that is not attached to the machine.
JNIEnv* GetEnvironment(JavaVM* vm) {
    void* env = nullptr;
    return vm->GetEnv(&env, JNI_VERSION_1_4) == JNI_OK ? static_cast<JNIEnv*>(env) : nullptr;
}

// Takes the type of the first parameter from the declaration: a JNIEnv** on a device, a void** in a
// desktop's jni.h.
template <typename Env>
jint Attach(JavaVM* vm, jint (JavaVM::*attach)(Env**, void*), JNIEnv** result) {
    Env* env = nullptr;
    const jint status = (vm->*attach)(&env, nullptr);
    *result = static_cast<JNIEnv*>(env);
    return status;
}

// Java looks up no class while an exception is pending, and may end the process if it is asked to.
// This one holds back those that are pending; at its end the first of them is pending again.
class HeldException {
public:
    explicit HeldException(JNIEnv* env) : m_env(env) {}

    ~HeldException() {
        Hold();
        if (m_first != nullptr) {
            m_env->Throw(m_first);
            m_env->DeleteLocalRef(m_first);
        }
    }

    HeldException(const HeldException&) = delete;
    HeldException& operator=(const HeldException&) = delete;

    void Hold() {
        jthrowable pending = m_env->ExceptionOccurred();
        if (pending == nullptr) {
            return;
        }
        m_env->ExceptionClear();
        if (m_first == nullptr) {
            m_first = pending;
        } else {
            m_env->DeleteLocalRef(pending);
        }
    }

private:
    JNIEnv* const m_env;
    jthrowable m_first = nullptr;
};

}  // namespace

struct JniContext::PrivateImpl {
    bool IsInitialisingThread() const { return pthread_equal(thread, pthread_self()) != 0; }

    void LoadClasses(const std::vector<std::string>& names) {
        HeldException exception(env);
        for (const std::string& name : names) {
            jclass& cls = classes[name];
            if (cls == nullptr) {
                exception.Hold();
                cls = LoadJavaClass(env, name);
            }
        }
    }

    void FreeClasses(JNIEnv* current) {
        for (const auto& entry : classes) {
            FreeJavaClass(current, entry.second);
        }
        classes.clear();
    }

    std::map<std::string, jclass> classes;
    JavaVM* vm = nullptr;
    JNIEnv* env = nullptr;
    pthread_t thread{};
};

JniContext& JniContext::GetInstance() {
    static JniContext instance;
    return instance;
}

JniContext::JniContext() : m_impl(new PrivateImpl) {}

JniContext::~JniContext() {
    if (m_impl->vm != nullptr) {
        Finalize(m_impl->vm);
    }
    delete m_impl;
}

void JniContext::Initialize(JavaVM* vm, std::vector<std::string>& classNames) {
    if (vm == nullptr) {
        ForceDumpDbgMsg("JniContext::Initialize(): ????????? Invalid JVM\n");
        return;
    }
    if (vm == m_impl->vm) {
        return;
    }
    if (m_impl->vm != nullptr) {
        Finalize(m_impl->vm);
    }
    m_impl->vm = vm;
    m_impl->env = GetEnvironment(vm);
    if (m_impl->env == nullptr) {
        ForceDumpDbgMsg("JniContext::Initialize(): ????????? Get JVM environment failed\n");
        return;
    }
    m_impl->LoadClasses(classNames);
    m_impl->thread = pthread_self();
}

void JniContext::Finalize(JavaVM* vm) {
    if (vm == nullptr) {
        ForceDumpDbgMsg("JniContext::Finalize(): ????????? Invalid JVM\n");
        return;
    }
    if (vm != m_impl->vm) {
        ForceDumpDbgMsg("JniContext::Finalize(): ????????? No matched JVM\n");
        return;
    }
    JNIEnv* env = GetEnvironment(vm);
    if (env == nullptr) {
        ForceDumpDbgMsg("JniContext::Finalize(): ????????? Get JVM environment failed\n");
        return;
    }
    m_impl->FreeClasses(env);
    m_impl->vm = nullptr;
    // The machine's, like this thread's part in it; a client that outlives it must not reach them.
    m_impl->env = nullptr;
    m_impl->thread = pthread_t{};
}

JavaVM* JniContext::GetJVM() const {
    return m_impl->vm;
}

JNIEnv* JniContext::AttachThread() {
    if (m_impl->IsInitialisingThread()) {
        return m_impl->env;
    }
    if (m_impl->vm == nullptr) {
        return nullptr;
    }
    JNIEnv* env = nullptr;
    if (Attach(m_impl->vm, &JavaVM::AttachCurrentThread, &env) < 0) {
        ForceDumpDbgMsg("JniContext::AttachThread(): ???????? JVM attach thread failed!\n");
        return nullptr;
    }
    return env;
}

void JniContext::DetachThread() {
    if (!m_impl->IsInitialisingThread() && m_impl->vm != nullptr) {
        m_impl->vm->DetachCurrentThread();
    }
}

jclass JniContext::GetJavaClass(const char* name) {
    const auto found = name != nullptr ? m_impl->classes.find(name) : m_impl->classes.end();
    return found != m_impl->classes.end() ? found->second : nullptr;
}

}  // namespace kpl::os::android
