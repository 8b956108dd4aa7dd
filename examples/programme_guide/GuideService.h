#ifndef KPL_EXAMPLES_PROGRAMME_GUIDE_GUIDESERVICE_H_
#define KPL_EXAMPLES_PROGRAMME_GUIDE_GUIDESERVICE_H_

#include <string>
#include <tuple>
#include <vector>

#include "Guide.h"
#include "GuideClock.h"
#include "GuideProtocol.h"
#include "StartAnnouncer.h"
#include "kpl/rpc/RpcArray.h"
#include "kpl/rpc/RpcFunctionTable.h"

namespace guide {

// The functions that guide_server serves; GuideProtocol.h lists them. They run on the threads of
// the connections, but one at a time: the registry's lock sees to that, and so they share members.
class GuideService {
public:
    // All three must outlive it.
    GuideService(const Guide& guide, const GuideClock& clock, StartAnnouncer* announcer);

    // Binds the functions to `table`, which must not be executed any more once this has died.
    void BindTo(kpl::rpc::RpcFunctionTable* table);

private:
    std::tuple<kpl::rpc::RpcArray, long long> ListChannels();
    std::tuple<EpgDataList, int, long long> NowAndNext();
    std::tuple<EpgDataList, int> FindProgrammes(const std::string& text);
    std::tuple<EpgDataList, int> Programmes(int channel, long long from, long long to);

    EpgDataList FillList(const Guide::Programmes& programmes, Detail detail);

    const Guide& m_guide;
    const GuideClock& m_clock;
    StartAnnouncer* const m_announcer;

    // What a result points to must live until the table has packed it: after the return, but before
    // the next call.
    std::vector<ChannelRecord> m_channels;
    std::vector<EpgData> m_records;
};

}  // namespace guide

#endif  // KPL_EXAMPLES_PROGRAMME_GUIDE_GUIDESERVICE_H_
