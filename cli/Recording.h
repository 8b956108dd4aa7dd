#ifndef KPL_CLI_RECORDING_H_
#define KPL_CLI_RECORDING_H_

#include <stdint.h>

#include <functional>
#include <map>
#include <string>
#include <utility>

#include "cli/CommandStream.h"
#include "cli/Param.h"
#include "cli/RecordFile.h"

namespace kpl::cli {

// Something in a recording.
struct RecordedEvent {
    EntryKind kind{};
    uint32_t connection = 0;
    uint64_t timeUs = 0;  // of the entry that completed it
    bool isCommand = false;

    // Of a command. A result or callback has the function of its invoke, if that was recorded.
    int type = 0;
    uint32_t id = 0;
    std::string function;
    Params params;
    uint64_t tookUs = 0;  // a result's, since its invoke

    std::string bytes;  // what is no command
};

// Reads a recording file from the beginning and hands on its events in their order, until the sink
// returns false. Empty if all is well, else what is wrong with the file; `fault` of an entry in the
// middle comes after the events before it.
class Recording {
public:
    using Sink = std::function<bool(const RecordedEvent&)>;

    std::string Read(std::istream* in, const Sink& sink);

private:
    struct Call {
        std::string function;
        uint64_t timeUs;
    };
    using Direction = std::pair<uint32_t, EntryKind>;  // connection, who wrote

    void HandOn(const RecordEntry& entry, const Sink& sink);
    void HandOnPiece(RecordedEvent event, StreamPiece piece, const Sink& sink);
    void ReadCommand(std::string* bytes, RecordedEvent* event);
    void NameCall(RecordedEvent* event);
    void EndStream(const Direction& direction, uint64_t timeUs, const Sink& sink);

    std::map<Direction, CommandStream> m_streams;
    std::map<std::pair<uint32_t, uint32_t>, Call> m_calls;  // by connection and id
    bool m_goesOn = true;
};

}  // namespace kpl::cli

#endif  // KPL_CLI_RECORDING_H_
