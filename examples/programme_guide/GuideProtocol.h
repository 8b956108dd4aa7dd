// What guide_server and guide_client agree on. The functions, as C++ would declare them; the first
// value of a result is its value, the others are out-values:
//
//   (RpcArray of ChannelRecord, long long now)  ListChannels()
//   (EpgDataList, int total, long long now)     NowAndNext()
//   (EpgDataList, int total)                    FindProgrammes(string text)
//   (EpgDataList, int total)                    Programmes(int channel, long long from, long long
//   to) int number                                  Subscribe(callback (EpgDataList of one))
//
// Times are GuideTime. A list holds as many programmes, from the first on, as one command has room
// for; `total` says how many there are, so that the caller knows whether to ask on.
#ifndef KPL_EXAMPLES_PROGRAMME_GUIDE_GUIDEPROTOCOL_H_
#define KPL_EXAMPLES_PROGRAMME_GUIDE_GUIDEPROTOCOL_H_

#include <stdint.h>

#include "Guide.h"
#include "kpl/rpc/EpgDataList.h"

namespace guide {

constexpr char kDefaultServerName[] = "ProgrammeGuide";

// One command takes 16384 bytes; a list leaves the rest to the header and the out-values.
constexpr int kMaxListSize = 16000;

// One channel in the array of ListChannels.
struct ChannelRecord {
    int32_t number;
    char name[32];  // with its NUL
};

// Brief records have no description.
enum class Detail { Brief, Full };

// The record of a programme. Its texts are the programme's own, which must live as long.
EpgData ToRecord(const Programme& programme, Detail detail);

// The programme of a record, with copies of its texts.
Programme FromRecord(const EpgData& record);

}  // namespace guide

#endif  // KPL_EXAMPLES_PROGRAMME_GUIDE_GUIDEPROTOCOL_H_
