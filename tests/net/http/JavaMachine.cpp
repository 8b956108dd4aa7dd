#include "tests/net/http/JavaMachine.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <mutex>
#include <sstream>
#include <stdexcept>

namespace kpl::test {

namespace {

std::atomic<JavaMachine*> machine{nullptr};

// What the machine has printed, from any of its threads.
std::mutex outputMutex;
std::string output;

int Print(FILE*, const char* format, va_list arguments) __attribute__((format(printf, 2, 0)));

int Print(FILE*, const char* format, va_list arguments) {
    char text[4096];
    const int length = vsnprintf(text, sizeof(text), format, arguments);
    std::lock_guard<std::mutex> lock(outputMutex);
    output += text;
    return length;
}

constexpr jlong kThreadTag = 1;
constexpr jlong kClientClassTag = 2;

jint CountReference(jvmtiHeapReferenceKind kind, const jvmtiHeapReferenceInfo* info, jlong classTag,
                    jlong, jlong, jlong*, jlong*, jint, void* user) {
    auto* references = static_cast<JavaMachine::References*>(user);
    if (kind == JVMTI_HEAP_REFERENCE_JNI_LOCAL && info->jni_local.thread_tag == kThreadTag) {
        ++references->local;
    } else if (kind == JVMTI_HEAP_REFERENCE_JNI_GLOBAL && classTag == kClientClassTag) {
        ++references->global;
    }
    return 0;  // not what they refer to
}

}  // namespace

// What stands in the function table instead of the machine's own.
struct Interposed {
    static const jniNativeInterface& Original() { return *machine.load()->m_original; }

    static void AfterCall(JNIEnv* env) {
        JavaMachine* java = machine.load();
        if (java->m_lookForExceptions && Original().ExceptionCheck(env)) {
            ++java->m_exceptions;
        }
    }

    static jmethodID GetStaticMethodID(JNIEnv* env, jclass cls, const char* name,
                                       const char* signature) {
        const bool map = machine.load()->m_findPropertyMap &&
                         strcmp(name, "CreateRequestPropertyMap") == 0 &&
                         strcmp(signature, "(V)Ljava/lang/Object;") == 0;
        return Original().GetStaticMethodID(env, cls, name,
                                            map ? "()Ljava/lang/Object;" : signature);
    }

    static jint CallStaticIntMethodA(JNIEnv* env, jclass cls, jmethodID id,
                                     const jvalue* arguments) {
        const jint result = Original().CallStaticIntMethodA(env, cls, id, arguments);
        AfterCall(env);
        return result;
    }

    static void CallStaticVoidMethodA(JNIEnv* env, jclass cls, jmethodID id,
                                      const jvalue* arguments) {
        Original().CallStaticVoidMethodA(env, cls, id, arguments);
        AfterCall(env);
    }

    static jobject CallStaticObjectMethodA(JNIEnv* env, jclass cls, jmethodID id,
                                           const jvalue* arguments) {
        jobject result = Original().CallStaticObjectMethodA(env, cls, id, arguments);
        AfterCall(env);
        return result;
    }

    static jobject CallStaticObjectMethodV(JNIEnv* env, jclass cls, jmethodID id,
                                           va_list arguments) {
        jobject result = Original().CallStaticObjectMethodV(env, cls, id, arguments);
        AfterCall(env);
        return result;
    }
};

JavaMachine& JavaMachine::Get() {
    static JavaMachine* instance = new JavaMachine;
    return *instance;
}

JavaMachine::JavaMachine() {
    char* classPath = const_cast<char*>("-Djava.class.path=" KPL_JAVA_CLASSES);
    JavaVMOption options[] = {
        {classPath, nullptr},
        {const_cast<char*>("-Xcheck:jni"), nullptr},
        {const_cast<char*>("-Xmx256m"), nullptr},
        {const_cast<char*>("-XX:+UseSerialGC"), nullptr},
        {const_cast<char*>("-XX:TieredStopAtLevel=1"), nullptr},
        {const_cast<char*>("vfprintf"), reinterpret_cast<void*>(&Print)},
    };
    JavaVMInitArgs arguments{};
    arguments.version = JNI_VERSION_1_8;
    arguments.nOptions = static_cast<jint>(sizeof(options) / sizeof(options[0]));
    arguments.options = options;
    void* env = nullptr;
    void* tools = nullptr;
    if (JNI_CreateJavaVM(&m_vm, &env, &arguments) != JNI_OK ||
        m_vm->GetEnv(&tools, JVMTI_VERSION_1_2) != JNI_OK) {
        throw std::runtime_error("no Java machine");
    }
    m_env = static_cast<JNIEnv*>(env);
    m_tools = static_cast<jvmtiEnv*>(tools);
    jvmtiCapabilities capabilities{};
    capabilities.can_tag_objects = 1;
    if (m_tools->AddCapabilities(&capabilities) != JVMTI_ERROR_NONE) {
        throw std::runtime_error("the Java machine cannot count references");
    }
    jthread thread = nullptr;
    m_tools->GetCurrentThread(&thread);
    m_tools->SetTag(thread, kThreadTag);
    m_env->DeleteLocalRef(thread);
    Tag("com/kapelo/net/CHttpClient", kClientClassTag);
    Tag("java/util/TreeMap", kClientClassTag);
    Tag("[B", kClientClassTag);
    machine = this;
    Interpose();
}

void JavaMachine::Tag(const char* className, jlong tag) {
    jclass cls = m_env->FindClass(className);
    if (cls == nullptr || m_tools->SetTag(cls, tag) != JVMTI_ERROR_NONE) {
        throw std::runtime_error(std::string("no class ") + className);
    }
    m_env->DeleteLocalRef(cls);
}

void JavaMachine::Interpose() {
    jniNativeInterface* table = nullptr;
    if (m_tools->GetJNIFunctionTable(&m_original) != JVMTI_ERROR_NONE ||
        m_tools->GetJNIFunctionTable(&table) != JVMTI_ERROR_NONE) {
        throw std::runtime_error("the Java machine does not show its functions");
    }
    table->GetStaticMethodID = &Interposed::GetStaticMethodID;
    table->CallStaticIntMethodA = &Interposed::CallStaticIntMethodA;
    table->CallStaticVoidMethodA = &Interposed::CallStaticVoidMethodA;
    table->CallStaticObjectMethodA = &Interposed::CallStaticObjectMethodA;
    table->CallStaticObjectMethodV = &Interposed::CallStaticObjectMethodV;
    if (m_tools->SetJNIFunctionTable(table) != JVMTI_ERROR_NONE) {
        throw std::runtime_error("the Java machine does not take functions");
    }
    m_tools->Deallocate(reinterpret_cast<unsigned char*>(table));
}

std::vector<std::string> JavaMachine::TakeWarnings() {
    std::string taken;
    {
        std::lock_guard<std::mutex> lock(outputMutex);
        output.swap(taken);
    }
    std::vector<std::string> warnings;
    std::istringstream lines(taken);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("WARNING", 0) == 0 || line.rfind("FATAL", 0) == 0) {
            warnings.push_back(line);
        }
    }
    return warnings;
}

JavaMachine::References JavaMachine::CountReferences() const {
    References references;
    jvmtiHeapCallbacks callbacks{};
    callbacks.heap_reference_callback = &CountReference;
    if (m_tools->FollowReferences(0, nullptr, nullptr, &callbacks, &references) !=
        JVMTI_ERROR_NONE) {
        throw std::runtime_error("the Java machine does not count references");
    }
    return references;
}

JavaClass::JavaClass(const char* name) : m_env(JavaMachine::Get().Env()), m_class(nullptr) {
    jclass found = m_env->FindClass(name);
    if (found == nullptr) {
        m_env->ExceptionDescribe();
        throw std::runtime_error(std::string("no class ") + name);
    }
    m_class = static_cast<jclass>(m_env->NewGlobalRef(found));
    m_env->DeleteLocalRef(found);
}

JavaClass::~JavaClass() {
    m_env->DeleteGlobalRef(m_class);
}

jmethodID JavaClass::Find(const char* name, const char* signature) const {
    jmethodID method = m_env->GetStaticMethodID(m_class, name, signature);
    if (method == nullptr) {
        m_env->ExceptionDescribe();
        throw std::runtime_error(std::string("no method ") + name);
    }
    return method;
}

namespace {

void ThrowWhatJavaThrew(JNIEnv* env, const char* name) {
    if (env->ExceptionCheck()) {
        env->ExceptionDescribe();
        throw std::runtime_error(std::string(name) + " threw an exception");
    }
}

}  // namespace

int JavaClass::CallInt(const char* name, const char* signature,
                       std::vector<jvalue> arguments) const {
    const int result =
        m_env->CallStaticIntMethodA(m_class, Find(name, signature), arguments.data());
    ThrowWhatJavaThrew(m_env, name);
    return result;
}

void JavaClass::CallVoid(const char* name, const char* signature,
                         std::vector<jvalue> arguments) const {
    m_env->CallStaticVoidMethodA(m_class, Find(name, signature), arguments.data());
    ThrowWhatJavaThrew(m_env, name);
}

std::string JavaClass::CallText(const char* name, const char* signature,
                                std::vector<jvalue> arguments) const {
    auto* string = static_cast<jstring>(
        m_env->CallStaticObjectMethodA(m_class, Find(name, signature), arguments.data()));
    ThrowWhatJavaThrew(m_env, name);
    if (string == nullptr) {
        return "(null)";
    }
    const char* chars = m_env->GetStringUTFChars(string, nullptr);
    std::string text = chars;
    m_env->ReleaseStringUTFChars(string, chars);
    m_env->DeleteLocalRef(string);
    return text;
}

}  // namespace kpl::test
