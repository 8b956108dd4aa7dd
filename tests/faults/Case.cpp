#include "tests/faults/Case.h"

#include <signal.h>
#include <stdio.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "kpl/ipc/PipePath.h"
#include "tests/faults/Workload.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace kpl::test {

namespace {

constexpr const char* kName = "Calc";

// What is promised: a new peer is served, and a stop is done, within a second.
constexpr int kServedMs = 1000;
constexpr int kStopMs = 1000;

// How long we look before something counts as never coming about.
constexpr long kPatienceMs = 20000;

using Clock = std::chrono::steady_clock;

int MsSince(Clock::time_point begin) {
    return static_cast<int>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count());
}

// A child that dies with us.
class Child : public ChildProcess {
public:
    explicit Child(const std::function<int()>& body)
        : ChildProcess([&body] {
              prctl(PR_SET_PDEATHSIG, SIGKILL);
              return body();
          }) {}
};

struct Pipe {
    Pipe() {
        if (pipe(ends) != 0) {
            ends[0] = ends[1] = -1;
        }
    }
    ~Pipe() {
        close(ends[0]);
        close(ends[1]);
    }
    bool Write(char byte) const { return write(ends[1], &byte, 1) == 1; }
    int Read() const { return ends[0]; }

    int ends[2];
};

// An untraced server.
class Server {
public:
    explicit Server(const char* name)
        : m_board(NewBoard()),
          m_child([this, name] { return RunServer(m_board, name, m_control.Read(), false); }) {}

    bool AwaitReady() const {
        return WaitUntil([this] { return m_board->serverIsReady.load(); });
    }

    // The time that the stop took; the exit code in `code`.
    int Stop(int* code) {
        const Clock::time_point begin = Clock::now();
        (void)m_control.Write('s');
        *code = m_child.Wait(kPatienceMs);
        return MsSince(begin);
    }

private:
    Pipe m_control;
    Board* m_board;
    Child m_child;
};

// Runs a case and collects what is wrong about it; the first problem counts.
class CaseRun {
public:
    CaseRun(const CaseSpec& spec, int stallMs, CaseResult* result)
        : m_spec(spec), m_stallMs(stallMs), m_result(result) {
        ipc::SetPipeRootPath(m_dir.c_str());
    }

    void Run() {
        m_result->verdict = Verdict::Good;
        if (m_spec.side == Side::Client) {
            RunClientCase();
        } else {
            RunServerCase();
        }
        if (m_result->verdict != Verdict::NotReached) {
            CheckNextServer();
        }
    }

private:
    void RunClientCase();
    void RunServerCase();
    void ServeUntilEnd(Victim* client, Server* server);
    void ReplaceServer(const Pipe& orders, const Pipe& answers);
    void SitStallOut(Victim* server, const Pipe& control);

    // Returns how long the client took to obey.
    int Order(char order, const char* what, int limitMs, const Pipe& orders, const Pipe& answers) {
        int ms = -1;
        const bool answered =
            orders.Write(order) && read(answers.Read(), &ms, sizeof(ms)) == sizeof(ms);
        Expect(answered && ms >= 0, std::string(what) + " failed");
        ExpectWithin(what, ms, limitMs);
        return ms;
    }

    // A stale announcement costs the time that a server gives a client to open its side. Only a
    // connect can leave one: that of its phase, or the second one of a phased server's client.
    int ServedLimit() const {
        const bool isConnecting = m_phase == Phase::Connect || m_phase == Phase::Setup;
        return kServedMs + (isConnecting ? static_cast<int>(kStatedOpenLimitMs) : 0);
    }

    void Problem(Verdict verdict, const std::string& text) {
        if (m_result->verdict == Verdict::Good ||
            (m_result->verdict == Verdict::Slow && verdict == Verdict::Bad)) {
            m_result->verdict = verdict;
            snprintf(m_result->problem, sizeof(m_result->problem), "%s", text.c_str());
        }
    }

    void Expect(bool holds, const std::string& text) {
        if (!holds) {
            Problem(Verdict::Bad, text);
        }
    }

    void ExpectCode(const char* who, int code) {
        Expect(code == kDone, std::string(who) + " ended with " + std::to_string(code));
    }

    void ExpectWithin(const char* what, int ms, int limitMs) {
        if (ms > limitMs) {
            Problem(Verdict::Slow, std::string(what) + " took " + std::to_string(ms) + " ms of " +
                                       std::to_string(limitMs));
        }
    }

    void ServePeer() {
        const Clock::time_point begin = Clock::now();
        Child peer([] { return RunPeer(kName, kPatienceMs); });
        ExpectCode("the new client", peer.Wait(kPatienceMs));
        m_result->servedMs = MsSince(begin);
        ExpectWithin("serving a new client", m_result->servedMs, ServedLimit());
    }

    void StopServer(Server* server) {
        int code = -1;
        m_result->endedMs = server->Stop(&code);
        ExpectCode("the server", code);
        ExpectWithin("the server's stop", m_result->endedMs, kStopMs);
    }

    void RestOfStall(Clock::time_point begin) const {
        const int left = m_stallMs - MsSince(begin);
        if (left > 0) {
            usleep(static_cast<useconds_t>(left) * 1000);  // allow-sleep: the stall itself
        }
    }

    void CheckNextServer();

    const CaseSpec m_spec;
    const int m_stallMs;
    // What the client was doing when it was stopped, or had to end its steps. A call of an early
    // phase may return, and be the point, in a later one.
    Phase m_phase = Phase::Setup;
    CaseResult* m_result;
    TempDir m_dir;
};

void CaseRun::RunClientCase() {
    Server server(kName);
    Expect(server.AwaitReady(), "the server did not start");
    Board* const board = NewBoard();
    Victim client(&board->phase, [board] { return RunPhasedClient(board, kName); });
    if (!client.RunTo(m_spec.point)) {
        m_result->verdict = Verdict::NotReached;
        ExpectCode("the undisturbed client", client.WaitForEnd(0));
        int code = -1;
        (void)server.Stop(&code);
        return;
    }
    snprintf(m_result->where, sizeof(m_result->where), "%s", client.Where().c_str());
    m_phase = board->phase;
    if (m_spec.fault == Fault::Kill) {
        client.Kill();
        ServePeer();
        StopServer(&server);
    } else {
        ServeUntilEnd(&client, &server);
    }
}

// The stalled client's own operations may fail, but it comes to its end.
void CaseRun::ServeUntilEnd(Victim* client, Server* server) {
    const Clock::time_point begin = Clock::now();
    client->Hold();
    if (m_spec.fault == Fault::StallStop) {
        StopServer(server);
    } else {
        ServePeer();
    }
    RestOfStall(begin);
    client->LetGo();
    const int code = client->WaitForEnd(kPatienceMs);
    Expect(code == kDone || code == kNotServed,
           "the stalled client ended with " + std::to_string(code));
    if (m_spec.fault == Fault::Stall) {
        StopServer(server);
    }
}

void CaseRun::RunServerCase() {
    Board* const board = NewBoard();
    const Pipe control;
    const Pipe orders;
    const Pipe answers;
    Victim server(&board->phase, [&] { return RunServer(board, kName, control.Read(), true); });
    Child client([&] {
        return RunOrderedClient(board, kName, orders.Read(), answers.ends[1], control.ends[1]);
    });
    if (!server.RunTo(m_spec.point)) {
        m_result->verdict = Verdict::NotReached;
        ExpectCode("the undisturbed server", server.WaitForEnd(0));
        return;
    }
    snprintf(m_result->where, sizeof(m_result->where), "%s", server.Where().c_str());
    const Clock::time_point begin = Clock::now();
    if (m_spec.fault == Fault::Kill) {
        server.Kill();
    } else {
        server.Hold();
    }
    m_result->endedMs =
        Order(kOrderDisconnect, "the client's disconnect", kStopMs, orders, answers);
    m_phase = board->phase;
    if (m_spec.fault == Fault::Kill) {
        ReplaceServer(orders, answers);
    } else {
        {
            Server spare(kSpareName);
            Expect(spare.AwaitReady(), "the spare server did not start");
            m_result->servedMs =
                Order(kOrderSpare, "being served by the spare", kServedMs, orders, answers);
            int code = -1;
            (void)spare.Stop(&code);
            ExpectCode("the spare server", code);
        }
        RestOfStall(begin);
        SitStallOut(&server, control);
    }
    (void)orders.Write(kOrderEnd);
    ExpectCode("the client", client.Wait(kPatienceMs));
}

// The same client, and the next server of that name.
void CaseRun::ReplaceServer(const Pipe& orders, const Pipe& answers) {
    Server next(kName);
    Expect(next.AwaitReady(), "the next server did not start");
    m_result->servedMs =
        Order(kOrderNewServer, "being served by the next server", kServedMs, orders, answers);
    int code = -1;
    const int ms = next.Stop(&code);
    ExpectCode("the next server", code);
    ExpectWithin("the next server's stop", ms, kStopMs);
}

// After the stall the server serves again, unless it was stopping, and stops.
void CaseRun::SitStallOut(Victim* server, const Pipe& control) {
    server->LetGo();
    if (m_phase != Phase::Stop) {
        if (m_phase == Phase::Start) {
            char path[256] = {};
            (void)ipc::GetPipeServerRootPath(kName, path, sizeof(path));
            Expect(WaitUntil([&] { return access(path, F_OK) == 0; }), "the server did not start");
        }
        ServePeer();
        (void)control.Write('s');
    }
    const Clock::time_point begin = Clock::now();
    ExpectCode("the server after its stall", server->WaitForEnd(kPatienceMs));
    ExpectWithin("the stop after the stall", MsSince(begin), kStopMs);
}

// What is left is noted; once the next server of that name has come and gone, nothing may be left.
void CaseRun::CheckNextServer() {
    std::string left;
    for (const std::string& name : m_dir.Entries()) {
        left += (left.empty() ? "" : " ") + name;
    }
    snprintf(m_result->left, sizeof(m_result->left), "%s", left.c_str());
    Server next(kName);
    Expect(next.AwaitReady(), "the last server did not start");
    int code = -1;
    (void)next.Stop(&code);
    ExpectCode("the last server", code);
    if (!m_dir.Entries().empty()) {
        Problem(Verdict::Bad, "left in the end: " + m_dir.Entries().front());
    }
}

}  // namespace

void RunCase(const CaseSpec& spec, int stallMs, CaseResult* result) {
    CaseRun(spec, stallMs, result).Run();
}

std::array<int, kPhases> CountCalls(Side side) {
    const TempDir dir;
    ipc::SetPipeRootPath(dir.c_str());
    Board* const board = NewBoard();
    if (side == Side::Client) {
        Server server(kName);
        (void)server.AwaitReady();
        Victim client(&board->phase, [board] { return RunPhasedClient(board, kName); });
        (void)client.RunTo(Point());
        int code = -1;
        (void)server.Stop(&code);
        return client.Calls();
    }
    const Pipe control;
    const Pipe orders;
    const Pipe answers;
    Victim server(&board->phase, [&] { return RunServer(board, kName, control.Read(), true); });
    Child client([&] {
        return RunOrderedClient(board, kName, orders.Read(), answers.ends[1], control.ends[1]);
    });
    (void)server.RunTo(Point());
    return server.Calls();
}

}  // namespace kpl::test
