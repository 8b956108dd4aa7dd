#include "GuideProtocol.h"

#include "GuideFile.h"

namespace guide {

namespace {

static_assert(kMaxListSize > static_cast<int>(8 + sizeof(EpgData) + kMaxLineSize),
              "a programme of any length fits into a list");
static_assert(kMaxListSize > static_cast<int>(8 + kMaxChannels * sizeof(ChannelRecord)),
              "all channels fit into a command");
static_assert(kMaxChannelNameSize < sizeof(ChannelRecord::name), "the name keeps its NUL");

// How a programme stands in the words of a record.
enum Head { kChannel, kAge };
enum Text { kTitle, kGenre, kDescription, kChannelName };
enum Tail { kStart, kEnd };  // in minutes since 1970, which 32 bits hold for eight thousand years

// An absent text takes no bytes of the list, an empty one would take one.
const char* TextOrNull(const std::string& text) {
    return text.empty() ? nullptr : text.c_str();
}

std::string Copy(EpgText text) {
    const char* const characters = text;
    return characters != nullptr ? characters : "";
}

}  // namespace

EpgData ToRecord(const Programme& programme, Detail detail) {
    EpgData record = {};
    record.head[kChannel] = static_cast<uint32_t>(programme.channel);
    record.head[kAge] = static_cast<uint32_t>(programme.age);
    record.text[kTitle] = TextOrNull(programme.title);
    record.text[kGenre] = TextOrNull(programme.genre);
    record.text[kDescription] =
        detail == Detail::Full ? TextOrNull(programme.description) : nullptr;
    record.text[kChannelName] = TextOrNull(programme.channelName);
    record.tail[kStart] = static_cast<uint32_t>(programme.start / kMinute);
    record.tail[kEnd] = static_cast<uint32_t>(programme.end / kMinute);
    return record;
}

Programme FromRecord(const EpgData& record) {
    Programme programme;
    programme.channel = static_cast<int>(record.head[kChannel]);
    programme.age = static_cast<int>(record.head[kAge]);
    programme.title = Copy(record.text[kTitle]);
    programme.genre = Copy(record.text[kGenre]);
    programme.description = Copy(record.text[kDescription]);
    programme.channelName = Copy(record.text[kChannelName]);
    programme.start = record.tail[kStart] * kMinute;
    programme.end = record.tail[kEnd] * kMinute;
    return programme;
}

}  // namespace guide
