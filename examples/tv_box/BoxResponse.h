#ifndef KPL_EXAMPLES_TV_BOX_BOXRESPONSE_H_
#define KPL_EXAMPLES_TV_BOX_BOXRESPONSE_H_

#include <string>

#include "BoxState.h"
#include "HttpRequest.h"
#include "HttpResponse.h"

namespace tv_box {

// Answers the requests of one connection:
//
//   /                                   the page, with the state in it
//   /api/state                          the state
//   /api/wait?version=V&seconds=S       the state as soon as its version is not V, or after S
//                                       seconds (1 to 60; 25 if S is not given)
//   /api/channel?number=N               the programmes of a channel
//
// A server thread serves 32 connections one at a time, so a request that waited in Execute would
// hold up 31 others; and a thread for every page that is open would be too many. So a wait takes no
// thread: the request is remembered by the state, and whoever changes that sends the answer. It is
// the connection's last, because while it is open no other request may be answered before it.
class BoxResponse : public file_http::HttpResponse, public StateWaiter {
public:
    // `state` outlives it; `fd` is the connection's, open as long as this lives.
    BoxResponse(BoxState* state, int fd);
    ~BoxResponse() override;  // forgets the wait
    BoxResponse(const BoxResponse&) = delete;
    BoxResponse& operator=(const BoxResponse&) = delete;

    int Execute(kpl::com::IUnknown* request) override;
    bool IsResponseReady() override;  // false for a wait
    bool HasResponseData() override;
    int ReadResponse(char* buffer, int size) override;
    void EndResponse() override;
    long long BytesLeft() const override;

    // The end of a wait, on another thread.
    void Answer(const std::string& state) override;

private:
    void Respond(const file_http::HttpRequest& request);
    void RespondPage(const file_http::HttpRequest& request);
    void RespondJson(const file_http::HttpRequest& request, const std::string& json);
    void RespondError(const file_http::HttpRequest& request, int status);
    void RespondChannel(const file_http::HttpRequest& request);
    void Wait(file_http::HttpRequest* request);

    BoxState* const m_state;
    const int m_fd;
    std::string m_bytes;       // head and body
    bool m_isWaiting = false;  // from the wait on, for good
};

}  // namespace tv_box

#endif  // KPL_EXAMPLES_TV_BOX_BOXRESPONSE_H_
