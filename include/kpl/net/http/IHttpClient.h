#ifndef KPL_NET_HTTP_IHTTPCLIENT_H_
#define KPL_NET_HTTP_IHTTPCLIENT_H_

#include "kpl/Export.h"

namespace kpl::net::http {

// A client that reads one HTTP or HTTPS resource at a time. One thread at a time.
// Strings are zero-terminated, in UTF-8. A returned string belongs to the client; it stays until
// the next call of the same operation, or Close.
class KPL_EXPORT IHttpClient {
public:
    // What an offset counts from: the numbers of the C library's SEEK_SET, SEEK_CUR and SEEK_END.
    enum SeekFlag { SEEK_FLAG_BEGIN = 0, SEEK_FLAG_CURRENT = 1, SEEK_FLAG_END = 2 };

    virtual ~IHttpClient() = default;

    // Opens `url`, closing what was open. False for null or an empty string and when the client
    // cannot work at all. True does not say that the server has answered: see GetResposnseCode.
    virtual bool Open(const char* url) = 0;

    // Reads up to `size` bytes. Returns how many, below `size` only at the end or after an error;
    // -1 when nothing is open, -2 for a null buffer or a size below 1; where no byte was read, what
    // the implementation says of the end and of errors.
    virtual int Read(char* buffer, int size) = 0;

    // Whether bytes have arrived that Read would have to fetch; what it has fetched does not count.
    virtual bool IsDataAvailable() = 0;

    // Moves the reading position. Negative on failure, and then nothing has moved; -3 when nothing
    // is open.
    virtual int Seek(int offset, SeekFlag flag) = 0;

    // Ends the connection and drops its strings and its request properties.
    virtual void Close() = 0;

    // The resource's length in bytes; 0 when nothing is open, negative when it is not known.
    virtual int GetTotalLength() = 0;

    // The status code of the answer (200, 404, ...); 0 when nothing is open. The spelling is fixed.
    virtual int GetResposnseCode() = 0;

    // The text that came with the status code ("Not Found"); null when nothing is open.
    virtual const char* GetResponseText() = 0;

    // A header of the answer, by name; null when it is not there or nothing is open.
    virtual const char* GetResponseProperty(const char* name) = 0;

    // Sets a header of the request that the next Open sends; a null value is an empty one.
    virtual void SetRequestProperty(const char* name, const char* value) = 0;

    // A header that was set so, null if it was not.
    virtual const char* GetRequestProperty(const char* name) = 0;

    // The URL that was opened; null when nothing is open.
    virtual const char* GetUrl() = 0;

    // The URL that answered, after all redirects; null when nothing is open.
    virtual const char* GetConnectedUrl() = 0;
};

}  // namespace kpl::net::http

#endif  // KPL_NET_HTTP_IHTTPCLIENT_H_
