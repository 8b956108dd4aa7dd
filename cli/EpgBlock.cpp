#include "cli/EpgBlock.h"

#include <string.h>

namespace kpl::cli {

namespace {

constexpr size_t kHeaderSize = 8;
constexpr size_t kPointerOffset = 4;
constexpr size_t kRecordSize = 48;
constexpr size_t kTextOffset = 8;
constexpr size_t kTailOffset = 24;

uint32_t WordAt(const std::string& bytes, size_t at) {
    uint32_t word = 0;
    memcpy(&word, bytes.data() + at, sizeof(word));
    return word;
}

// The NUL-terminated text at `*at`, which moves behind it; nothing without a terminator.
std::optional<std::string> TakeText(const std::string& bytes, size_t* at) {
    const size_t end = bytes.find('\0', *at);
    if (end == std::string::npos) {
        return std::nullopt;
    }
    const std::string text = bytes.substr(*at, end - *at);
    *at = end + 1;
    return text;
}

// The record at `at`, with its texts taken from `*textAt`.
std::optional<EpgRecord> TakeRecord(const std::string& bytes, size_t at, size_t* textAt) {
    EpgRecord record{};
    for (size_t i = 0; i < 2; ++i) {
        record.head[i] = WordAt(bytes, at + 4 * i);
    }
    for (size_t i = 0; i < 6; ++i) {
        record.tail[i] = WordAt(bytes, at + kTailOffset + 4 * i);
    }
    for (size_t i = 0; i < 4; ++i) {
        if (WordAt(bytes, at + kTextOffset + 4 * i) == 0) {
            continue;
        }
        record.text[i] = TakeText(bytes, textAt);
        if (!record.text[i]) {
            return std::nullopt;
        }
    }
    return record;
}

void MaskWord(std::string* bytes, size_t at) {
    const uint32_t one = 1;
    if (WordAt(*bytes, at) != 0) {
        memcpy(bytes->data() + at, &one, sizeof(one));
    }
}

}  // namespace

std::optional<std::vector<EpgRecord>> ReadEpgBlock(const std::string& bytes) {
    if (bytes.size() < kHeaderSize + kRecordSize || WordAt(bytes, kPointerOffset) == 0) {
        return std::nullopt;
    }
    const uint64_t count = WordAt(bytes, 0);
    if (count == 0 || count > (bytes.size() - kHeaderSize) / kRecordSize) {
        return std::nullopt;
    }
    std::vector<EpgRecord> records;
    size_t textAt = kHeaderSize + static_cast<size_t>(count) * kRecordSize;
    for (size_t i = 0; i < count; ++i) {
        std::optional<EpgRecord> record = TakeRecord(bytes, kHeaderSize + i * kRecordSize, &textAt);
        if (!record) {
            return std::nullopt;
        }
        records.push_back(std::move(*record));
    }
    if (textAt != bytes.size()) {
        return std::nullopt;
    }
    return records;
}

std::string MaskPointers(const std::string& bytes) {
    const auto records = ReadEpgBlock(bytes);
    // Where the bytes are an array's too, its size stands where the list has its pointer.
    if (!records || ReadArrayCount(bytes)) {
        return bytes;
    }
    std::string masked = bytes;
    MaskWord(&masked, kPointerOffset);
    for (size_t i = 0; i < records->size(); ++i) {
        for (size_t text = 0; text < 4; ++text) {
            MaskWord(&masked, kHeaderSize + i * kRecordSize + kTextOffset + 4 * text);
        }
    }
    return masked;
}

std::optional<int> ReadArrayCount(const std::string& bytes) {
    if (bytes.size() < kHeaderSize || WordAt(bytes, 4) != bytes.size() - kHeaderSize) {
        return std::nullopt;
    }
    return static_cast<int>(WordAt(bytes, 0));
}

}  // namespace kpl::cli
