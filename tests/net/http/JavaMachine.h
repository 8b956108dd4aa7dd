// A real Java machine in the test process, made on first use, with -Xcheck:jni. Its thread is the
// one that initialises the JniContext. A process can make only one, and it stays until the process
// ends.
#ifndef KPL_TESTS_NET_HTTP_JAVAMACHINE_H_
#define KPL_TESTS_NET_HTTP_JAVAMACHINE_H_

#include <jni.h>
#include <jvmti.h>

#include <atomic>
#include <string>
#include <vector>

namespace kpl::test {

class JavaMachine {
public:
    static JavaMachine& Get();
    JavaMachine(const JavaMachine&) = delete;
    JavaMachine& operator=(const JavaMachine&) = delete;

    JavaVM* Vm() const { return m_vm; }
    JNIEnv* Env() const { return m_env; }  // of the thread that called Get first

    // The warnings that the machine has printed since the last time; at most one line each.
    std::vector<std::string> TakeWarnings();

    // References that native code holds: local ones of this thread, and the global ones to what the
    // client keeps (the Java machine has many of its own).
    struct References {
        int local = 0;
        int global = 0;
    };
    References CountReferences() const;

    // The library does not look for exceptions after it has called Java, of which -Xcheck:jni warns
    // every time. Unless a test switches it off, the look is taken here, after every call, so that
    // the other warnings stand out and an exception does not go unnoticed.
    void LookForExceptions(bool on) { m_lookForExceptions = on; }
    int ExceptionCount() const { return m_exceptions; }

    // Lets the look-up of CreateRequestPropertyMap find the method that Java has, "()L...".
    void FindPropertyMap(bool on) { m_findPropertyMap = on; }

private:
    friend struct Interposed;

    JavaMachine();
    ~JavaMachine() = default;

    void Interpose();
    void Tag(const char* className, jlong tag);

    JavaVM* m_vm = nullptr;
    JNIEnv* m_env = nullptr;
    jvmtiEnv* m_tools = nullptr;
    jniNativeInterface* m_original = nullptr;
    std::atomic<bool> m_lookForExceptions{true};
    std::atomic<bool> m_findPropertyMap{false};
    std::atomic<int> m_exceptions{0};
};

// Calls of static Java methods from the thread that made the machine; what they throw ends the
// test.
class JavaClass {
public:
    explicit JavaClass(const char* name);
    ~JavaClass();
    JavaClass(const JavaClass&) = delete;
    JavaClass& operator=(const JavaClass&) = delete;

    int CallInt(const char* name, const char* signature, std::vector<jvalue> arguments = {}) const;
    void CallVoid(const char* name, const char* signature,
                  std::vector<jvalue> arguments = {}) const;
    std::string CallText(const char* name, const char* signature,
                         std::vector<jvalue> arguments = {}) const;

private:
    jmethodID Find(const char* name, const char* signature) const;

    JNIEnv* m_env;
    jclass m_class;
};

}  // namespace kpl::test

#endif  // KPL_TESTS_NET_HTTP_JAVAMACHINE_H_
