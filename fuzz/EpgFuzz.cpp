// Reads any bytes as a block of programme-guide records, beside a reader that keeps offsets instead
// of pointers. What was read is written, and reads the same again.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "kpl/rpc/EpgDataList.h"
#include "kpl/rpc/RpcArray.h"
#include "kpl/rpc/RpcCommandDemuxer.h"
#include "kpl/rpc/RpcCommandMuxer.h"

namespace {

using namespace kpl::rpc;

constexpr size_t kHeader = 8;
constexpr size_t kRecord = 48;
constexpr size_t kTexts = 8;
constexpr int kTextsPerRecord = 4;

void Require(bool condition) {
    if (!condition) {
        abort();
    }
}

uint32_t WordAt(const std::string& bytes, size_t offset) {
    uint32_t word = 0;
    memcpy(&word, bytes.data() + offset, sizeof(word));
    return word;
}

// What a block says.
struct Block {
    bool isWhole = false;
    bool holdsRecords = false;  // the records themselves fit, whatever became of their texts
    size_t consumed = 0;
    std::vector<std::string> records;  // in words
};

std::string Fixed(const std::string& block, size_t record) {
    return block.substr(record, kTexts) +
           block.substr(record + kTexts + kTextsPerRecord * sizeof(uint32_t), 24);
}

// The texts stand behind all records, one after the other.
bool AddText(const std::string& block, size_t* at, std::string* record) {
    const size_t end = *at < block.size() ? block.find('\0', *at) : std::string::npos;
    if (end == std::string::npos) {
        return false;
    }
    *record += "|" + block.substr(*at, end - *at);
    *at = end + 1;
    return true;
}

Block ByOffsets(const std::string& block) {
    Block found;
    if (block.size() < kHeader) {
        return found;
    }
    const auto count = static_cast<int32_t>(WordAt(block, 0));
    found.consumed = kHeader;
    if (count < 1 || WordAt(block, 4) == 0) {
        found.isWhole = true;
        return found;
    }
    const uint64_t recordsEnd = kHeader + kRecord * static_cast<uint64_t>(count);
    if (recordsEnd > block.size()) {
        return found;
    }
    found.holdsRecords = true;
    size_t at = recordsEnd;
    for (size_t record = kHeader; record < recordsEnd; record += kRecord) {
        std::string words = Fixed(block, record);
        for (size_t text = 0; text < kTextsPerRecord; ++text) {
            if (WordAt(block, record + kTexts + text * sizeof(uint32_t)) == 0) {
                words += "-";
            } else if (!AddText(block, &at, &words)) {
                return found;
            }
        }
        found.records.push_back(words);
    }
    found.isWhole = true;
    found.consumed = at;
    return found;
}

std::vector<std::string> InWords(const EpgDataList& list) {
    std::vector<std::string> records;
    for (int i = 0; i < list.count && list.items != nullptr; ++i) {
        const EpgData& record = list.items[i];
        std::string words(reinterpret_cast<const char*>(record.head), sizeof(record.head));
        words.append(reinterpret_cast<const char*>(record.tail), sizeof(record.tail));
        for (const EpgText& text : record.text) {
            const char* const characters = text;
            words += characters != nullptr ? std::string("|") + characters : "-";
        }
        records.push_back(words);
    }
    return records;
}

// In memory of its own, so that the sanitizer sees a step outside it.
struct Copy {
    explicit Copy(const std::string& from) : bytes(new char[from.size()]), size(from.size()) {
        std::copy(from.begin(), from.end(), bytes);
    }
    ~Copy() { delete[] bytes; }
    Copy(const Copy&) = delete;
    Copy& operator=(const Copy&) = delete;

    char* const bytes;
    const size_t size;
};

void WriteAndReadAgain(EpgDataList& list, const Block& expected) {
    const int size = GetSizeEpgDataList::GetSize(list);
    Require(size > 0);
    std::string written(static_cast<size_t>(size), '.');
    Require(ConvertEpgDataList::ConvertToBytes(list, written.data(), size - 1) == 0);
    Require(ConvertEpgDataList::ConvertToBytes(list, written.data(), size) == size);
    const Block again = ByOffsets(written);
    Require(again.isWhole && again.consumed == written.size());
    Require(again.records == expected.records);
}

// As the reader of a block does that knows its bytes to hold the records.
void ReadInPlace(const std::string& block, const Block& expected) {
    const Copy copy(block);
    EpgDataList list;
    const int consumed =
        RetrieveEpgDataList::RetrieveFromBytes(list, copy.bytes, static_cast<int>(copy.size));
    Require(consumed == (expected.isWhole ? static_cast<int>(expected.consumed) : 0));
    if (!expected.records.empty() && expected.isWhole) {
        Require(InWords(list) == expected.records);
        WriteAndReadAgain(list, expected);
    }
}

// As the receiver of a command does, who knows nothing.
void ReadParameter(const std::string& block, const Block& expected) {
    static char buffer[1 << 16];
    RpcCommandMuxer muxer(buffer, sizeof(buffer));
    // An array's data stand 8 bytes behind the beginning of its parameter, as the block's do.
    std::string data = block.size() > kHeader ? block.substr(kHeader) : std::string();
    if (block.size() < kHeader ||
        !muxer.Push(RpcArray(data.data(), 1, static_cast<int>(data.size()))) ||
        muxer.Finish(RPC_COMMAND_RESULT, nullptr, 1) <= 0) {
        return;
    }
    RpcCommandDemuxer finished(buffer, sizeof(buffer));
    int length = 0;
    char* const bytes = finished.GetBytes(0, &length);
    Require(static_cast<size_t>(length) == block.size());
    memcpy(bytes, block.data(), kHeader);
    const Copy copy(std::string(buffer, static_cast<size_t>(finished.GetSize())));
    const RpcCommandDemuxer command(copy.bytes, static_cast<int>(copy.size));
    const std::vector<std::string> none;
    // Twice: reading it in place leaves what can be read again.
    for (int time = 0; time < 2; ++time) {
        Require(InWords(command.Get<EpgDataList>(0)) ==
                (expected.isWhole ? expected.records : none));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string block(data, data + size);
    const Block expected = ByOffsets(block);
    if (expected.holdsRecords || expected.isWhole) {
        ReadInPlace(block, expected);
    }
    ReadParameter(block, expected);
    return 0;
}
