#include "kpl/net/http/CHttpClientAndroid.h"

#include <jni.h>
#include <stdint.h>

#include <algorithm>

#include "kpl/os/android/JniContext.h"
#include "kpl/tools/DebugLog.h"

namespace kpl::net::http {

using os::android::JniContext;
using tools::DumpDbgMsg;
using tools::ForceDumpDbgMsg;

namespace {

constexpr jint kBufferSize = 0x40000;

// The Java machine for the time of one operation; no environment, nothing to detach.
class Attached {
public:
    Attached() : env(JniContext::GetInstance().AttachThread()) {}
    ~Attached() {
        if (env != nullptr) {
            JniContext::GetInstance().DetachThread();
        }
    }
    Attached(const Attached&) = delete;
    Attached& operator=(const Attached&) = delete;

    JNIEnv* const env;
};

// A local reference that goes with its scope: the initialising thread stays attached, so what is
// left there is never released.
template <typename Ref>
class Local {
public:
    Local(JNIEnv* env, Ref ref) : m_env(env), m_ref(ref) {}
    ~Local() {
        if (m_ref != nullptr) {
            m_env->DeleteLocalRef(m_ref);
        }
    }
    Local(const Local&) = delete;
    Local& operator=(const Local&) = delete;

    Ref Get() const { return m_ref; }

private:
    JNIEnv* const m_env;
    const Ref m_ref;
};

// The global reference that takes a local one's place; null for null. Kept across calls, objects
// must be global: a local reference ends with the detaching.
template <typename Ref>
Ref MakeGlobal(JNIEnv* env, Ref ref) {
    const Local<Ref> local(env, ref);
    return ref != nullptr ? static_cast<Ref>(env->NewGlobalRef(ref)) : nullptr;
}

template <typename Ref>
void DropGlobal(JNIEnv* env, Ref& ref) {
    if (ref != nullptr) {
        env->DeleteGlobalRef(ref);
        ref = nullptr;
    }
}

bool IsEmpty(const char* text) {
    return text == nullptr || *text == '\0';
}

jvalue Value(jobject object) {
    jvalue value{};
    value.l = object;
    return value;
}

jvalue Value(int number) {
    jvalue value{};
    value.i = number;
    return value;
}

// A class that was not loaded has no methods.
jmethodID LookUp(JNIEnv* env, jclass cls, const char* name, const char* signature) {
    return cls != nullptr ? env->GetStaticMethodID(cls, name, signature) : nullptr;
}

jmethodID FindMethod(JNIEnv* env, jclass cls, const char* operation, const char* name,
                     const char* signature) {
    jmethodID method = LookUp(env, cls, name, signature);
    if (method == nullptr) {
        ForceDumpDbgMsg("CHttpClientAndroid::%s(): ?????? Cannot find method\n", operation);
    }
    return method;
}

// The methods that bear their operation's name.
jmethodID FindMethod(JNIEnv* env, jclass cls, const char* name, const char* signature) {
    return FindMethod(env, cls, name, name, signature);
}

// False if the method could not be called.
bool CallForInt(jclass cls, const char* operation, const char* name, const char* signature,
                const jvalue* arguments, int* result) {
    const Attached java;
    if (java.env == nullptr) {
        return false;
    }
    jmethodID method = FindMethod(java.env, cls, operation, name, signature);
    if (method == nullptr) {
        return false;
    }
    *result = java.env->CallStaticIntMethodA(cls, method, arguments);
    DumpDbgMsg("CHttpClientAndroid::%s(): %d\n", operation, *result);
    return true;
}

// Asks the connection for a number; 0 if it cannot be asked.
int AskForInt(jclass cls, const char* operation, const char* name, jobject connection) {
    int result = 0;
    const jvalue arguments[] = {Value(connection)};
    CallForInt(cls, operation, name, "(Lcom/kapelo/net/CHttpClient;)I", arguments, &result);
    return result;
}

// Copies what a Java string holds; null, with an empty copy, for none.
const char* CopyText(JNIEnv* env, jobject object, std::string& copy) {
    auto* string = static_cast<jstring>(object);
    const char* chars = string != nullptr ? env->GetStringUTFChars(string, nullptr) : nullptr;
    if (chars == nullptr) {
        copy.clear();
        return nullptr;
    }
    copy = chars;
    env->ReleaseStringUTFChars(string, chars);
    return copy.c_str();
}

const char* CallForText(JNIEnv* env, jclass cls, jmethodID method, const char* operation,
                        const jvalue* arguments, std::string& copy) {
    const Local<jobject> string(env, env->CallStaticObjectMethodA(cls, method, arguments));
    const char* text = CopyText(env, string.Get(), copy);
    DumpDbgMsg("CHttpClientAndroid::%s(): %s\n", operation, text != nullptr ? text : "(null)");
    return text;
}

// Asks the connection for a text, which `copy` then holds; null if there is none.
const char* AskForText(jclass cls, const char* operation, jobject connection, std::string& copy) {
    const Attached java;
    if (java.env == nullptr) {
        return nullptr;
    }
    jmethodID method =
        FindMethod(java.env, cls, operation, "(Lcom/kapelo/net/CHttpClient;)Ljava/lang/String;");
    const jvalue arguments[] = {Value(connection)};
    return method != nullptr ? CallForText(java.env, cls, method, operation, arguments, copy)
                             : nullptr;
}

// The same for the property `name` of `owner`, a connection or a map.
const char* AskForProperty(jclass cls, const char* operation, const char* signature, jobject owner,
                           const char* name, std::string& copy) {
    const Attached java;
    if (java.env == nullptr) {
        return nullptr;
    }
    jmethodID method = FindMethod(java.env, cls, operation, signature);
    if (method == nullptr) {
        return nullptr;
    }
    const Local<jstring> javaName(java.env, java.env->NewStringUTF(name));
    const jvalue arguments[] = {Value(owner), Value(javaName.Get())};
    return javaName.Get() != nullptr
               ? CallForText(java.env, cls, method, operation, arguments, copy)
               : nullptr;
}

}  // namespace

CHttpClientAndroid::CHttpClientAndroid()
    : m_class(JniContext::GetInstance().GetJavaClass("com/kapelo/net/CHttpClient")),
      m_object(nullptr),
      m_requestProperties(nullptr),
      m_buffer(nullptr),
      m_position(0),
      m_count(0) {}

CHttpClientAndroid::~CHttpClientAndroid() {
    CHttpClientAndroid::Close();
    // What there was nothing to close for: properties, or the buffer of an open without a result.
    if (m_object != nullptr || m_requestProperties != nullptr || m_buffer != nullptr) {
        const Attached java;
        if (java.env != nullptr) {
            Forget(java.env);
        }
    }
}

bool CHttpClientAndroid::Open(const char* url) {
    if (IsEmpty(url)) {
        return false;
    }
    const std::string ownUrl(url);  // it may be a text of this client's, which closing clears
    if (m_object != nullptr) {
        Close();  // before attaching: it ends with detaching this thread
    }
    const Attached java;
    JNIEnv* env = java.env;
    if (env == nullptr) {
        return false;
    }
    jmethodID method = FindMethod(
        env, m_class, "Open", "(Ljava/lang/String;Ljava/lang/Object;)Lcom/kapelo/net/CHttpClient;");
    const Local<jstring> javaUrl(env,
                                 method != nullptr ? env->NewStringUTF(ownUrl.c_str()) : nullptr);
    if (javaUrl.Get() == nullptr) {
        return false;
    }
    // Left by a close that failed, or by an open without a result.
    DropGlobal(env, m_object);
    DropGlobal(env, m_buffer);
    m_position = 0;
    m_count = 0;
    const jvalue arguments[] = {Value(javaUrl.Get()), Value(m_requestProperties)};
    m_object = MakeGlobal(env, env->CallStaticObjectMethodA(m_class, method, arguments));
    DumpDbgMsg("CHttpClientAndroid::Open(): Object=%x\n",
               static_cast<unsigned int>(reinterpret_cast<uintptr_t>(m_object)));
    m_buffer = MakeGlobal(env, env->NewByteArray(kBufferSize));
    if (m_buffer == nullptr) {
        ForceDumpDbgMsg("CHttpClientAndroid::Open(): ?????? Allocate buffer failed.\n");
        return false;
    }
    return true;
}

int CHttpClientAndroid::Read(char* buffer, int size) {
    if (m_object == nullptr || m_buffer == nullptr) {
        return -1;
    }
    if (buffer == nullptr || size < 1) {
        return -2;
    }
    const Attached java;
    if (java.env == nullptr) {
        return -1;
    }
    const int taken = TakeBuffered(java.env, buffer, size);
    return taken == size ? taken : Refill(java.env, buffer, size, taken);
}

// Hands out unread bytes of the Java buffer; returns how many.
int CHttpClientAndroid::TakeBuffered(JNIEnv* env, char* buffer, int size) {
    const int taken = std::min(size, m_count);
    if (taken > 0) {
        env->GetByteArrayRegion(m_buffer, m_position, taken, reinterpret_cast<jbyte*>(buffer));
        m_count -= taken;
        m_position = m_count > 0 ? m_position + taken : 0;
    }
    return taken;
}

// Goes on after `copied` bytes until there are `size`. Bytes already copied are not reported when
// the method is missing.
int CHttpClientAndroid::Refill(JNIEnv* env, char* buffer, int size, int copied) {
    jmethodID method = FindMethod(env, m_class, "Read", "(Lcom/kapelo/net/CHttpClient;[BI)I");
    if (method == nullptr) {
        return 0;
    }
    const jvalue arguments[] = {Value(m_object), Value(m_buffer), Value(kBufferSize)};
    while (copied < size) {
        const jint returned = env->CallStaticIntMethodA(m_class, method, arguments);
        if (returned < 1) {
            ForceDumpDbgMsg("CHttpClientAndroid::Read(): ?????? Ret=%d\n", returned);
            return copied > 0 ? copied : returned;
        }
        m_position = 0;
        m_count = std::min(returned, kBufferSize);
        copied += TakeBuffered(env, buffer + copied, size - copied);
    }
    return copied;
}

bool CHttpClientAndroid::IsDataAvailable() {
    return m_object != nullptr &&
           AskForInt(m_class, "IsDataAvailable", "GetAvailableDataLength", m_object) > 0;
}

int CHttpClientAndroid::Seek(int offset, SeekFlag flag) {
    if (m_object == nullptr) {
        return -3;
    }
    int result = -3;
    const jvalue arguments[] = {Value(m_object), Value(offset), Value(static_cast<int>(flag))};
    if (CallForInt(m_class, "Seek", "Seek", "(Lcom/kapelo/net/CHttpClient;II)I", arguments,
                   &result) &&
        result >= 0) {
        m_position = 0;
        m_count = 0;
    }
    return result;
}

void CHttpClientAndroid::Close() {
    if (m_object == nullptr) {
        return;
    }
    const Attached java;
    if (java.env == nullptr) {
        return;
    }
    jmethodID method = FindMethod(java.env, m_class, "Close", "(Lcom/kapelo/net/CHttpClient;)V");
    if (method == nullptr) {
        return;
    }
    const jvalue arguments[] = {Value(m_object)};
    java.env->CallStaticVoidMethodA(m_class, method, arguments);
    Forget(java.env);
}

void CHttpClientAndroid::Forget(JNIEnv* env) {
    DropGlobal(env, m_buffer);
    DropGlobal(env, m_object);
    DropGlobal(env, m_requestProperties);
    m_position = 0;
    m_count = 0;
    for (std::string* text :
         {&m_responseText, &m_responseProperty, &m_requestProperty, &m_url, &m_connectedUrl}) {
        text->clear();
    }
}

int CHttpClientAndroid::GetTotalLength() {
    return m_object != nullptr ? AskForInt(m_class, "GetTotalLength", "GetTotalLength", m_object)
                               : 0;
}

int CHttpClientAndroid::GetResposnseCode() {
    return m_object != nullptr
               ? AskForInt(m_class, "GetResposnseCode", "GetResposnseCode", m_object)
               : 0;
}

const char* CHttpClientAndroid::GetResponseText() {
    return m_object != nullptr ? AskForText(m_class, "GetResponseText", m_object, m_responseText)
                               : nullptr;
}

const char* CHttpClientAndroid::GetResponseProperty(const char* name) {
    if (m_object == nullptr || IsEmpty(name)) {
        return nullptr;
    }
    return AskForProperty(m_class, "GetResponseProperty",
                          "(Lcom/kapelo/net/CHttpClient;Ljava/lang/String;)Ljava/lang/String;",
                          m_object, name, m_responseProperty);
}

void CHttpClientAndroid::SetRequestProperty(const char* name, const char* value) {
    if (IsEmpty(name)) {
        return;
    }
    const Attached java;
    JNIEnv* env = java.env;
    if (env == nullptr || !CreateRequestProperties(env)) {
        return;
    }
    jmethodID method = FindMethod(env, m_class, "SetRequestProperty",
                                  "(Ljava/lang/Object;Ljava/lang/String;Ljava/lang/String;)V");
    if (method == nullptr) {
        return;
    }
    const Local<jstring> javaName(env, env->NewStringUTF(name));
    const Local<jstring> javaValue(env, env->NewStringUTF(value != nullptr ? value : ""));
    if (javaName.Get() == nullptr || javaValue.Get() == nullptr) {
        return;
    }
    const jvalue arguments[] = {Value(m_requestProperties), Value(javaName.Get()),
                                Value(javaValue.Get())};
    env->CallStaticVoidMethodA(m_class, method, arguments);
}

// Makes the map unless there is one. The signature is not one that Java can express (a V among the
// parameters): it is the agreement with the Java side, and must be found as it stands or not at
// all.
bool CHttpClientAndroid::CreateRequestProperties(JNIEnv* env) {
    if (m_requestProperties != nullptr) {
        return true;
    }
    jmethodID method = LookUp(env, m_class, "CreateRequestPropertyMap", "(V)Ljava/lang/Object;");
    if (method == nullptr) {
        ForceDumpDbgMsg(
            "CHttpClientAndroid::SetRequestProperty(): ?????? Cannot find method "
            "CreateRequestPropertyMap\n");
        return false;
    }
    m_requestProperties = MakeGlobal(env, env->CallStaticObjectMethod(m_class, method));
    if (m_requestProperties == nullptr) {
        ForceDumpDbgMsg(
            "CHttpClientAndroid::SetRequestProperty(): ?????? Cannot create request property "
            "map\n");
        return false;
    }
    return true;
}

const char* CHttpClientAndroid::GetRequestProperty(const char* name) {
    if (m_requestProperties == nullptr || IsEmpty(name)) {
        return nullptr;
    }
    return AskForProperty(m_class, "GetRequestProperty",
                          "(Ljava/lang/Object;Ljava/lang/String;)Ljava/lang/String;",
                          m_requestProperties, name, m_requestProperty);
}

const char* CHttpClientAndroid::GetUrl() {
    return m_object != nullptr ? AskForText(m_class, "GetUrl", m_object, m_url) : nullptr;
}

const char* CHttpClientAndroid::GetConnectedUrl() {
    return m_object != nullptr ? AskForText(m_class, "GetConnectedUrl", m_object, m_connectedUrl)
                               : nullptr;
}

}  // namespace kpl::net::http
