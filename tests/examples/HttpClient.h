// A plain HTTP client for tests, over a socket of its own.
#ifndef KPL_TESTS_EXAMPLES_HTTPCLIENT_H_
#define KPL_TESTS_EXAMPLES_HTTPCLIENT_H_

#include <string>

namespace kpl::test {

struct HttpAnswer {
    int status = 0;  // 0: no whole answer came
    std::string head;
    std::string body;

    bool HasField(const std::string& line) const;
};

class HttpClient {
public:
    // Connects. No read takes longer than 20 seconds.
    explicit HttpClient(int port, const char* host = "127.0.0.1");
    ~HttpClient();
    HttpClient(HttpClient&& other) noexcept;
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    bool IsConnected() const { return m_socket >= 0; }
    bool Send(const std::string& bytes) const;

    // A GET without the end of its head, and with it.
    static std::string HalfGet(const std::string& target);
    static std::string Get(const std::string& target) { return HalfGet(target) + "\r\n"; }

    // The next answer; `isHead` if it has no body.
    HttpAnswer Read(bool isHead = false);

    // Get, sent and answered.
    HttpAnswer Fetch(const std::string& target);

    // The next bytes; fewer if the server ends the connection before.
    std::string ReadBytes(size_t count);

    // Takes what has come, up to 64 KiB, without giving it out yet.
    void ReceiveSome() { (void)Receive(); }

    // Reads to the end of the connection; whether `count` bytes or more have come.
    bool ReadUntilEnd(size_t count);

    // Whether the server has ended the connection and sent nothing more. Waits for it.
    bool IsEnded();

    int Socket() const { return m_socket; }

private:
    bool Receive();

    int m_socket;
    std::string m_received;
};

// The number behind the last colon or word of a server's first line; 0 if there is none.
int PortIn(const std::string& output);

}  // namespace kpl::test

#endif  // KPL_TESTS_EXAMPLES_HTTPCLIENT_H_
