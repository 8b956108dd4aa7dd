#include "bench/rpc/command/Work.h"
#include "command_generated.h"

namespace kpl::bench {

namespace {

// The builder and its memory are used again and again. What comes from another process must be
// verified before it is read; how long reading takes without is shown, too.
template <bool kVerified>
class FlatBuffers {
public:
    void WriteCommand() {
        m_builder.Clear();
        const auto function = m_builder.CreateString(command.function);
        const auto title = m_builder.CreateString(command.title);
        m_builder.Finish(flat::CreateCommand(m_builder, command.id, function, command.channel,
                                             command.flags, command.time, command.rate,
                                             command.live, title));
    }

    bool ReadCommand(Command* to) {
        const auto* from = Root<flat::Command>();
        if (from == nullptr || from->function() == nullptr || from->title() == nullptr) {
            return false;
        }
        to->id = from->id();
        to->function = from->function()->c_str();
        to->channel = from->channel();
        to->flags = from->flags();
        to->time = from->time();
        to->rate = from->rate();
        to->live = from->live();
        to->title = from->title()->c_str();
        return true;
    }

    void WriteGuide() {
        m_builder.Clear();
        m_programmes.clear();
        for (const Programme& from : guide) {
            const flat::Words words(flatbuffers::span<const uint32_t, 2>(from.head),
                                    flatbuffers::span<const uint32_t, 6>(from.tail));
            const auto text0 = m_builder.CreateString(from.text[0]);
            const auto text1 = m_builder.CreateString(from.text[1]);
            const auto text2 = m_builder.CreateString(from.text[2]);
            const auto text3 = m_builder.CreateString(from.text[3]);
            m_programmes.push_back(
                flat::CreateProgramme(m_builder, &words, text0, text1, text2, text3));
        }
        m_builder.Finish(flat::CreateGuide(m_builder, m_builder.CreateVector(m_programmes)));
    }

    uint64_t ReadGuide() {
        uint64_t sum = 0;
        const auto* from = Root<flat::Guide>();
        if (from == nullptr) {
            return sum;
        }
        for (const flat::Programme* programme : *from->programmes()) {
            for (const uint32_t word : *programme->words()->head()) {
                sum += word;
            }
            sum += First(programme->text0()) + First(programme->text1()) +
                   First(programme->text2()) + First(programme->text3());
            for (const uint32_t word : *programme->words()->tail()) {
                sum += word;
            }
        }
        return sum;
    }

private:
    static uint64_t First(const flatbuffers::String* text) {
        return static_cast<unsigned char>(*text->c_str());
    }

    template <typename Table>
    const Table* Root() const {
        const uint8_t* bytes = m_builder.GetBufferPointer();
        if constexpr (kVerified) {
            flatbuffers::Verifier verifier(bytes, m_builder.GetSize());
            if (!verifier.VerifyBuffer<Table>(nullptr)) {
                return nullptr;
            }
        }
        return flatbuffers::GetRoot<Table>(bytes);
    }

    flatbuffers::FlatBufferBuilder m_builder;
    std::vector<flatbuffers::Offset<flat::Programme>> m_programmes;
};

}  // namespace

void AddFlatBuffers(Works* works) {
    AddCommand("FlatBuffers", std::make_shared<FlatBuffers<true>>(), works);
    AddCommand("FlatBuffers, not verified", std::make_shared<FlatBuffers<false>>(), works);
    AddGuide("FlatBuffers", std::make_shared<FlatBuffers<true>>(), works);
    AddGuide("FlatBuffers, not verified", std::make_shared<FlatBuffers<false>>(), works);
}

}  // namespace kpl::bench
