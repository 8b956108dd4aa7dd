#include "bench/rpc/command/Work.h"
#include "command.pb.h"

namespace kpl::bench {

namespace {

// The messages and the buffer are used again and again, so that after the first time nothing is
// allocated.
class Protobuf {
public:
    void WriteCommand() {
        m_out.Clear();
        m_out.set_id(command.id);
        m_out.set_function(command.function);
        m_out.set_channel(command.channel);
        m_out.set_flags(command.flags);
        m_out.set_time(command.time);
        m_out.set_rate(command.rate);
        m_out.set_live(command.live);
        m_out.set_title(command.title);
        Write(m_out);
    }

    bool ReadCommand(Command* to) {
        if (!m_in.ParseFromArray(m_buffer.data(), static_cast<int>(m_size))) {
            return false;
        }
        to->id = m_in.id();
        to->function = m_in.function().c_str();
        to->channel = m_in.channel();
        to->flags = m_in.flags();
        to->time = m_in.time();
        to->rate = m_in.rate();
        to->live = m_in.live();
        to->title = m_in.title().c_str();
        return true;
    }

    void WriteGuide() {
        m_outGuide.Clear();
        for (const Programme& from : guide) {
            proto::Programme* to = m_outGuide.add_programmes();
            for (const uint32_t word : from.head) {
                to->add_head(word);
            }
            for (const char* text : from.text) {
                to->add_text(text);
            }
            for (const uint32_t word : from.tail) {
                to->add_tail(word);
            }
        }
        Write(m_outGuide);
    }

    uint64_t ReadGuide() {
        uint64_t sum = 0;
        if (!m_inGuide.ParseFromArray(m_buffer.data(), static_cast<int>(m_size))) {
            return sum;
        }
        for (const proto::Programme& programme : m_inGuide.programmes()) {
            for (const uint32_t word : programme.head()) {
                sum += word;
            }
            for (const std::string& text : programme.text()) {
                sum += static_cast<unsigned char>(*text.c_str());
            }
            for (const uint32_t word : programme.tail()) {
                sum += word;
            }
        }
        return sum;
    }

private:
    template <typename Message>
    void Write(const Message& message) {
        m_size = message.ByteSizeLong();
        if (m_buffer.size() < m_size) {
            m_buffer.resize(m_size);
        }
        message.SerializeWithCachedSizesToArray(reinterpret_cast<uint8_t*>(m_buffer.data()));
    }

    proto::Command m_out;
    proto::Command m_in;
    proto::Guide m_outGuide;
    proto::Guide m_inGuide;
    std::vector<char> m_buffer;
    size_t m_size = 0;
};

}  // namespace

void AddProtobuf(Works* works) {
    AddCommand("protobuf", std::make_shared<Protobuf>(), works);
    AddGuide("protobuf", std::make_shared<Protobuf>(), works);
}

}  // namespace kpl::bench
