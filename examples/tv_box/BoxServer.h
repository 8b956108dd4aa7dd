#ifndef KPL_EXAMPLES_TV_BOX_BOXSERVER_H_
#define KPL_EXAMPLES_TV_BOX_BOXSERVER_H_

#include "BoxState.h"
#include "kpl/net/server/CSocketServerEx.h"
#include "kpl/tools/TimerObject.h"

namespace tv_box {

struct BoxServerOptions {
    unsigned int port = 0;      // 0: the system chooses
    bool servesOthers = false;  // also other machines; otherwise their connections are refused
    int sendTimeoutMs = 5000;   // see HttpProcessor
};

// The page and its data by HTTP. The TCP frame listens on all of the machine's addresses; who is
// served is decided for each connection.
class BoxServer : public kpl::net::server::CSocketServerEx {
public:
    // `state` outlives it.
    BoxServer(const BoxServerOptions& options, BoxState* state);
    ~BoxServer() override;  // stops

    // StartServer, and the end of waits in time.
    bool Start();

private:
    kpl::net::server::CServerThreadManager* CreateThreadManager() override;

    const BoxServerOptions m_options;
    BoxState* const m_state;
    kpl::tools::TimerObject m_timer;
};

}  // namespace tv_box

#endif  // KPL_EXAMPLES_TV_BOX_BOXSERVER_H_
