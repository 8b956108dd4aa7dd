// A command written and read back, by us and by libraries that do nothing else, and a programme
// guide of 1,000 records. All write into memory that they use again and again, and read as bytes
// are read that another process has sent.
//
//   command_bench [rounds]
#include <stdio.h>
#include <stdlib.h>

#include "bench/rpc/command/Work.h"
#include "bench/support/Machine.h"

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? atoi(argv[1]) : 101;
    if (rounds < 1) {
        fprintf(stderr, "usage: command_bench [rounds]\n");
        return 2;
    }
    kpl::bench::StayOnOneCore();
    kpl::bench::Works works;
    kpl::bench::AddOurs(&works);
    kpl::bench::AddRaw(&works);
    kpl::bench::AddProtobuf(&works);
    kpl::bench::AddFlatBuffers(&works);
    kpl::bench::AddMsgpack(&works);
    works.both.Run(rounds);
    works.written.Run(rounds);
    works.read.Run(rounds);
    works.guides.Run(rounds);
    return 0;
}
