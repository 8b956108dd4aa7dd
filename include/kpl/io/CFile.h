#ifndef KPL_IO_CFILE_H_
#define KPL_IO_CFILE_H_

#include "kpl/Export.h"

namespace kpl::io {

// A file to read from: a local one, or an http:// or https:// resource read through
// net::http::CHttpClient, which needs os::android::JniContext. One thread at a time.
class KPL_EXPORT CFile {
public:
    CFile();
    ~CFile();  // closes
    CFile(const CFile&) = delete;
    CFile& operator=(const CFile&) = delete;

    // Closes what was open and opens `path`. A path that starts with "http://" or "https://"
    // (letters in either case) and has more behind it is a resource: the result is then true
    // whether or not it can be had, which the first Read shows. Any other path is a local file:
    // false when it cannot be opened. False for null and the empty path; what was open then stays
    // open.
    bool Open(const char* path);

    // Reads up to `size` bytes. Returns how many were read, fewer at the end; 0 when nothing is
    // open, at the end of a local file and when reading it fails. For a resource the result is the
    // client's: below 1 at its end and on errors, -1 when it could not be opened.
    int Read(unsigned char* buffer, unsigned int size);

    // Moves to `offset` bytes from the start (`whence` 0), the current position (1) or the end (2);
    // for a resource "the current position" is the client's own, which may be ahead of what was
    // read. Returns 0, or -1 when nothing is open, `whence` is none of these or there is no such
    // position. For a resource the result is the client's, -3 when it could not be opened; -1 for
    // an offset that does not fit in 32 bits. Where long has 32 bits a local file's offset is cut
    // to them.
    int Seek(long long offset, int whence);

    // The size in bytes; the position stays. -1 when nothing is open, when a local file has no size
    // or one above 2147483647; for a resource what the client returns, 0 when it could not be
    // opened.
    int GetFileSize();

    // Keeps `value`, which nothing reads; the option's number does not matter. Returns true.
    bool SetOption(int option, void* value);

    // Can be repeated.
    void Close();

private:
    bool IsRemote() const;

    int m_kind;      // 0 nothing, 1 local, 2 http, 3 https
    void* m_stream;  // FILE* if local, otherwise net::http::IHttpClient*, owned
    char* m_path;
    void* m_option;
};

}  // namespace kpl::io

#endif  // KPL_IO_CFILE_H_
