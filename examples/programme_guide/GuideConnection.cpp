#include "GuideConnection.h"

#include <string.h>

#include <tuple>

#include "GuideProtocol.h"
#include "kpl/rpc/RpcArray.h"
#include "kpl/rpc/RpcCall.h"

namespace guide {

using kpl::rpc::Call;
using kpl::rpc::RpcArray;

namespace {

// Copies, because the list points into the command, which the next call overwrites.
std::vector<Programme> Copy(const EpgDataList& list) {
    std::vector<Programme> programmes;
    for (int i = 0; list.items != nullptr && i < list.count; ++i) {
        programmes.push_back(FromRecord(list.items[i]));
    }
    return programmes;
}

std::vector<Channel> Copy(const RpcArray& array) {
    std::vector<Channel> channels;
    const auto* bytes = static_cast<const char*>(array.GetData());
    auto left = static_cast<size_t>(array.GetTotalSizeInBytes());
    for (; left >= sizeof(ChannelRecord); left -= sizeof(ChannelRecord)) {
        ChannelRecord record;  // a copy: in the command it need not be aligned
        memcpy(&record, bytes, sizeof(record));
        channels.push_back(
            {record.number, {record.name, strnlen(record.name, sizeof(record.name))}});
        bytes += sizeof(record);
    }
    return channels;
}

}  // namespace

bool GuideConnection::Connect(const std::string& serverName) {
    return m_client.Connect(serverName.c_str(), nullptr, m_timeoutMs);
}

std::optional<GuideConnection::Channels> GuideConnection::ListChannels() {
    using Result = std::tuple<RpcArray, long long>;
    const std::optional<Result> result = Call<Result>(m_client, m_timeoutMs, "ListChannels");
    if (!result) {
        return std::nullopt;
    }
    const auto& [channels, now] = *result;
    return Channels{Copy(channels), now};
}

std::optional<GuideConnection::OnNow> GuideConnection::NowAndNext() {
    using Result = std::tuple<EpgDataList, int, long long>;
    const std::optional<Result> result = Call<Result>(m_client, m_timeoutMs, "NowAndNext");
    if (!result) {
        return std::nullopt;
    }
    const auto& [list, total, now] = *result;
    return OnNow{{Copy(list), total}, now};
}

std::optional<GuideConnection::Programmes> GuideConnection::FindProgrammes(
    const std::string& text) {
    using Result = std::tuple<EpgDataList, int>;
    const std::optional<Result> result =
        Call<Result>(m_client, m_timeoutMs, "FindProgrammes", text);
    if (!result) {
        return std::nullopt;
    }
    const auto& [list, total] = *result;
    return Programmes{Copy(list), total};
}

std::optional<std::vector<Programme>> GuideConnection::ListProgrammes(int channel, GuideTime from,
                                                                      GuideTime to) {
    using Result = std::tuple<EpgDataList, int>;
    std::vector<Programme> programmes;
    for (;;) {
        const std::optional<Result> result =
            Call<Result>(m_client, m_timeoutMs, "Programmes", channel, from, to);
        if (!result) {
            return std::nullopt;
        }
        const auto& [list, total] = *result;
        const std::vector<Programme> page = Copy(list);
        programmes.insert(programmes.end(), page.begin(), page.end());
        if (page.empty() || static_cast<int>(page.size()) >= total) {
            return programmes;
        }
        from = page.back().start + 1;
    }
}

bool GuideConnection::Follow(const std::function<void(const Programme&)>& started) {
    const auto tell = [started](const EpgDataList& list) {
        for (const Programme& programme : Copy(list)) {
            started(programme);
        }
    };
    return Call<int>(m_client, m_timeoutMs, "Subscribe", tell).has_value();
}

}  // namespace guide
