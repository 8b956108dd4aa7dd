#include <string.h>

#include "cli/Command.h"
#include "cli/ExitCode.h"
#include "cli/PipeRoot.h"
#include "cli/Text.h"

namespace kpl::cli {

namespace {

std::string UsersText(const std::vector<FifoUser>& users) {
    std::string text;
    for (const FifoUser& user : users) {
        text += (text.empty() ? "pid " : ", ") + std::to_string(user.pid) + " (" +
                Printable(user.program) + ")";
    }
    return text;
}

std::string StateText(const Output& out, const ServerEntry& server) {
    if (!server.root) {
        return out.Paint(Colour::Warning, "stale  ");
    }
    switch (server.root->state) {
        case FifoState::Used:
            return out.Paint(Colour::Good, "alive  ");
        case FifoState::Unused:
            return out.Paint(Colour::Warning, "stale  ");
        case FifoState::Foreign:
        case FifoState::Gone:
            break;
    }
    return out.Paint(Colour::Dim, "foreign");
}

std::string NoteText(const ServerEntry& server) {
    if (!server.root) {
        return "no Root FIFO, only connections are left";
    }
    if (server.root->state == FifoState::Unused) {
        return "nobody reads its Root FIFO";
    }
    const std::string users = UsersText(server.root->users);
    if (server.root->state == FifoState::Foreign) {
        return server.root->note + (users.empty() ? "" : ", " + users);
    }
    return users.empty() ? "process not seen" : users;
}

std::string ConnectionLine(const Output& out, int id, const ConnectionEntry& connection) {
    const std::string users = UsersText(connection.Users());
    const bool foreign = connection.fifos[0].state == FifoState::Foreign;
    std::string state = out.Paint(Colour::Warning, "unused ");
    if (foreign) {
        state = out.Paint(Colour::Dim, "foreign");
    } else if (connection.IsOpen()) {
        state = out.Paint(Colour::Good, "open   ");
    }
    const std::string note = foreign && users.empty() ? connection.fifos[0].note : users;
    return "  " + state + " connection " + std::to_string(id) + (note.empty() ? "" : ", ") + note +
           "\n";
}

}  // namespace

int RunList(const Invocation& invocation) {
    const std::string directory =
        invocation.HasWord(0) ? invocation.Word(0) : invocation.line->Value("--root", "/tmp");
    std::map<std::string, ServerEntry> servers;
    const int error = ScanPipeRoot(directory, &servers);
    if (error != 0) {
        return Fail(kFile, "cannot read the directory '" + directory + "': " + strerror(error));
    }
    Output& out = *invocation.out;
    if (servers.empty()) {
        out.Print("no servers in " + directory + "\n");
    }
    for (const auto& [name, server] : servers) {
        out.Print(StateText(out, server) + " " + Printable(name) + ", " + NoteText(server) + "\n");
        for (const auto& [id, connection] : server.connections) {
            out.Print(ConnectionLine(out, id, connection));
        }
    }
    return kOk;
}

}  // namespace kpl::cli
