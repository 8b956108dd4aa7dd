#include "kpl/net/http/CHttpClient.h"

#ifdef KPL_HAS_JNI
#include "kpl/net/http/CHttpClientAndroid.h"
#endif

namespace kpl::net::http {

namespace {

IHttpClient* CreateImplementation() {
#ifdef KPL_HAS_JNI
    return new CHttpClientAndroid;
#else
    return nullptr;
#endif
}

}  // namespace

CHttpClient::CHttpClient() : m_impl(CreateImplementation()) {}

CHttpClient::~CHttpClient() {
    delete m_impl;
}

bool CHttpClient::Open(const char* url) {
    return m_impl != nullptr && m_impl->Open(url);
}

int CHttpClient::Read(char* buffer, int size) {
    return m_impl != nullptr ? m_impl->Read(buffer, size) : -1;
}

bool CHttpClient::IsDataAvailable() {
    return m_impl != nullptr && m_impl->IsDataAvailable();
}

int CHttpClient::Seek(int offset, SeekFlag flag) {
    return m_impl != nullptr ? m_impl->Seek(offset, flag) : -3;
}

void CHttpClient::Close() {
    if (m_impl != nullptr) {
        m_impl->Close();
    }
}

int CHttpClient::GetTotalLength() {
    return m_impl != nullptr ? m_impl->GetTotalLength() : 0;
}

int CHttpClient::GetResposnseCode() {
    return m_impl != nullptr ? m_impl->GetResposnseCode() : 0;
}

const char* CHttpClient::GetResponseText() {
    return m_impl != nullptr ? m_impl->GetResponseText() : nullptr;
}

const char* CHttpClient::GetResponseProperty(const char* name) {
    return m_impl != nullptr ? m_impl->GetResponseProperty(name) : nullptr;
}

void CHttpClient::SetRequestProperty(const char* name, const char* value) {
    if (m_impl != nullptr) {
        m_impl->SetRequestProperty(name, value);
    }
}

const char* CHttpClient::GetRequestProperty(const char* name) {
    return m_impl != nullptr ? m_impl->GetRequestProperty(name) : nullptr;
}

const char* CHttpClient::GetUrl() {
    return m_impl != nullptr ? m_impl->GetUrl() : nullptr;
}

const char* CHttpClient::GetConnectedUrl() {
    return m_impl != nullptr ? m_impl->GetConnectedUrl() : nullptr;
}

}  // namespace kpl::net::http
