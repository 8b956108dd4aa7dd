#include "bench/rpc/command/Work.h"
#include "kpl/rpc/EpgDataList.h"
#include "kpl/rpc/RpcCommandDemuxer.h"
#include "kpl/rpc/RpcCommandMuxer.h"

namespace kpl::bench {

namespace {

// One buffer, muxer and demuxer for all commands, as a thread has in the RPC client.
class Ours {
public:
    explicit Ours(size_t size)
        : m_buffer(size),
          m_muxer(m_buffer.data(), static_cast<int>(size)),
          m_demuxer(m_buffer.data(), static_cast<int>(size)) {}

    void WriteCommand() {
        (void)(m_muxer.Push(command.channel) && m_muxer.Push(command.flags) &&
               m_muxer.Push(command.time) && m_muxer.Push(command.rate) &&
               m_muxer.Push(command.live) && m_muxer.Push(command.title));
        (void)m_muxer.Finish(rpc::RPC_COMMAND_INVOKE, command.function, command.id);
    }

    bool ReadCommand(Command* to) {
        to->id = m_demuxer.GetId();  // not 0: the command is valid
        if (to->id == 0) {
            return false;
        }
        to->function = m_demuxer.GetFunctionName();
        to->channel = m_demuxer.Get<int>(0);
        to->flags = m_demuxer.Get<unsigned>(1);
        to->time = m_demuxer.Get<long long>(2);
        to->rate = m_demuxer.Get<double>(3);
        to->live = m_demuxer.Get<bool>(4);
        to->title = m_demuxer.Get<const char*>(5);
        return true;
    }

    void WriteGuide() {
        m_records.resize(guide.size());
        for (size_t i = 0; i < guide.size(); ++i) {
            const Programme& from = guide[i];
            EpgData& to = m_records[i];
            for (size_t word = 0; word < 2; ++word) {
                to.head[word] = from.head[word];
            }
            for (size_t text = 0; text < 4; ++text) {
                to.text[text] = from.text[text];
            }
            for (size_t word = 0; word < 6; ++word) {
                to.tail[word] = from.tail[word];
            }
        }
        (void)m_muxer.Push(EpgDataList{static_cast<int>(m_records.size()), m_records.data()});
        (void)m_muxer.Finish(rpc::RPC_COMMAND_RESULT, nullptr, 1);
    }

    uint64_t ReadGuide() {
        uint64_t sum = 0;
        if (!m_demuxer.IsValidCommand()) {
            return sum;
        }
        const auto list = m_demuxer.Get<EpgDataList>(0);
        for (int i = 0; i < list.count; ++i) {
            const EpgData& programme = list.items[i];
            for (size_t word = 0; word < 2; ++word) {
                sum += programme.head[word];
            }
            for (const EpgText& text : programme.text) {
                const char* characters = text;
                sum += static_cast<unsigned char>(*characters);
            }
            for (size_t word = 0; word < 6; ++word) {
                sum += programme.tail[word];
            }
        }
        return sum;
    }

private:
    std::vector<char> m_buffer;
    std::vector<EpgData> m_records;
    rpc::RpcCommandMuxer m_muxer;
    rpc::RpcCommandDemuxer m_demuxer;
};

}  // namespace

void AddOurs(Works* works) {
    AddCommand("ours", std::make_shared<Ours>(16384), works);
    AddGuide("ours", std::make_shared<Ours>(1 << 20), works);
}

}  // namespace kpl::bench
