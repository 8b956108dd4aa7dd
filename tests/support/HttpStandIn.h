// Stands in for net::http::CHttpClient where files are tested against a server that says what the
// test wants. Linked into a program, it takes the library's place.
#ifndef KPL_TESTS_SUPPORT_HTTPSTANDIN_H_
#define KPL_TESTS_SUPPORT_HTTPSTANDIN_H_

#include <string>
#include <vector>

namespace kpl::test {

// What every client finds, and what they were asked. One thread.
struct HttpStandIn {
    bool opens = true;
    std::string content;      // what Read delivers, then 0
    int length = 0;           // what GetTotalLength says
    size_t pieceSize = 1000;  // no Read delivers more
    int seekResult = 0;
    std::vector<std::string> calls;
    int alive = 0;  // clients that exist

    // The one in use; the test replaces it by a fresh one.
    static HttpStandIn& Get();
};

}  // namespace kpl::test

#endif  // KPL_TESTS_SUPPORT_HTTPSTANDIN_H_
