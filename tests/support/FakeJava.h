// A stand-in for a Java machine: records every call in order, knows which references are alive, and
// fails where a test tells it to. What the library may not call is missing from its tables.
#ifndef KPL_TESTS_SUPPORT_FAKEJAVA_H_
#define KPL_TESTS_SUPPORT_FAKEJAVA_H_

#include <jni.h>

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace kpl::test {

class FakeJava {
public:
    // The thread that makes it is attached from the start, as one that runs JNI_OnLoad is.
    FakeJava();
    ~FakeJava();
    FakeJava(const FakeJava&) = delete;
    FakeJava& operator=(const FakeJava&) = delete;

    JavaVM* Vm();
    JNIEnv* MainEnv();

    // What was called since the last time, as in "GetStaticMethodID(Read (..)I)" and
    // "CallStaticIntMethodA(Read connection1 bytes 262144)". References show what they refer to.
    std::vector<std::string> TakeCalls();

    // Uses of dead or foreign references, of the wrong call for a return type, and the like.
    std::vector<std::string> Mistakes() const;

    int LocalCount() const;  // on the main thread
    int GlobalCount() const;
    int CharsCount() const;  // texts handed out and not released

    // The exception that is pending on the main thread, as in "NoClassDefFoundError a/B"; empty for
    // none.
    std::string PendingException() const;

    // What goes wrong, and what Java returns. By name of class, method or JNI function.
    jint getEnvResult = JNI_OK;
    jint attachResult = JNI_OK;
    std::set<std::string> missingClasses;
    std::set<std::string> missingMethods;
    std::set<std::string> nullResults;  // object methods, "NewByteArray", "NewStringUTF", ...
    std::map<std::string, jint> intResults;
    std::map<std::string, std::string> textResults;
    std::deque<jint> readResults;  // of Read, in this order, then 0

    // Called for every call, in the thread that makes it.
    std::function<void(const std::string&)> onCall;

    // The bytes that Read delivers: a sequence without a short period.
    static char ByteAt(size_t position);

private:
    friend struct FakeCalls;
    struct Env;
    struct Machine;
    struct Method;
    struct Object;
    struct Reference;

    Env* EnvOfThisThread();
    void Record(const std::string& call);
    static Reference* AsReference(jobject reference);
    jobject NewReference(Env* env, const std::shared_ptr<Object>& object, bool global);
    void DeleteReference(Env* env, jobject reference, bool global);
    Object* Resolve(Env* env, jobject reference);
    std::string Describe(Env* env, jobject reference);
    std::string DescribeCall(Env* env, const Method& method, const jvalue* arguments);
    Method* Resolve(jmethodID method, char returnType);
    jobject CallForObject(Env* env, jmethodID id, const jvalue* arguments, const char* function);

    mutable std::mutex m_mutex;
    std::unique_ptr<Machine> m_machine;
    std::map<std::thread::id, std::unique_ptr<Env>> m_envs;
    std::vector<std::unique_ptr<Reference>> m_references;  // dead ones too: none is reused
    std::vector<std::unique_ptr<Method>> m_methods;
    std::vector<std::string> m_calls;
    std::vector<std::string> m_mistakes;
    std::set<const char*> m_chars;
    Env* m_main = nullptr;
    int m_connections = 0;
    size_t m_delivered = 0;
};

}  // namespace kpl::test

#endif  // KPL_TESTS_SUPPORT_FAKEJAVA_H_
