#ifndef KPL_TESTS_SUPPORT_RAWCLIENT_H_
#define KPL_TESTS_SUPPORT_RAWCLIENT_H_

#include <string>

namespace kpl::test {

// A client that speaks the published bytes with system calls alone, without the library.
class RawClient {
public:
    // Announces connection `id` to the server, whose FIFOs are in `root`, and opens both FIFOs,
    // blocking.
    RawClient(const std::string& root, const std::string& server, int id);
    ~RawClient();  // goes away
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    bool Write(const std::string& bytes);

    // One whole command; empty when the server has gone or nothing comes in ten seconds.
    std::string ReadCommand();

    // Whether the server ends the connection within ten seconds; discards what it still sends.
    bool AwaitEnd();

    void Close();

    // Only the announcement.
    static bool Announce(const std::string& root, const std::string& server, int id);

private:
    bool Receive();

    int m_reader = -1;
    int m_writer = -1;
    std::string m_received;
};

// An invoke of `name` with one int, byte by byte.
std::string RawInvoke(unsigned int id, const std::string& name, int argument);

}  // namespace kpl::test

#endif  // KPL_TESTS_SUPPORT_RAWCLIENT_H_
