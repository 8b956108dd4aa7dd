// A user of the HTTP client where the library has no implementation of it.
#include "kpl/net/http/CHttpClient.h"

int main() {
    kpl::net::http::CHttpClient client;
    char byte = 0;
    const bool opened = client.Open("http://127.0.0.1/");
    const int read = client.Read(&byte, 1);
    const int sought = client.Seek(0, kpl::net::http::IHttpClient::SEEK_FLAG_BEGIN);
    return !opened && read == -1 && sought == -3 ? 0 : 1;
}
