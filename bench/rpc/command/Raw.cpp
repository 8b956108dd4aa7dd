// The least: bytes copied to places that both sides know, without a word about what they are.
#include <string.h>

#include "bench/rpc/command/Work.h"

namespace kpl::bench {

namespace {

constexpr size_t kTextRoom = 32;

struct Fixed {
    unsigned id;
    int channel;
    unsigned flags;
    long long time;
    double rate;
    bool live;
    char function[kTextRoom];
    char title[kTextRoom];
};

class Raw {
public:
    void WriteCommand() {
        char* const to = m_buffer;
        memcpy(to + offsetof(Fixed, id), &command.id, sizeof(command.id));
        memcpy(to + offsetof(Fixed, channel), &command.channel, sizeof(command.channel));
        memcpy(to + offsetof(Fixed, flags), &command.flags, sizeof(command.flags));
        memcpy(to + offsetof(Fixed, time), &command.time, sizeof(command.time));
        memcpy(to + offsetof(Fixed, rate), &command.rate, sizeof(command.rate));
        memcpy(to + offsetof(Fixed, live), &command.live, sizeof(command.live));
        WriteText(to + offsetof(Fixed, function), command.function);
        WriteText(to + offsetof(Fixed, title), command.title);
    }

    bool ReadCommand(Command* to) {
        const char* const from = m_buffer;
        memcpy(&to->id, from + offsetof(Fixed, id), sizeof(to->id));
        memcpy(&to->channel, from + offsetof(Fixed, channel), sizeof(to->channel));
        memcpy(&to->flags, from + offsetof(Fixed, flags), sizeof(to->flags));
        memcpy(&to->time, from + offsetof(Fixed, time), sizeof(to->time));
        memcpy(&to->rate, from + offsetof(Fixed, rate), sizeof(to->rate));
        memcpy(&to->live, from + offsetof(Fixed, live), sizeof(to->live));
        to->function = from + offsetof(Fixed, function);
        to->title = from + offsetof(Fixed, title);
        return true;
    }

private:
    // As long as the text is, which is not known before.
    static void WriteText(char* to, const char* text) { memcpy(to, text, strlen(text) + 1); }

    char m_buffer[sizeof(Fixed)] = {};
};

// The bytes of all records and texts, copied there and back.
class RawGuide {
public:
    RawGuide() {
        for (const Programme& programme : guide) {
            m_size += 48;
            for (const char* text : programme.text) {
                m_size += strlen(text) + 1;
            }
        }
        m_from.resize(m_size);
        m_buffer.resize(m_size);
    }

    void Run() {
        memcpy(m_buffer.data(), m_from.data(), m_size);
        Keep(m_buffer.data());
        memcpy(m_from.data(), m_buffer.data(), m_size);
        Keep(m_from.data());
    }

private:
    size_t m_size = 0;
    std::vector<char> m_from;
    std::vector<char> m_buffer;
};

}  // namespace

void AddRaw(Works* works) {
    AddCommand("raw: memcpy into fixed fields", std::make_shared<Raw>(), works);
    works->guides.Add("raw: copy there and back",
                      NsPerRun([copy = std::make_shared<RawGuide>()] { copy->Run(); }));
}

}  // namespace kpl::bench
