#include <arpa/inet.h>
#include <unistd.h>
#include <uv.h>

#include "bench/net/TcpServers.h"

namespace kpl::bench {

namespace {

// A client, which sends nothing new before its answer has come: one buffer will do.
struct Connection {
    uv_tcp_t stream;
    char data[8192];
};

void Close(Connection* connection) {
    uv_close(reinterpret_cast<uv_handle_t*>(&connection->stream),
             [](uv_handle_t* handle) { delete static_cast<Connection*>(handle->data); });
}

void OnAlloc(uv_handle_t* handle, size_t, uv_buf_t* buffer) {
    auto* const connection = static_cast<Connection*>(handle->data);
    *buffer = uv_buf_init(connection->data, sizeof(connection->data));
}

void OnRead(uv_stream_t* stream, ssize_t count, const uv_buf_t* buffer) {
    auto* const connection = static_cast<Connection*>(stream->data);
    if (count < 0) {
        Close(connection);
    } else if (count > 0) {
        // An answer is so short that it goes at once; a request of its own would be the slower way.
        const uv_buf_t answer = uv_buf_init(buffer->base, static_cast<unsigned int>(count));
        if (uv_try_write(stream, &answer, 1) != count) {
            Close(connection);
        }
    }
}

void OnConnection(uv_stream_t* listener, int status) {
    if (status < 0) {
        return;
    }
    auto* const connection = new Connection;
    uv_tcp_init(listener->loop, &connection->stream);
    connection->stream.data = connection;
    auto* const stream = reinterpret_cast<uv_stream_t*>(&connection->stream);
    if (uv_accept(listener, stream) != 0 || uv_read_start(stream, OnAlloc, OnRead) != 0) {
        Close(connection);
    }
}

int PortOf(const uv_tcp_t* listener) {
    sockaddr_in address{};
    int size = sizeof(address);
    uv_tcp_getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

}  // namespace

void ServeWithUv(int said, int end) {
    uv_loop_t* const loop = uv_default_loop();
    uv_tcp_t listener;
    sockaddr_in address;
    uv_ip4_addr("127.0.0.1", 0, &address);
    uv_tcp_init(loop, &listener);
    uv_tcp_bind(&listener, reinterpret_cast<sockaddr*>(&address), 0);
    uv_listen(reinterpret_cast<uv_stream_t*>(&listener), 128, OnConnection);
    uv_poll_t ends;
    uv_poll_init(loop, &ends, end);
    uv_poll_start(&ends, UV_READABLE, [](uv_poll_t* poll, int, int) { uv_stop(poll->loop); });
    const int port = PortOf(&listener);
    (void)!write(said, &port, sizeof(port));
    uv_run(loop, UV_RUN_DEFAULT);
}

}  // namespace kpl::bench
