// Round trips of calls between two processes, beside other ways to make them.
//
//   call_bench [rounds]           the comparisons
//   call_bench growth [rounds]    more and more clients, and threads
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "bench/rpc/PeerServer.h"
#include "bench/rpc/Works.h"

namespace {

using Work = void (*)(int rounds);

int Run(std::initializer_list<Work> works, int rounds) {
    const kpl::bench::Site site;
    for (const Work work : works) {
        if (!kpl::bench::RunApart([work, rounds] { work(rounds); })) {
            return 1;
        }
    }
    return 0;
}

int Usage() {
    fputs("usage: call_bench [rounds]\n       call_bench growth [rounds]\n", stderr);
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    using namespace kpl::bench;
    if (argc == 4 && strcmp(argv[1], "serve") == 0) {
        ServePeer(argv[2], argv[3]);
    }
    const bool growth = argc > 1 && strcmp(argv[1], "growth") == 0;
    const int last = growth ? 2 : 1;
    const int rounds = argc > last ? atoi(argv[last]) : growth ? 5 : 15;
    if (rounds < 1 || argc > last + 1) {
        return Usage();
    }
    return growth ? Run({GrowClients, GrowThreads, GrowMemory}, rounds)
                  : Run({ComparePinnedCalls, CompareFreeCalls, CompareTwoThreads}, rounds);
}
