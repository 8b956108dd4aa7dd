#ifndef KPL_CLI_COMMANDSTREAM_H_
#define KPL_CLI_COMMANDSTREAM_H_

#include <functional>
#include <string>

namespace kpl::cli {

// What stands in a stream of commands: whole ones, and bytes that are none.
struct StreamPiece {
    bool isCommand;
    std::string bytes;
};

// Finds the commands in one direction of a recorded connection, which may hold anything. At bytes
// that cannot become a command it gives up what it has, and begins again with the next that come.
class CommandStream {
public:
    using Sink = std::function<void(const StreamPiece&)>;

    // Takes bytes and hands on what is complete with them.
    void Add(const std::string& bytes, const Sink& sink);

    // No more will come: hands on what is left, as bytes.
    void End(const Sink& sink);

private:
    std::string m_pending;
};

}  // namespace kpl::cli

#endif  // KPL_CLI_COMMANDSTREAM_H_
