#include "FetchFault.h"

#include "kpl/io/CFile.h"
#include "kpl/net/http/CHttpClient.h"

std::string WhyNoLines(const char* path) {
    kpl::io::CFile file;
    if (!file.Open(path)) {
        return "cannot be opened";
    }
    unsigned char byte = 0;
    if (file.Read(&byte, 1) > 0) {
        return file.GetFileSize() < 1 ? "has no known length" : "has no lines";
    }
    // A local file reads 0 bytes, an address that nobody can fetch gives an error.
    if (file.Read(&byte, 1) < 0 && !kpl::net::http::CHttpClient().Open(path)) {
        return "an address needs the Java bridge, and this process has no Java machine";
    }
    return "is empty or cannot be read";
}
