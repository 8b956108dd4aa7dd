#ifndef KPL_BENCH_RPC_COMMAND_WORK_H_
#define KPL_BENCH_RPC_COMMAND_WORK_H_

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include "bench/support/Contest.h"

namespace kpl::bench {

// A call as it is written: its number, a function's name, five scalars and a text. Read back, the
// texts lie where the reader found them.
struct Command {
    unsigned id = 0;
    const char* function = nullptr;
    int channel = 0;
    unsigned flags = 0;
    long long time = 0;
    double rate = 0;
    bool live = false;
    const char* title = nullptr;
};

// One record of a programme guide.
struct Programme {
    uint32_t head[2];
    const char* text[4];
    uint32_t tail[6];
};
using Guide = std::vector<Programme>;

// What was written. The compiler knows nothing of them: they stand in another file, and Keep says
// after every run that they may have changed.
extern Command command;
extern Guide guide;

// Ends the program if what was read is not what was written.
void CheckCommand(const std::string& contender, const Command& read);

// A number that depends on all words and on the first character of each text: what a reader of a
// guide adds up, and what it must come to.
uint64_t SumOfGuide();

// A writer and reader has
//   void WriteCommand();           from `command` into a buffer of its own, used again and again
//   bool ReadCommand(Command* to)  from there, checked as bytes are that come from elsewhere
//   void WriteGuide(); uint64_t ReadGuide();  from `guide`; the sum
struct Works {
    Contest both{"command written and read", "ns"};
    Contest written{"command written", "ns"};
    Contest read{"command read", "ns"};
    Contest guides{"EPG list of 1,000 written and read", "ns"};
};

template <typename Peer>
void AddCommand(const std::string& name, const std::shared_ptr<Peer>& peer, Works* works) {
    Command result;
    peer->WriteCommand();
    CheckCommand(name, peer->ReadCommand(&result) ? result : Command());
    works->both.Add(name, NsPerRun([peer] {
                        peer->WriteCommand();
                        Keep(peer.get());
                        Command read;
                        Keep(peer->ReadCommand(&read));
                        Keep(&read);
                    }));
    works->written.Add(name, NsPerRun([peer] {
                           peer->WriteCommand();
                           Keep(peer.get());
                       }));
    works->read.Add(name, NsPerRun([peer] {
                        Command read;
                        Keep(peer->ReadCommand(&read));
                        Keep(&read);
                    }));
}

void CheckGuide(const std::string& contender, uint64_t sum);

template <typename Peer>
void AddGuide(const std::string& name, const std::shared_ptr<Peer>& peer, Works* works) {
    peer->WriteGuide();
    CheckGuide(name, peer->ReadGuide());
    works->guides.Add(name, NsPerRun([peer] {
                          peer->WriteGuide();
                          Keep(peer.get());
                          Keep(peer->ReadGuide());
                      }));
}

void AddOurs(Works* works);
void AddRaw(Works* works);
void AddProtobuf(Works* works);
void AddFlatBuffers(Works* works);
void AddMsgpack(Works* works);

}  // namespace kpl::bench

#endif  // KPL_BENCH_RPC_COMMAND_WORK_H_
