#include "kpl/io/CFile.h"

#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <strings.h>
#include <sys/types.h>

#include <algorithm>

#include "kpl/net/http/CHttpClient.h"

namespace kpl::io {

namespace {

enum Kind { NOTHING = 0, LOCAL = 1, HTTP = 2, HTTPS = 3 };

using net::http::CHttpClient;
using net::http::IHttpClient;

FILE* AsFile(void* stream) {
    return static_cast<FILE*>(stream);
}

IHttpClient* AsClient(void* stream) {
    return static_cast<IHttpClient*>(stream);
}

// Whether `path` starts with `scheme`, its letters in either case, and "://", and goes on.
bool HasScheme(const char* path, const char* scheme) {
    const size_t length = strlen(scheme);
    return strncasecmp(path, scheme, length) == 0 && strncmp(path + length, "://", 3) == 0 &&
           path[length + 3] != '\0';
}

char* NewCopy(const char* s) {
    const size_t size = strlen(s) + 1;
    auto* copy = new char[size];
    std::copy_n(s, size, copy);
    return copy;
}

int KindOf(const char* path) {
    if (HasScheme(path, "http")) {
        return HTTP;
    }
    return HasScheme(path, "https") ? HTTPS : LOCAL;
}

// Opening a FIFO waits, and a signal may end that.
FILE* OpenLocal(const char* path) {
    FILE* file = nullptr;
    do {
        file = fopen(path, "rbe");
    } while (file == nullptr && errno == EINTR);
    return file;
}

// A signal may end the wait for the bytes of a FIFO; that is not their end.
size_t ReadLocal(FILE* file, unsigned char* buffer, size_t size) {
    size_t count = fread(buffer, 1, size, file);
    while (count < size && ferror(file) != 0 && errno == EINTR) {
        clearerr(file);
        count += fread(buffer + count, 1, size - count, file);
    }
    return count;
}

// A number that is cut would be another place, so it is refused instead.
int SeekRemote(IHttpClient* client, long long offset, int whence) {
    if (offset < INT_MIN || offset > INT_MAX || whence < SEEK_SET || whence > SEEK_END) {
        return -1;
    }
    return client->Seek(static_cast<int>(offset), static_cast<IHttpClient::SeekFlag>(whence));
}

int LocalSize(FILE* file) {
    // Not ftell and fseek: where long has 32 bits they lose a position above 2 GiB.
    const off_t before = ftello(file);
    fseeko(file, 0, SEEK_END);
    const off_t size = ftello(file);
    fseeko(file, before, SEEK_SET);
    return size <= INT_MAX ? static_cast<int>(size) : -1;
}

}  // namespace

CFile::CFile() : m_kind(NOTHING), m_stream(nullptr), m_path(nullptr), m_option(nullptr) {}

CFile::~CFile() {
    Close();
}

bool CFile::IsRemote() const {
    return m_kind == HTTP || m_kind == HTTPS;
}

bool CFile::Open(const char* path) {
    if (path == nullptr || *path == '\0') {
        return false;
    }
    Close();
    m_path = NewCopy(path);
    m_kind = KindOf(path);
    if (IsRemote()) {
        IHttpClient* client = new CHttpClient();
        m_stream = client;
        (void)client->Open(path);  // a failure shows in what is asked for next
        return true;
    }
    m_stream = OpenLocal(path);
    if (m_stream == nullptr) {
        delete[] m_path;
        m_path = nullptr;
        return false;
    }
    return true;
}

int CFile::Read(unsigned char* buffer, unsigned int size) {
    if (m_stream == nullptr) {
        return 0;
    }
    const unsigned int count = std::min<unsigned int>(size, INT_MAX);
    if (IsRemote()) {
        return AsClient(m_stream)->Read(reinterpret_cast<char*>(buffer), static_cast<int>(count));
    }
    return buffer != nullptr ? static_cast<int>(ReadLocal(AsFile(m_stream), buffer, count)) : 0;
}

int CFile::Seek(long long offset, int whence) {
    if (m_stream == nullptr) {
        return -1;
    }
    if (IsRemote()) {
        return SeekRemote(AsClient(m_stream), offset, whence);
    }
    return fseek(AsFile(m_stream), static_cast<long>(offset), whence);
}

int CFile::GetFileSize() {
    if (m_stream == nullptr) {
        return -1;
    }
    return IsRemote() ? AsClient(m_stream)->GetTotalLength() : LocalSize(AsFile(m_stream));
}

bool CFile::SetOption(int, void* value) {
    m_option = value;
    return true;
}

void CFile::Close() {
    if (m_stream == nullptr) {
        return;
    }
    if (IsRemote()) {
        AsClient(m_stream)->Close();
        delete AsClient(m_stream);
    } else {
        fclose(AsFile(m_stream));
    }
    delete[] m_path;
    m_path = nullptr;
    m_kind = NOTHING;
    m_stream = nullptr;
}

}  // namespace kpl::io
