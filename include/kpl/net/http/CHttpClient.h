#ifndef KPL_NET_HTTP_CHTTPCLIENT_H_
#define KPL_NET_HTTP_CHTTPCLIENT_H_

#include "kpl/Export.h"
#include "kpl/net/http/IHttpClient.h"

namespace kpl::net::http {

// The HTTP client of this platform: hands everything to CHttpClientAndroid, which says what that
// means for threads, Java exceptions and request properties. A library built without
// JNI headers has no implementation: Read then returns -1, Seek -3, everything else false, 0 or
// null. One thread at a time.
class KPL_EXPORT CHttpClient : public IHttpClient {
public:
    CHttpClient();
    ~CHttpClient() override;  // closes
    CHttpClient(const CHttpClient&) = delete;
    CHttpClient& operator=(const CHttpClient&) = delete;

    bool Open(const char* url) override;
    int Read(char* buffer, int size) override;
    bool IsDataAvailable() override;
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
    IHttpClient* m_impl;  // owned; may be null
};

}  // namespace kpl::net::http

#endif  // KPL_NET_HTTP_CHTTPCLIENT_H_
