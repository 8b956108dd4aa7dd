#include "cli/Output.h"

#include <errno.h>
#include <limits.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "cli/StopSignals.h"

namespace kpl::cli {

namespace {

bool WantsColours(int descriptor) {
    const char* const noColor = getenv("NO_COLOR");
    const char* const terminal = getenv("TERM");
    return isatty(descriptor) == 1 && (noColor == nullptr || noColor[0] == '\0') &&
           terminal != nullptr && strcmp(terminal, "dumb") != 0;
}

const char* Sequence(Colour colour) {
    switch (colour) {
        case Colour::Good:
            return "\033[32m";
        case Colour::Warning:
            return "\033[33m";
        case Colour::Bad:
            return "\033[31m";
        case Colour::Dim:
            return "\033[2m";
        case Colour::Plain:
            break;
    }
    return "";
}

}  // namespace

Output::Output(int descriptor, const StopSignals* stop)
    : m_descriptor(descriptor), m_stop(stop), m_coloured(WantsColours(descriptor)) {}

void Output::Print(const std::string& text) {
    size_t done = 0;
    while (!m_closed && done < text.size()) {
        if (!WaitUntilWritable()) {
            m_closed = true;
            return;
        }
        // A pipe that can be written at all takes this much without blocking.
        const size_t piece = std::min<size_t>(text.size() - done, PIPE_BUF);
        const ssize_t written = write(m_descriptor, text.data() + done, piece);
        if (written >= 0) {
            done += static_cast<size_t>(written);
        } else if (errno != EINTR && errno != EAGAIN) {
            m_error = errno == EPIPE ? 0 : errno;
            m_closed = true;
        }
    }
}

// False if the stop comes while it cannot be written.
bool Output::WaitUntilWritable() const {
    pollfd descriptors[2] = {{m_descriptor, POLLOUT, 0}, {m_stop->Descriptor(), POLLIN, 0}};
    while (poll(descriptors, 2, -1) < 0 && errno == EINTR) {
    }
    return descriptors[0].revents != 0;
}

std::string Output::Paint(Colour colour, const std::string& text) const {
    return m_coloured && colour != Colour::Plain ? Sequence(colour) + text + "\033[0m" : text;
}

}  // namespace kpl::cli
