#include "kpl/rpc/EpgDataList.h"

#include <limits.h>
#include <string.h>

#include <memory>
#include <new>

#include "kpl/rpc/RpcCommandFormat.h"

namespace {

using kpl::rpc::WordPointer;
using kpl::rpc::detail::LoadInt;
using kpl::rpc::detail::LoadWord;
using kpl::rpc::detail::StoreInt;
using kpl::rpc::detail::StoreWord;

// The block: count, a word that is 0 when there are no records, the records, then their texts.
constexpr int kItemsOffset = 4;
constexpr int kHeaderSize = 8;
constexpr int kRecordSize = 48;
constexpr int kTextsOffset = 8;
constexpr int kTextsPerRecord = 4;

bool HasRecords(const EpgDataList& list) {
    return list.count >= 1 && list.items != nullptr;
}

// The low half of a 64-bit pointer may be 0, and 0 would say that there are no records.
uint32_t ItemsWord(const EpgData* items) {
    const auto low = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(items));
    return low == 0 && items != nullptr ? 1 : low;
}

// How long the block of a list is, and whether a record or text of it lies, in part, where the
// block is to be written: in the `len` bytes of `buf`.
class Survey {
public:
    Survey(const EpgDataList& list, const char* buf, int len)
        : m_buf(reinterpret_cast<uintptr_t>(buf)),
          m_len(static_cast<uintptr_t>(len)),
          m_size(kHeaderSize + int64_t{kRecordSize} * list.count) {
        if (!HasRecords(list)) {
            return;
        }
        Note(list.items, static_cast<size_t>(list.count) * kRecordSize);
        for (int i = 0; i < list.count; ++i) {
            for (const EpgText& text : list.items[i].text) {
                Add(text);
            }
        }
    }

    // 0 if a text is lost or the sum is outside the range of int.
    int Size() const {
        return m_lost || m_size < INT_MIN || m_size > INT_MAX ? 0 : static_cast<int>(m_size);
    }

    bool IsInTheWay() const { return m_inTheWay; }

private:
    void Add(const EpgText& text) {
        const char* characters = text;
        if (characters != nullptr) {
            const size_t size = strlen(characters) + 1;
            m_size += static_cast<int64_t>(size);
            Note(characters, size);
        } else if (text.IsLost()) {
            m_lost = true;
        }
    }

    void Note(const void* data, size_t size) {
        const auto start = reinterpret_cast<uintptr_t>(data);
        m_inTheWay = m_inTheWay || start - m_buf < m_len || m_buf - start < size;
    }

    const uintptr_t m_buf;
    const uintptr_t m_len;
    int64_t m_size;
    bool m_lost = false;
    bool m_inTheWay = false;
};

char* WriteTexts(const EpgData& record, char* to) {
    for (const EpgText& text : record.text) {
        const char* characters = text;
        if (characters != nullptr) {
            const size_t length = strlen(characters) + 1;
            memcpy(to, characters, length);
            to += length;
        }
    }
    return to;
}

void WriteBlock(const EpgDataList& list, char* buf) {
    StoreInt(buf, list.count);
    StoreWord(buf + kItemsOffset, ItemsWord(list.items));
    if (HasRecords(list)) {
        const size_t recordBytes = static_cast<size_t>(list.count) * kRecordSize;
        memcpy(buf + kHeaderSize, list.items, recordBytes);
        char* texts = buf + kHeaderSize + recordBytes;
        for (int i = 0; i < list.count; ++i) {
            texts = WriteTexts(list.items[i], texts);
        }
    }
}

// Reads the texts of a block one after the other and puts their addresses into the records.
class TextScan {
public:
    TextScan(char* buf, int64_t offset, int64_t length)
        : m_buf(buf), m_offset(offset), m_length(length) {}

    bool PatchRecord(char* record) {
        for (size_t i = 0; i < kTextsPerRecord; ++i) {
            if (!PatchWord(record + kTextsOffset + i * sizeof(uint32_t))) {
                return false;
            }
        }
        return true;
    }

    int64_t Offset() const { return m_offset; }

private:
    bool PatchWord(char* word) {
        if (LoadWord(word) == 0) {
            return true;
        }
        if (m_offset >= m_length) {
            return false;
        }
        const char* text = m_buf + m_offset;
        const void* end = memchr(text, 0, static_cast<size_t>(m_length - m_offset));
        const uint32_t packed = WordPointer::Pack(text);
        if (end == nullptr || WordPointer::IsLost(packed)) {
            return false;
        }
        StoreWord(word, packed);
        m_offset += static_cast<const char*>(end) - text + 1;
        return true;
    }

    char* m_buf;
    int64_t m_offset;  // where the next text starts
    int64_t m_length;
};

}  // namespace

int GetSizeEpgDataList::GetSize(const EpgDataList& list) {
    return Survey(list, nullptr, 0).Size();
}

int ConvertEpgDataList::ConvertToBytes(EpgDataList& list, char* buf, int len) {
    if (buf == nullptr || len < 0 || list.count < 0) {
        return 0;
    }
    const Survey survey(list, buf, len);
    const int size = survey.Size();
    if (size == 0 || len < size) {
        return 0;
    }
    if (!survey.IsInTheWay()) {
        WriteBlock(list, buf);
        return size;
    }
    // A received list, in the buffer that is used again: it is read whole before anything of it is
    // overwritten.
    const auto bytes = static_cast<size_t>(size);
    const std::unique_ptr<char[]> block(new (std::nothrow) char[bytes]);
    if (block == nullptr) {
        return 0;
    }
    WriteBlock(list, block.get());
    memcpy(buf, block.get(), bytes);
    return size;
}

int RetrieveEpgDataList::RetrieveFromBytes(EpgDataList& list, char* buf, int len) {
    if (buf == nullptr || len < kHeaderSize) {
        return 0;
    }
    const uint32_t itemsWord = LoadWord(buf + kItemsOffset);
    list.count = LoadInt(buf);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the sender's word, kept as it is.
    list.items = reinterpret_cast<EpgData*>(static_cast<uintptr_t>(itemsWord));
    if (list.count < 1 || itemsWord == 0) {
        return kHeaderSize;
    }
    const int64_t recordsEnd = kHeaderSize + int64_t{kRecordSize} * list.count;
    // Room for one record is all that is asked of `len`. Records that no buffer can hold are
    // refused, their end would have no place in the result.
    if (len - kHeaderSize < kRecordSize || recordsEnd > INT_MAX) {
        return 0;
    }
    list.items = reinterpret_cast<EpgData*>(buf + kHeaderSize);
    TextScan scan(buf, recordsEnd, len);
    for (int64_t record = kHeaderSize; record < recordsEnd; record += kRecordSize) {
        if (!scan.PatchRecord(buf + record)) {
            return 0;
        }
    }
    return static_cast<int>(scan.Offset());
}
