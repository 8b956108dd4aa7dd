#ifndef KPL_NET_HTTP_CHTTPCLIENTANDROID_H_
#define KPL_NET_HTTP_CHTTPCLIENTANDROID_H_

#include <string>

#include "kpl/Export.h"
#include "kpl/net/http/IHttpClient.h"
#include "kpl/os/android/JniTypes.h"

namespace kpl::net::http {

// The HTTP client whose work the Java class com/kapelo/net/CHttpClient does. The process must have
// listed that name in JniContext::Initialize before the client is made; without the class every
// operation reports a method that cannot be found. In the library only where it was built with JNI
// headers.
//
// Every operation attaches the calling thread to the Java machine and detaches it at the end,
// unless it is the thread that initialised the JniContext. A thread that the application attached
// itself is therefore detached by the first operation on it; let such a thread attach again
// afterwards. One thread at a time, not always the same one.
//
// Request properties need a Java machine that finds a static method of the signature
// "(V)Ljava/lang/Object;", in which V stands as a parameter. No method written in Java has that
// signature and a usual machine finds none: SetRequestProperty then reports "Cannot find method
// CreateRequestPropertyMap" and leaves a NoSuchMethodError pending. The signature is part of the
// agreement with the Java side and stays as it is.
//
// A Java exception is neither looked at nor cleared. After a method was not found one is pending.
// On the initialising thread it stays, and the application must take it (ExceptionClear) before the
// next call: JNI does not say what calls do with an exception pending. On any other thread it ends
// with the detaching, in the application's handler of uncaught exceptions.
class KPL_EXPORT CHttpClientAndroid : public IHttpClient {
public:
    CHttpClientAndroid();
    ~CHttpClientAndroid() override;  // closes, and releases everything on the Java side
    CHttpClientAndroid(const CHttpClientAndroid&) = delete;
    CHttpClientAndroid& operator=(const CHttpClientAndroid&) = delete;

    // Closes what is open, and then sends the request with the properties that are set. Closing
    // drops properties, so they are set while nothing is open. True as soon as there is a read
    // buffer, also when Java returned no connection; every other operation fails then. False with
    // a forced message when the method or the memory is missing.
    bool Open(const char* url) override;

    // Takes the bytes in the read buffer first and has Java refill it (262144 bytes at most) while
    // bytes are wanted. What Java returns below 1, at the end of the stream or on an error, is
    // forced to the log and returned if no byte was read.
    int Read(char* buffer, int size) override;

    bool IsDataAvailable() override;

    // Returns what Java returns; 0 or more empties the read buffer. SEEK_FLAG_CURRENT counts from
    // the end of what Java has delivered, which is ahead of what Read has handed out.
    int Seek(int offset, SeekFlag flag) override;

    void Close() override;
    int GetTotalLength() override;
    int GetResposnseCode() override;
    const char* GetResponseText() override;
    const char* GetResponseProperty(const char* name) override;
    void SetRequestProperty(const char* name, const char* value) override;
    const char* GetRequestProperty(const char* name) override;
    const char* GetUrl() override;
    const char* GetConnectedUrl() override;

private:
    int TakeBuffered(JNIEnv* env, char* buffer, int size);
    int Refill(JNIEnv* env, char* buffer, int size, int copied);
    bool CreateRequestProperties(JNIEnv* env);
    void Forget(JNIEnv* env);

    jclass m_class;  // the context's
    // Global references, owned.
    jobject m_object;             // the connection; null when closed
    jobject m_requestProperties;  // null until the first SetRequestProperty
    jbyteArray m_buffer;
    int m_position;  // of the next unread byte in the buffer
    int m_count;     // of unread bytes
    std::string m_responseText;
    std::string m_responseProperty;
    std::string m_requestProperty;
    std::string m_url;
    std::string m_connectedUrl;
};

}  // namespace kpl::net::http

#endif  // KPL_NET_HTTP_CHTTPCLIENTANDROID_H_
