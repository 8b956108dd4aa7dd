#include <string.h>

#include <msgpack.hpp>

#include "bench/rpc/command/Work.h"

namespace kpl::bench {

namespace {

// Buffer and zone are used again and again; texts are read where they lie. They travel with their
// NUL, so that they can be used as they are.
class Msgpack {
public:
    void WriteCommand() {
        m_buffer.clear();
        msgpack::packer<msgpack::sbuffer> packer(m_buffer);
        packer.pack_array(kFields);
        packer.pack(command.id);
        PackText(&packer, command.function);
        packer.pack(command.channel);
        packer.pack(command.flags);
        packer.pack(command.time);
        packer.pack(command.rate);
        packer.pack(command.live);
        PackText(&packer, command.title);
    }

    bool ReadCommand(Command* to) {
        m_zone.clear();
        size_t offset = 0;
        msgpack::object read;
        try {
            bool referenced = false;
            read = msgpack::unpack(m_zone, m_buffer.data(), m_buffer.size(), offset, referenced,
                                   [](msgpack::type::object_type, size_t, void*) { return true; });
            if (read.type != msgpack::type::ARRAY || read.via.array.size != kFields) {
                return false;
            }
            const msgpack::object* field = read.via.array.ptr;
            to->id = field[0].as<unsigned>();
            to->function = TextOf(field[1]);
            to->channel = field[2].as<int>();
            to->flags = field[3].as<unsigned>();
            to->time = field[4].as<long long>();
            to->rate = field[5].as<double>();
            to->live = field[6].as<bool>();
            to->title = TextOf(field[7]);
        } catch (const std::exception&) {
            return false;
        }
        return to->function != nullptr && to->title != nullptr;
    }

private:
    static constexpr uint32_t kFields = 8;

    static void PackText(msgpack::packer<msgpack::sbuffer>* packer, const char* text) {
        const auto size = static_cast<uint32_t>(strlen(text) + 1);
        packer->pack_str(size);
        packer->pack_str_body(text, size);
    }

    static const char* TextOf(const msgpack::object& field) {
        const bool ends = field.type == msgpack::type::STR && field.via.str.size > 0 &&
                          field.via.str.ptr[field.via.str.size - 1] == '\0';
        return ends ? field.via.str.ptr : nullptr;
    }

    msgpack::sbuffer m_buffer;
    msgpack::zone m_zone;
};

}  // namespace

void AddMsgpack(Works* works) {
    AddCommand("msgpack", std::make_shared<Msgpack>(), works);
}

}  // namespace kpl::bench
