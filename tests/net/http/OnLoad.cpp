#include <jni.h>

#include <string>
#include <vector>

#include "kpl/os/android/JniContext.h"

extern "C" JNIEXPORT jint JNI_OnLoad(JavaVM* vm, void*) {
    std::vector<std::string> classes = {"com/kapelo/net/CHttpClient"};
    kpl::os::android::JniContext::GetInstance().Initialize(vm, classes);
    return JNI_VERSION_1_4;
}

extern "C" JNIEXPORT void JNI_OnUnload(JavaVM* vm, void*) {
    kpl::os::android::JniContext::GetInstance().Finalize(vm);
}
