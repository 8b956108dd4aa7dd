#include "GuideService.h"

#include <stdio.h>

namespace guide {

using kpl::rpc::RpcArray;
using kpl::rpc::RpcRemoteCallback;

GuideService::GuideService(const Guide& guide, const GuideClock& clock, StartAnnouncer* announcer)
    : m_guide(guide), m_clock(clock), m_announcer(announcer) {}

void GuideService::BindTo(kpl::rpc::RpcFunctionTable* table) {
    table->Bind("ListChannels", [this] { return ListChannels(); });
    table->Bind("NowAndNext", [this] { return NowAndNext(); });
    table->Bind("FindProgrammes", [this](const std::string& text) { return FindProgrammes(text); });
    table->Bind("Programmes", [this](int channel, long long from, long long to) {
        return Programmes(channel, from, to);
    });
    table->Bind("Subscribe", [this](const RpcRemoteCallback& callback) {
        return m_announcer->Follow(callback);
    });
}

std::tuple<RpcArray, long long> GuideService::ListChannels() {
    m_channels.clear();
    for (int channel = 1; channel <= m_guide.ChannelCount(); ++channel) {
        ChannelRecord record = {channel, ""};
        snprintf(record.name, sizeof(record.name), "%s", m_guide.ChannelName(channel).c_str());
        m_channels.push_back(record);
    }
    const RpcArray array(m_channels.data(), m_guide.ChannelCount(),
                         static_cast<int>(m_channels.size() * sizeof(ChannelRecord)));
    return {array, m_clock.Now()};
}

std::tuple<EpgDataList, int, long long> GuideService::NowAndNext() {
    const GuideTime now = m_clock.Now();
    Guide::Programmes programmes;
    for (int channel = 1; channel <= m_guide.ChannelCount(); ++channel) {
        for (const Programme* programme :
             {m_guide.OnAt(channel, now), m_guide.NextAfter(channel, now)}) {
            if (programme != nullptr) {
                programmes.push_back(programme);
            }
        }
    }
    return {FillList(programmes, Detail::Brief), static_cast<int>(programmes.size()), now};
}

std::tuple<EpgDataList, int> GuideService::FindProgrammes(const std::string& text) {
    const Guide::Programmes found = m_guide.Find(text);
    return {FillList(found, Detail::Brief), static_cast<int>(found.size())};
}

std::tuple<EpgDataList, int> GuideService::Programmes(int channel, long long from, long long to) {
    const Guide::Programmes programmes = m_guide.Starting(channel, from, to);
    return {FillList(programmes, Detail::Full), static_cast<int>(programmes.size())};
}

// As many as fit into one command.
EpgDataList GuideService::FillList(const Guide::Programmes& programmes, Detail detail) {
    m_records.clear();
    int size = GetSizeEpgDataList::GetSize(EpgDataList());
    const int emptySize = size;
    for (const Programme* programme : programmes) {
        EpgData record = ToRecord(*programme, detail);
        size += GetSizeEpgDataList::GetSize(EpgDataList{1, &record}) - emptySize;
        if (size > kMaxListSize) {
            break;
        }
        m_records.push_back(record);
    }
    return EpgDataList{static_cast<int>(m_records.size()), m_records.data()};
}

}  // namespace guide
