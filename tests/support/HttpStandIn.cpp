#include "tests/support/HttpStandIn.h"

#include <algorithm>

#include "kpl/net/http/CHttpClient.h"

namespace kpl::test {

HttpStandIn& HttpStandIn::Get() {
    static HttpStandIn standIn;
    return standIn;
}

}  // namespace kpl::test

namespace kpl::net::http {

using test::HttpStandIn;

namespace {

void Note(const std::string& call) {
    HttpStandIn::Get().calls.push_back(call);
}

}  // namespace

CHttpClient::CHttpClient() : m_impl(nullptr) {
    ++HttpStandIn::Get().alive;
}

CHttpClient::~CHttpClient() {
    delete m_impl;  // null
    Note("destroy");
    --HttpStandIn::Get().alive;
}

bool CHttpClient::Open(const char* url) {
    Note(std::string("Open ") + url);
    return HttpStandIn::Get().opens;
}

int CHttpClient::Read(char* buffer, int size) {
    HttpStandIn& server = HttpStandIn::Get();
    Note("Read " + std::to_string(size));
    if (buffer == nullptr || size < 1) {
        return -2;
    }
    const size_t count =
        std::min({static_cast<size_t>(size), server.content.size(), server.pieceSize});
    std::copy_n(server.content.data(), count, buffer);
    server.content.erase(0, count);
    return static_cast<int>(count);
}

int CHttpClient::Seek(int offset, SeekFlag flag) {
    Note("Seek " + std::to_string(offset) + " " + std::to_string(flag));
    return HttpStandIn::Get().seekResult;
}

void CHttpClient::Close() {
    Note("Close");
}

int CHttpClient::GetTotalLength() {
    Note("GetTotalLength");
    return HttpStandIn::Get().length;
}

bool CHttpClient::IsDataAvailable() {
    return false;
}

int CHttpClient::GetResposnseCode() {
    return 0;
}

const char* CHttpClient::GetResponseText() {
    return nullptr;
}

const char* CHttpClient::GetResponseProperty(const char*) {
    return nullptr;
}

void CHttpClient::SetRequestProperty(const char*, const char*) {}

const char* CHttpClient::GetRequestProperty(const char*) {
    return nullptr;
}

const char* CHttpClient::GetUrl() {
    return nullptr;
}

const char* CHttpClient::GetConnectedUrl() {
    return nullptr;
}

}  // namespace kpl::net::http
