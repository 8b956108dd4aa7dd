#ifndef KPL_EXAMPLES_FILE_HTTP_SERVER_FILEHTTPSERVER_H_
#define KPL_EXAMPLES_FILE_HTTP_SERVER_FILEHTTPSERVER_H_

#include <string>

#include "kpl/net/server/CSocketServerEx.h"

namespace file_http {

struct FileHttpOptions {
    std::string folder;        // an absolute path without symbolic links, as of realpath
    unsigned int port = 0;     // 0: the system chooses
    int sendTimeoutMs = 5000;  // see HttpProcessor
};

// Serves the files of a folder by HTTP/1.1, GET and HEAD.
class FileHttpServer : public kpl::net::server::CSocketServerEx {
public:
    explicit FileHttpServer(const FileHttpOptions& options);
    ~FileHttpServer() override;  // stops

private:
    kpl::net::server::CServerThreadManager* CreateThreadManager() override;

    const FileHttpOptions m_options;
};

}  // namespace file_http

#endif  // KPL_EXAMPLES_FILE_HTTP_SERVER_FILEHTTPSERVER_H_
