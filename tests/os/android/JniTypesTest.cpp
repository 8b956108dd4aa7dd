#include "kpl/os/android/JniTypes.h"

#include <gtest/gtest.h>
#include <jni.h>

#include <type_traits>

#include "kpl/os/android/JniTypes.h"

namespace {

TEST(JniTypesTest, TheTypesAreThoseOfJniH) {
    EXPECT_TRUE((std::is_same_v<decltype(JavaVM::functions), const JNIInvokeInterface_*>));
    EXPECT_TRUE((std::is_same_v<decltype(JNIEnv::functions), const JNINativeInterface_*>));
    EXPECT_TRUE((std::is_base_of_v<_jobject, std::remove_pointer_t<jclass>>));
    EXPECT_TRUE((std::is_base_of_v<_jobject, std::remove_pointer_t<jbyteArray>>));
}

}  // namespace
