#include <unistd.h>

#include "cli/Command.h"
#include "cli/Connect.h"
#include "cli/ExitCode.h"
#include "cli/Relay.h"
#include "cli/Text.h"

namespace kpl::cli {

namespace {

// Whether the two names are good for a recording now. Returns kOk, or the code after saying why
// not.
int CheckNames(const Invocation& invocation) {
    const std::string directory = RootOf(invocation);
    const std::string& publicName = invocation.Word(0);
    const std::string& realName = invocation.Word(1);
    for (const std::string* name : {&publicName, &realName}) {
        const std::string fault = FaultOfName(directory, *name);
        if (!fault.empty()) {
            return Fail(kUsage, fault);
        }
    }
    if (publicName == realName) {
        return FailUsage("the two names are the same: the relay would call itself", "record");
    }
    if (RootProbe(directory, publicName).IsAlive()) {
        return Fail(kRefused, "there is a server '" + Printable(publicName) +
                                  "' already; start it under another name and record that");
    }
    const RootProbe real(directory, realName);
    return real.IsAlive() ? kOk : Fail(kNoServer, real.Fault());
}

std::string Count(uint64_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

// Waits for the stop, or for a file that cannot be written any more.
void AwaitEnd(const Invocation& invocation, RecordWriter* file) {
    constexpr long kLookMs = 200;
    while (!invocation.stop->Wait(kLookMs) && file->Fault().empty()) {
    }
}

}  // namespace

int RunRecord(const Invocation& invocation) {
    const int code = CheckNames(invocation);
    if (code != kOk) {
        return code;
    }
    const std::string& path = invocation.Word(2);
    RecordWriter file;
    std::string fault = file.Create(path);
    if (!fault.empty()) {
        return Fail(kFile, fault);
    }
    Relay relay(invocation.Word(0), invocation.Word(1), &file);
    if (!relay.Start()) {
        (void)unlink(path.c_str());
        return Fail(kFile, "cannot make a FIFO in '" + RootOf(invocation) + "'");
    }
    invocation.out->Print("recording " + Printable(invocation.Word(0)) + " -> " +
                          Printable(invocation.Word(1)) + " in " + path + "; Ctrl-C stops\n");
    AwaitEnd(invocation, &file);
    relay.Stop();
    invocation.out->Print("recorded " + Count(relay.ConnectionCount(), "connection") + ", " +
                          std::to_string(file.EntryCount()) + " entries\n");
    fault = file.Fault();
    return fault.empty() ? kOk : Fail(kFile, fault);
}

}  // namespace kpl::cli
