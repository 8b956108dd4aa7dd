#ifndef KPL_EXAMPLES_PROGRAMME_GUIDE_GUIDECONNECTION_H_
#define KPL_EXAMPLES_PROGRAMME_GUIDE_GUIDECONNECTION_H_

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Guide.h"
#include "kpl/rpc/RpcClient.h"

namespace guide {

struct Channel {
    int number;
    std::string name;
};

// A guide server, seen from another process: each call of it as a function. What they return is a
// copy and stays good; nothing, if the server does not answer in time. One thread at a time, but
// for Cancel.
class GuideConnection {
public:
    struct Channels {
        std::vector<Channel> channels;
        GuideTime now;  // by the server's clock
    };

    struct Programmes {
        std::vector<Programme> programmes;
        int total;  // how many there are on the server; not all of them need be here
    };

    struct OnNow {
        Programmes list;  // by channel: what is on, if anything is, and what is next, if anything
        GuideTime now;
    };

    // Every wait for the server is at most `timeoutMs` milliseconds long.
    explicit GuideConnection(long timeoutMs) : m_timeoutMs(timeoutMs) {}

    bool Connect(const std::string& serverName);

    // Ends the connection, and what waits for the server: it fails at once. Any thread.
    void Cancel() { m_client.Disconnect(); }

    // False once the server has gone.
    bool IsAlive() const { return m_client.IsAlive(); }

    std::optional<Channels> ListChannels();
    std::optional<OnNow> NowAndNext();
    std::optional<Programmes> FindProgrammes(const std::string& text);

    // All that start from `from` on and before `to`, by as many calls as that takes.
    std::optional<std::vector<Programme>> ListProgrammes(int channel, GuideTime from, GuideTime to);

    // From now on `started` is called with each programme that starts, on a thread of its own, as
    // long as this object lives. False if the server does not answer.
    bool Follow(const std::function<void(const Programme&)>& started);

private:
    const long m_timeoutMs;
    kpl::rpc::RpcClient m_client;
};

}  // namespace guide

#endif  // KPL_EXAMPLES_PROGRAMME_GUIDE_GUIDECONNECTION_H_
