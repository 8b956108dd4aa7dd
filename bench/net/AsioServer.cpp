#include <unistd.h>

#include <asio.hpp>
#include <memory>
#include <utility>

#include "bench/net/TcpServers.h"

namespace kpl::bench {

namespace {

using asio::ip::tcp;

class Session : public std::enable_shared_from_this<Session> {
public:
    explicit Session(tcp::socket socket) : m_socket(std::move(socket)) {}

    void Read() {
        m_socket.async_read_some(asio::buffer(m_data),
                                 [self = shared_from_this()](std::error_code error, size_t count) {
                                     if (!error) {
                                         self->Write(count);
                                     }
                                 });
    }

private:
    void Write(size_t count) {
        asio::async_write(m_socket, asio::buffer(m_data, count),
                          [self = shared_from_this()](std::error_code error, size_t) {
                              if (!error) {
                                  self->Read();
                              }
                          });
    }

    tcp::socket m_socket;
    char m_data[8192];
};

void Accept(tcp::acceptor* acceptor) {
    acceptor->async_accept([acceptor](std::error_code error, tcp::socket socket) {
        if (!error) {
            std::make_shared<Session>(std::move(socket))->Read();
        }
        Accept(acceptor);
    });
}

}  // namespace

void ServeWithAsio(int said, int end) {
    asio::io_context context(1);  // one thread: spares its locks
    tcp::acceptor acceptor(context, tcp::endpoint(asio::ip::address_v4::loopback(), 0));
    Accept(&acceptor);
    asio::posix::stream_descriptor ends(context, dup(end));
    ends.async_wait(asio::posix::stream_descriptor::wait_read,
                    [&context](std::error_code) { context.stop(); });
    const int port = acceptor.local_endpoint().port();
    (void)!write(said, &port, sizeof(port));
    context.run();
}

}  // namespace kpl::bench
