#include "tests/support/FakeJava.h"

#include <stdarg.h>
#include <string.h>

#include <algorithm>

namespace kpl::test {

struct FakeJava::Object {
    std::string description;  // how it shows in calls
    std::string text;         // of a string
    std::vector<jbyte> bytes;
};

struct FakeJava::Reference {
    std::shared_ptr<Object> object;
    Env* owner;  // of a local one; null for a global one
    bool alive;
};

struct FakeJava::Method {
    std::string name;
    std::string signature;
};

struct FakeJava::Env : JNIEnv_ {
    FakeJava* java;
    bool attached;
    std::shared_ptr<Object> exception;  // the one that is pending
};

struct FakeJava::Machine : JavaVM_ {
    FakeJava* java;
};

namespace {

std::string Quote(const std::string& text) {
    return '"' + text + '"';
}

}  // namespace

// What it hands out as references; by way of void, because they need more alignment than a jobject.
FakeJava::Reference* FakeJava::AsReference(jobject reference) {
    return static_cast<Reference*>(static_cast<void*>(reference));
}

// The functions of the tables.
struct FakeCalls {
    using Env = FakeJava::Env;

    static FakeJava* Of(JavaVM* vm) { return static_cast<FakeJava::Machine*>(vm)->java; }
    static Env* Of(JNIEnv* env) { return static_cast<Env*>(env); }

    static jint GetEnv(JavaVM* vm, void** result, jint version) {
        FakeJava* java = Of(vm);
        std::lock_guard<std::mutex> lock(java->m_mutex);
        char text[40];
        snprintf(text, sizeof(text), "GetEnv(0x%x)", static_cast<unsigned int>(version));
        java->Record(text);
        Env* env = java->EnvOfThisThread();
        const jint status = env->attached ? java->getEnvResult : JNI_EDETACHED;
        *result = status == JNI_OK ? env : nullptr;
        return status;
    }

    static jint AttachCurrentThread(JavaVM* vm, void** result, void* arguments) {
        FakeJava* java = Of(vm);
        std::lock_guard<std::mutex> lock(java->m_mutex);
        java->Record("AttachCurrentThread()");
        if (arguments != nullptr) {
            java->m_mistakes.emplace_back("attached with arguments");
        }
        if (java->attachResult >= 0) {
            Env* env = java->EnvOfThisThread();
            env->attached = true;
            *result = env;
        }
        return java->attachResult;
    }

    static jint DetachCurrentThread(JavaVM* vm) {
        FakeJava* java = Of(vm);
        std::lock_guard<std::mutex> lock(java->m_mutex);
        java->Record("DetachCurrentThread()");
        Env* env = java->EnvOfThisThread();
        if (!env->attached) {
            java->m_mistakes.emplace_back("detached twice");
        }
        env->attached = false;
        for (auto& reference : java->m_references) {
            reference->alive = reference->alive && reference->owner != env;
        }
        return JNI_OK;
    }

    static jclass FindClass(JNIEnv* jni, const char* name) {
        Env* env = Of(jni);
        std::lock_guard<std::mutex> lock(env->java->m_mutex);
        env->java->Record("FindClass(" + std::string(name) + ")");
        if (env->exception != nullptr) {
            env->java->m_mistakes.emplace_back(std::string(name) +
                                               " looked up while an exception was pending");
        }
        auto object = std::make_shared<FakeJava::Object>();
        object->description = name;
        if (env->java->missingClasses.count(name) > 0) {
            object->description = "NoClassDefFoundError " + object->description;
            env->exception = object;
            return nullptr;
        }
        return static_cast<jclass>(env->java->NewReference(env, object, false));
    }

    // Only a look, and not recorded.
    static jthrowable ExceptionOccurred(JNIEnv* jni) {
        Env* env = Of(jni);
        std::lock_guard<std::mutex> lock(env->java->m_mutex);
        if (env->exception == nullptr) {
            return nullptr;
        }
        return static_cast<jthrowable>(env->java->NewReference(env, env->exception, false));
    }

    static void ExceptionClear(JNIEnv* jni) {
        Env* env = Of(jni);
        std::lock_guard<std::mutex> lock(env->java->m_mutex);
        env->java->Record("ExceptionClear()");
        env->exception = nullptr;
    }

    static jint Throw(JNIEnv* jni, jthrowable exception) {
        Env* env = Of(jni);
        std::lock_guard<std::mutex> lock(env->java->m_mutex);
        env->java->Record("Throw(" + env->java->Describe(env, exception) + ")");
        if (env->exception != nullptr) {
            env->java->m_mistakes.emplace_back("thrown while an exception was pending");
        }
        env->exception = FakeJava::AsReference(exception)->object;
        return JNI_OK;
    }

    static jobject NewGlobalRef(JNIEnv* jni, jobject local) {
        Env* env = Of(jni);
        std::lock_guard<std::mutex> lock(env->java->m_mutex);
        env->java->Record("NewGlobalRef(" + env->java->Describe(env, local) + ")");
        if (env->java->nullResults.count("NewGlobalRef") > 0 || local == nullptr) {
            return nullptr;
        }
        auto* reference = FakeJava::AsReference(local);
        return env->java->NewReference(env, reference->object, true);
    }

    static void DeleteGlobalRef(JNIEnv* jni, jobject reference) {
        Env* env = Of(jni);
        std::lock_guard<std::mutex> lock(env->java->m_mutex);
        env->java->DeleteReference(env, reference, true);
    }

    static void DeleteLocalRef(JNIEnv* jni, jobject reference) {
        Env* env = Of(jni);
        std::lock_guard<std::mutex> lock(env->java->m_mutex);
        env->java->DeleteReference(env, reference, false);
    }

    static jmethodID GetStaticMethodID(JNIEnv* jni, jclass cls, const char* name,
                                       const char* signature) {
        Env* env = Of(jni);
        FakeJava* java = env->java;
        std::lock_guard<std::mutex> lock(java->m_mutex);
        java->Record("GetStaticMethodID(" + std::string(name) + " " + signature + ")");
        if (java->Describe(env, cls) != "com/kapelo/net/CHttpClient") {
            java->m_mistakes.emplace_back(std::string(name) + " looked up in another class");
        }
        if (java->missingMethods.count(name) > 0) {
            return nullptr;
        }
        java->m_methods.push_back(
            std::make_unique<FakeJava::Method>(FakeJava::Method{name, signature}));
        return reinterpret_cast<jmethodID>(java->m_methods.back().get());
    }

    static jstring NewStringUTF(JNIEnv* jni, const char* text) {
        Env* env = Of(jni);
        std::lock_guard<std::mutex> lock(env->java->m_mutex);
        env->java->Record("NewStringUTF(" + Quote(text) + ")");
        if (env->java->nullResults.count("NewStringUTF") > 0) {
            return nullptr;
        }
        auto object = std::make_shared<FakeJava::Object>();
        object->description = Quote(text);
        object->text = text;
        return static_cast<jstring>(env->java->NewReference(env, object, false));
    }

    static const char* GetStringUTFChars(JNIEnv* jni, jstring string, jboolean* isCopy) {
        Env* env = Of(jni);
        FakeJava* java = env->java;
        std::lock_guard<std::mutex> lock(java->m_mutex);
        java->Record("GetStringUTFChars(" + java->Describe(env, string) + ")");
        if (isCopy != nullptr) {
            java->m_mistakes.emplace_back("asked whether the text is a copy");
        }
        FakeJava::Object* object = java->Resolve(env, string);
        if (object == nullptr || java->nullResults.count("GetStringUTFChars") > 0) {
            return nullptr;
        }
        const char* chars = strdup(object->text.c_str());
        java->m_chars.insert(chars);
        return chars;
    }

    static void ReleaseStringUTFChars(JNIEnv* jni, jstring string, const char* chars) {
        Env* env = Of(jni);
        FakeJava* java = env->java;
        std::lock_guard<std::mutex> lock(java->m_mutex);
        java->Record("ReleaseStringUTFChars(" + java->Describe(env, string) + ")");
        if (java->m_chars.erase(chars) == 0) {
            java->m_mistakes.emplace_back("released a text that is not out");
            return;
        }
        // Whoever still reads it must notice.
        char* text = const_cast<char*>(chars);
        memset(text, '#', strlen(text));
        free(text);
    }

    static jbyteArray NewByteArray(JNIEnv* jni, jsize size) {
        Env* env = Of(jni);
        std::lock_guard<std::mutex> lock(env->java->m_mutex);
        env->java->Record("NewByteArray(" + std::to_string(size) + ")");
        if (env->java->nullResults.count("NewByteArray") > 0) {
            return nullptr;
        }
        auto object = std::make_shared<FakeJava::Object>();
        object->description = "bytes";
        object->bytes.resize(static_cast<size_t>(size));
        return static_cast<jbyteArray>(env->java->NewReference(env, object, false));
    }

    static void GetByteArrayRegion(JNIEnv* jni, jbyteArray array, jsize start, jsize length,
                                   jbyte* out) {
        Env* env = Of(jni);
        FakeJava* java = env->java;
        std::lock_guard<std::mutex> lock(java->m_mutex);
        java->Record("GetByteArrayRegion(" + std::to_string(start) + " " + std::to_string(length) +
                     ")");
        FakeJava::Object* object = java->Resolve(env, array);
        const jsize size = object != nullptr ? static_cast<jsize>(object->bytes.size()) : 0;
        if (start < 0 || length < 0 || length > size - start) {
            java->m_mistakes.emplace_back("a region outside the array");
            return;
        }
        std::copy_n(object->bytes.begin() + start, length, out);
    }

    static jint CallStaticIntMethodA(JNIEnv* jni, jclass, jmethodID id, const jvalue* arguments) {
        Env* env = Of(jni);
        FakeJava* java = env->java;
        std::lock_guard<std::mutex> lock(java->m_mutex);
        const FakeJava::Method* method = java->Resolve(id, 'I');
        java->Record("CallStaticIntMethodA(" + java->DescribeCall(env, *method, arguments) + ")");
        if (method->name != "Read") {
            const auto result = java->intResults.find(method->name);
            return result != java->intResults.end() ? result->second : 0;
        }
        jint count = 0;
        if (!java->readResults.empty()) {
            count = java->readResults.front();
            java->readResults.pop_front();
        }
        FakeJava::Object* buffer = java->Resolve(env, arguments[1].l);
        for (jint i = 0; buffer != nullptr && i < std::min(count, arguments[2].i); ++i) {
            buffer->bytes[static_cast<size_t>(i)] =
                static_cast<jbyte>(FakeJava::ByteAt(java->m_delivered++));
        }
        return count;
    }

    static void CallStaticVoidMethodA(JNIEnv* jni, jclass, jmethodID id, const jvalue* arguments) {
        Env* env = Of(jni);
        FakeJava* java = env->java;
        std::lock_guard<std::mutex> lock(java->m_mutex);
        const FakeJava::Method* method = java->Resolve(id, 'V');
        java->Record("CallStaticVoidMethodA(" + java->DescribeCall(env, *method, arguments) + ")");
    }

    static jobject CallStaticObjectMethodA(JNIEnv* jni, jclass, jmethodID id,
                                           const jvalue* arguments) {
        Env* env = Of(jni);
        std::lock_guard<std::mutex> lock(env->java->m_mutex);
        return env->java->CallForObject(env, id, arguments, "CallStaticObjectMethodA");
    }

    // What jni.h makes of CallStaticObjectMethod.
    static jobject CallStaticObjectMethodV(JNIEnv* jni, jclass, jmethodID id, va_list) {
        Env* env = Of(jni);
        std::lock_guard<std::mutex> lock(env->java->m_mutex);
        return env->java->CallForObject(env, id, nullptr, "CallStaticObjectMethod");
    }

    static const JNIInvokeInterface_* MachineTable() {
        static const JNIInvokeInterface_ table = [] {
            JNIInvokeInterface_ functions{};
            functions.GetEnv = &GetEnv;
            functions.AttachCurrentThread = &AttachCurrentThread;
            functions.DetachCurrentThread = &DetachCurrentThread;
            return functions;
        }();
        return &table;
    }

    static const JNINativeInterface_* EnvTable() {
        static const JNINativeInterface_ table = [] {
            JNINativeInterface_ functions{};
            functions.FindClass = &FindClass;
            functions.ExceptionOccurred = &ExceptionOccurred;
            functions.ExceptionClear = &ExceptionClear;
            functions.Throw = &Throw;
            functions.NewGlobalRef = &NewGlobalRef;
            functions.DeleteGlobalRef = &DeleteGlobalRef;
            functions.DeleteLocalRef = &DeleteLocalRef;
            functions.GetStaticMethodID = &GetStaticMethodID;
            functions.NewStringUTF = &NewStringUTF;
            functions.GetStringUTFChars = &GetStringUTFChars;
            functions.ReleaseStringUTFChars = &ReleaseStringUTFChars;
            functions.NewByteArray = &NewByteArray;
            functions.GetByteArrayRegion = &GetByteArrayRegion;
            functions.CallStaticIntMethodA = &CallStaticIntMethodA;
            functions.CallStaticVoidMethodA = &CallStaticVoidMethodA;
            functions.CallStaticObjectMethodA = &CallStaticObjectMethodA;
            functions.CallStaticObjectMethodV = &CallStaticObjectMethodV;
            return functions;
        }();
        return &table;
    }
};

FakeJava::FakeJava() : m_machine(new Machine) {
    m_machine->functions = FakeCalls::MachineTable();
    m_machine->java = this;
    m_main = EnvOfThisThread();
    m_main->attached = true;
}

FakeJava::~FakeJava() {
    for (const char* chars : m_chars) {
        free(const_cast<char*>(chars));
    }
}

JavaVM* FakeJava::Vm() {
    return m_machine.get();
}

JNIEnv* FakeJava::MainEnv() {
    return m_main;
}

std::vector<std::string> FakeJava::TakeCalls() {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::string> calls;
    calls.swap(m_calls);
    return calls;
}

std::vector<std::string> FakeJava::Mistakes() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_mistakes;
}

int FakeJava::LocalCount() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<int>(std::count_if(
        m_references.begin(), m_references.end(),
        [this](const auto& reference) { return reference->alive && reference->owner == m_main; }));
}

int FakeJava::GlobalCount() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<int>(std::count_if(
        m_references.begin(), m_references.end(),
        [](const auto& reference) { return reference->alive && reference->owner == nullptr; }));
}

std::string FakeJava::PendingException() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_main->exception != nullptr ? m_main->exception->description : "";
}

int FakeJava::CharsCount() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<int>(m_chars.size());
}

char FakeJava::ByteAt(size_t position) {
    return static_cast<char>((position * 7 + position / 251) & 0xff);
}

FakeJava::Env* FakeJava::EnvOfThisThread() {
    std::unique_ptr<Env>& env = m_envs[std::this_thread::get_id()];
    if (env == nullptr) {
        env = std::make_unique<Env>();
        env->functions = FakeCalls::EnvTable();
        env->java = this;
        env->attached = false;
    }
    return env.get();
}

void FakeJava::Record(const std::string& call) {
    m_calls.push_back(call);
    if (onCall) {
        onCall(call);
    }
}

jobject FakeJava::NewReference(Env* env, const std::shared_ptr<Object>& object, bool global) {
    m_references.push_back(
        std::make_unique<Reference>(Reference{object, global ? nullptr : env, true}));
    return reinterpret_cast<jobject>(m_references.back().get());
}

void FakeJava::DeleteReference(Env* env, jobject reference, bool global) {
    Record((global ? "DeleteGlobalRef(" : "DeleteLocalRef(") + Describe(env, reference) + ")");
    if (reference == nullptr) {
        return;
    }
    auto* deleted = AsReference(reference);
    if ((deleted->owner == nullptr) != global) {
        m_mistakes.emplace_back("deleted a reference of the other kind");
    }
    deleted->alive = false;
}

FakeJava::Object* FakeJava::Resolve(Env* env, jobject reference) {
    if (env != EnvOfThisThread() || !env->attached) {
        m_mistakes.emplace_back("an environment of another thread, or of one that is detached");
    }
    if (reference == nullptr) {
        return nullptr;
    }
    auto* resolved = AsReference(reference);
    if (!resolved->alive || (resolved->owner != nullptr && resolved->owner != env)) {
        m_mistakes.emplace_back("a dead reference to " + resolved->object->description);
    }
    return resolved->object.get();
}

std::string FakeJava::Describe(Env* env, jobject reference) {
    const Object* object = Resolve(env, reference);
    return object != nullptr ? object->description : "null";
}

// The method's name and its arguments, as the signature says.
std::string FakeJava::DescribeCall(Env* env, const Method& method, const jvalue* arguments) {
    std::string text = method.name;
    const size_t end = method.signature.find(')');
    for (size_t i = 1; i < end && arguments != nullptr; ++i, ++arguments) {
        const bool number = method.signature[i] == 'I';
        text += ' ' + (number ? std::to_string(arguments->i) : Describe(env, arguments->l));
        if (method.signature[i] == 'L') {
            i = method.signature.find(';', i);
        } else if (method.signature[i] == '[') {
            ++i;
        }
    }
    return text;
}

FakeJava::Method* FakeJava::Resolve(jmethodID id, char returnType) {
    auto* method = reinterpret_cast<Method*>(id);
    if (method->signature[method->signature.find(')') + 1] != returnType) {
        m_mistakes.emplace_back(method->name + " called for another type");
    }
    return method;
}

jobject FakeJava::CallForObject(Env* env, jmethodID id, const jvalue* arguments,
                                const char* function) {
    const Method* method = Resolve(id, 'L');
    Record(std::string(function) + "(" + DescribeCall(env, *method, arguments) + ")");
    if (nullResults.count(method->name) > 0) {
        return nullptr;
    }
    auto object = std::make_shared<Object>();
    if (method->name == "Open") {
        object->description = "connection" + std::to_string(++m_connections);
    } else if (method->name == "CreateRequestPropertyMap") {
        object->description = "map";
    } else {
        const auto result = textResults.find(method->name);
        object->text = result != textResults.end() ? result->second : "the " + method->name;
        object->description = Quote(object->text);
    }
    return NewReference(env, object, false);
}

}  // namespace kpl::test
