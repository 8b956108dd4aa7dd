#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <fstream>

#include "cli/Command.h"
#include "cli/ExitCode.h"
#include "cli/ParamText.h"
#include "cli/ReadFile.h"
#include "cli/Recording.h"
#include "cli/Text.h"
#include "kpl/rpc/RpcParam.h"

namespace kpl::cli {

namespace {

std::string Seconds(uint64_t us) {
    char text[40];
    snprintf(text, sizeof(text), "%llu.%06llu", static_cast<unsigned long long>(us / 1000000),
             static_cast<unsigned long long>(us % 1000000));
    return text;
}

const char* TypeText(int type) {
    switch (type) {
        case rpc::RPC_COMMAND_INVOKE:
            return "invoke";
        case rpc::RPC_COMMAND_RESULT:
            return "result";
        default:
            return "callback";
    }
}

const char* KindText(EntryKind kind) {
    switch (kind) {
        case EntryKind::Opened:
            return "opened";
        case EntryKind::Refused:
            return "refused by the real server";
        default:
            return "closed";
    }
}

bool IsTraffic(EntryKind kind) {
    return kind == EntryKind::FromClient || kind == EntryKind::FromServer;
}

std::string CommandLineText(const RecordedEvent& event) {
    std::string text = std::string(TypeText(event.type)) + " " + std::to_string(event.id);
    if (!event.function.empty()) {
        text += " " + Printable(event.function);
    }
    if (event.type == rpc::RPC_COMMAND_RESULT && !event.function.empty()) {
        text += ", after " + Seconds(event.tookUs) + " s";
    }
    for (const Param& param : event.params) {
        text += "\n    " + ParamLine(param);
    }
    return text;
}

std::string EventText(const Output& out, const RecordedEvent& event) {
    std::string text = out.Paint(Colour::Dim, Seconds(event.timeUs)) + " #" +
                       std::to_string(event.connection) + " ";
    if (!IsTraffic(event.kind)) {
        return text + KindText(event.kind) + "\n";
    }
    text += event.kind == EntryKind::FromClient ? "> " : "< ";
    if (event.isCommand) {
        return text + CommandLineText(event) + "\n";
    }
    return text + out.Paint(Colour::Bad, "no command") + ", " + std::to_string(event.bytes.size()) +
           " bytes: " + Hex(event.bytes) + "\n";
}

std::string EventJson(const RecordedEvent& event) {
    std::string text = "{\"us\":" + std::to_string(event.timeUs) +
                       ",\"connection\":" + std::to_string(event.connection);
    if (!IsTraffic(event.kind)) {
        const std::string kind = KindText(event.kind);
        return text + ",\"event\":\"" + kind.substr(0, kind.find(' ')) + "\"}\n";
    }
    text += event.kind == EntryKind::FromClient ? ",\"from\":\"client\"" : ",\"from\":\"server\"";
    if (!event.isCommand) {
        return text + ",\"event\":\"bytes\",\"hex\":\"" + Hex(event.bytes) + "\"}\n";
    }
    text += std::string(",\"event\":\"") + TypeText(event.type) +
            "\",\"id\":" + std::to_string(event.id);
    if (!event.function.empty()) {
        text += ",\"function\":" + Json(event.function);
    }
    return text + ",\"params\":" + ParamsJson(event.params) + "}\n";
}

}  // namespace

int RunDump(const Invocation& invocation) {
    const std::string& path = invocation.Word(0);
    std::string fault;
    const int fd = OpenRegularFile(path, &fault);
    if (fd == -1) {
        return Fail(kFile, fault);
    }
    close(fd);
    std::ifstream in(path, std::ios::binary);
    const bool json = invocation.line->Has("--json");
    Recording recording;
    fault = recording.Read(&in, [&](const RecordedEvent& event) {
        invocation.out->Print(json ? EventJson(event) : EventText(*invocation.out, event));
        return !invocation.out->IsClosed() && !invocation.stop->IsStopped();
    });
    if (invocation.stop->IsStopped()) {
        return Interrupted(invocation);
    }
    return fault.empty() ? kOk : Fail(kFile, "'" + path + "': " + fault);
}

}  // namespace kpl::cli
