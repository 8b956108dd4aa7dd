#include "JavaMachine.h"

#ifdef FETCH_LINES_LIBJVM

#include <dlfcn.h>
#include <jni.h>

#include <string>
#include <vector>

#include "kpl/os/android/JniContext.h"

using kpl::os::android::JniContext;

namespace {

constexpr char kClient[] = "com/kapelo/net/CHttpClient";

// Null on failure. The machine's library stays loaded, as it wants to.
JavaVM* CreateMachine(const char* classes, JNIEnv** env) {
    void* library = dlopen(FETCH_LINES_LIBJVM, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        return nullptr;
    }
    using Create = jint (*)(JavaVM**, void**, void*);
    const auto create = reinterpret_cast<Create>(dlsym(library, "JNI_CreateJavaVM"));
    std::string classPath = std::string("-Djava.class.path=") + classes;
    JavaVMOption option{classPath.data(), nullptr};
    JavaVMInitArgs arguments{};
    arguments.version = JNI_VERSION_1_8;
    arguments.nOptions = 1;
    arguments.options = &option;
    JavaVM* vm = nullptr;
    void* made = nullptr;
    if (create == nullptr || create(&vm, &made, &arguments) != JNI_OK) {
        return nullptr;
    }
    *env = static_cast<JNIEnv*>(made);
    return vm;
}

}  // namespace

const char* JavaMachine::Start(const char* classes) {
    JNIEnv* env = nullptr;
    JavaVM* vm = CreateMachine(classes, &env);
    if (vm == nullptr) {
        return "no Java machine can be started";
    }
    m_vm = vm;
    std::vector<std::string> names{kClient};
    JniContext::GetInstance().Initialize(vm, names);
    env->ExceptionClear();  // a class that is not found leaves one
    return JniContext::GetInstance().GetJavaClass(kClient) != nullptr ? nullptr
                                                                      : "has no class CHttpClient";
}

JavaMachine::~JavaMachine() {
    if (m_vm != nullptr) {
        JniContext::GetInstance().Finalize(static_cast<JavaVM*>(m_vm));
        static_cast<JavaVM*>(m_vm)->DestroyJavaVM();
    }
}

#else

const char* JavaMachine::Start(const char*) {
    return "this program was built without Java";
}

JavaMachine::~JavaMachine() = default;

#endif
