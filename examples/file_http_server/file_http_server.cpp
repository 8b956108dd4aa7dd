// Serves the files of a folder by HTTP.
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "FileHttpServer.h"

namespace {

int Fail(const std::string& why, int code) {
    fprintf(stderr, "file_http_server: %s\n", why.c_str());
    return code;
}

// A port as a whole text of digits; -1 if it is none.
long ParsePort(const char* text) {
    char* end = nullptr;
    const long port = strtol(text, &end, 10);
    return *text != '\0' && *end == '\0' && port >= 0 && port <= 65535 ? port : -1;
}

// Until SIGINT or SIGTERM. Both are blocked in all threads, so that no send is cut short by one.
int Serve(const file_http::FileHttpOptions& options) {
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);
    file_http::FileHttpServer server(options);
    if (!server.StartServer()) {
        return Fail("cannot have port " + std::to_string(options.port), 1);
    }
    printf("file_http_server: %s is at http://127.0.0.1:%d/\n", options.folder.c_str(),
           server.GetListeningPort());
    fflush(stdout);
    int signal = 0;
    sigwait(&stop, &signal);
    server.StopServer();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const long port = argc > 2 ? ParsePort(argv[2]) : 8080;
    if (argc < 2 || argc > 3 || port < 0) {
        fputs(
            "usage: file_http_server FOLDER [PORT]\n"
            "Serves the files of FOLDER on all of this machine's addresses; port 8080 if none is\n"
            "given, one that is free for 0. It ends on SIGTERM and SIGINT.\n",
            stderr);
        return 2;
    }
    char* folder = realpath(argv[1], nullptr);
    if (folder == nullptr) {
        return Fail(std::string("there is no folder '") + argv[1] + "'", 1);
    }
    file_http::FileHttpOptions options;
    options.folder = folder;
    free(folder);
    options.port = static_cast<unsigned int>(port);
    return Serve(options);
}
