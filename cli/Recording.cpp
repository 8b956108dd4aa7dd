#include "cli/Recording.h"

#include "kpl/rpc/RpcCommandDemuxer.h"

namespace kpl::cli {

std::string Recording::Read(std::istream* in, const Sink& sink) {
    RecordReader reader(in);
    std::string fault = reader.Open();
    if (!fault.empty()) {
        return fault;
    }
    RecordEntry entry;
    while (m_goesOn && reader.Next(&entry)) {
        HandOn(entry, sink);
    }
    while (m_goesOn && !m_streams.empty()) {
        const Direction first = m_streams.begin()->first;
        EndStream(first, entry.timeUs, sink);
    }
    return reader.Fault();
}

void Recording::HandOn(const RecordEntry& entry, const Sink& sink) {
    RecordedEvent event;
    event.kind = entry.kind;
    event.connection = entry.connection;
    event.timeUs = entry.timeUs;
    if (entry.kind == EntryKind::FromClient || entry.kind == EntryKind::FromServer) {
        m_streams[{entry.connection, entry.kind}].Add(
            entry.bytes, [&](const StreamPiece& piece) { HandOnPiece(event, piece, sink); });
        return;
    }
    if (entry.kind == EntryKind::Closed) {
        EndStream({entry.connection, EntryKind::FromClient}, entry.timeUs, sink);
        EndStream({entry.connection, EntryKind::FromServer}, entry.timeUs, sink);
    }
    m_goesOn = m_goesOn && sink(event);
}

void Recording::EndStream(const Direction& direction, uint64_t timeUs, const Sink& sink) {
    RecordedEvent event;
    event.kind = direction.second;
    event.connection = direction.first;
    event.timeUs = timeUs;
    const auto found = m_streams.find(direction);
    if (found != m_streams.end()) {
        found->second.End([&](const StreamPiece& piece) { HandOnPiece(event, piece, sink); });
        m_streams.erase(found);
    }
}

void Recording::HandOnPiece(RecordedEvent event, StreamPiece piece, const Sink& sink) {
    event.isCommand = piece.isCommand;
    if (piece.isCommand) {
        ReadCommand(&piece.bytes, &event);
    } else {
        event.bytes = std::move(piece.bytes);
    }
    m_goesOn = m_goesOn && sink(event);
}

void Recording::ReadCommand(std::string* bytes, RecordedEvent* event) {
    const rpc::RpcCommandDemuxer command(bytes->data(), static_cast<int>(bytes->size()));
    event->type = command.GetCommandType();
    event->id = command.GetId();
    event->params = ReadParams(command, 0);
    if (event->type == rpc::RPC_COMMAND_INVOKE) {
        event->function = command.GetFunctionName();
    }
    NameCall(event);
}

void Recording::NameCall(RecordedEvent* event) {
    const std::pair<uint32_t, uint32_t> key{event->connection, event->id};
    if (event->type == rpc::RPC_COMMAND_INVOKE) {
        m_calls[key] = {event->function, event->timeUs};
        return;
    }
    const auto call = m_calls.find(key);
    if (call != m_calls.end()) {
        event->function = call->second.function;
        event->tookUs = event->timeUs - call->second.timeUs;
    }
}

}  // namespace kpl::cli
