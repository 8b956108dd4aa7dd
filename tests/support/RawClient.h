#ifndef KPL_TESTS_SUPPORT_RAWCLIENT_H_
#define KPL_TESTS_SUPPORT_RAWCLIENT_H_

#include <string>

#include "tests/support/RawConnection.h"

namespace kpl::test {

// A client that speaks the published bytes with system calls alone, without the library.
class RawClient {
public:
    // Announces connection `id` to the server, whose FIFOs are in `root`, and opens both FIFOs,
    // blocking.
    RawClient(const std::string& root, const std::string& server, int id)
        : m_connection(RawConnect(root, server, id)) {}
    ~RawClient() { m_connection.Close(); }  // goes away
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    bool Write(const std::string& bytes) {
        return WriteAll(m_connection.writeFd, bytes.data(), bytes.size());
    }

    // One whole command; empty when the server has gone or nothing comes in ten seconds.
    std::string ReadCommand();

    // Whether the server ends the connection within ten seconds; discards what it still sends.
    bool AwaitEnd();

    void Close() { m_connection.Close(); }

private:
    bool Receive();

    RawConnection m_connection;
    std::string m_received;
};

// An invoke of `name` with one int, byte by byte.
std::string RawInvoke(unsigned int id, const std::string& name, int argument);

}  // namespace kpl::test

#endif  // KPL_TESTS_SUPPORT_RAWCLIENT_H_
