// Commands damaged in every place, read through every accessor. Each is laid out twice: on the heap
// in exactly as many bytes, for the sanitizers, and against the end of a readable page, where any
// build faults on the first byte too far. A plain second reading of the format says what the
// answers have to be.
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <vector>

#include "kpl/rpc/EpgDataList.h"
#include "kpl/rpc/RpcArray.h"
#include "kpl/rpc/RpcCommandDemuxer.h"
#include "tests/rpc/CommandBytes.h"
#include "tests/support/LogCapture.h"

namespace {

using namespace kpl::rpc;
using namespace kpl::test;

// Memory that ends where a page ends; the next page cannot be touched.
class PageEnd {
public:
    PageEnd()
        : m_pageSize(static_cast<size_t>(sysconf(_SC_PAGESIZE))),
          m_memory(static_cast<char*>(mmap(nullptr, 2 * m_pageSize, PROT_READ | PROT_WRITE,
                                           MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
        mprotect(m_memory + m_pageSize, m_pageSize, PROT_NONE);
    }
    ~PageEnd() { munmap(m_memory, 2 * m_pageSize); }
    PageEnd(const PageEnd&) = delete;
    PageEnd& operator=(const PageEnd&) = delete;

    char* Place(const std::string& bytes) {
        char* to = m_memory + m_pageSize - bytes.size();
        memcpy(to, bytes.data(), bytes.size());
        return to;
    }

private:
    size_t m_pageSize;
    char* m_memory;
};

// The format, read the slow and obvious way.
class Oracle {
public:
    Oracle(const std::string& bytes) : m_bytes(bytes) {
        if (bytes.size() < 16) {
            return;
        }
        const int64_t total = static_cast<int32_t>(Word(8));
        m_end = std::min<int64_t>(total, static_cast<int64_t>(bytes.size()));
        m_count = static_cast<int32_t>(Word(12));
        int64_t offset = 16;
        while (static_cast<int64_t>(m_params.size()) < m_count && offset + 4 <= m_end) {
            m_params.push_back(offset);
            if (offset + 8 > m_end) {
                break;
            }
            offset += 8 + int64_t{Word(offset + 4)};
        }
        const uint32_t type = Word(0);
        m_valid = type >= 10001 && type <= 10003 && m_end == total && offset == total &&
                  static_cast<int64_t>(m_params.size()) == m_count;
    }

    bool Valid() const { return m_valid; }
    unsigned Id() const { return m_valid ? Word(4) : 0; }
    std::optional<std::string> Name() const {
        return m_count < 1 ? std::nullopt : String(static_cast<int>(m_count - 1));
    }

    int Code(int index) const { return Has(index) ? static_cast<int>(Word(At(index))) : 0; }

    template <class T>
    T Value(int index) const {
        T value{};
        if (Has(index) && At(index) + 8 + static_cast<int64_t>(sizeof(T)) <= m_end) {
            memcpy(&value, m_bytes.data() + At(index) + 8, sizeof(T));
        }
        return value;
    }

    std::optional<std::string> String(int index) const {
        if (!Has(index) || At(index) + 8 >= m_end) {
            return std::nullopt;
        }
        const std::string space = m_bytes.substr(static_cast<size_t>(At(index) + 8),
                                                 static_cast<size_t>(m_end - At(index) - 8));
        const size_t end = space.find('\0');
        return end == std::string::npos ? std::nullopt : std::optional(space.substr(0, end));
    }

    int Counts(int code) const {
        return static_cast<int>(std::count_if(m_params.begin(), m_params.end(), [&](int64_t at) {
            return static_cast<int>(Word(at)) == code;
        }));
    }

private:
    bool Has(int index) const { return index >= 0 && index < static_cast<int>(m_params.size()); }
    int64_t At(int index) const { return m_params[static_cast<size_t>(index)]; }
    uint32_t Word(int64_t offset) const {
        uint32_t word = 0;
        memcpy(&word, m_bytes.data() + offset, 4);
        return word;
    }

    const std::string& m_bytes;
    int64_t m_end = 0;
    int64_t m_count = 0;
    std::vector<int64_t> m_params;
    bool m_valid = false;
};

std::optional<std::string> Optional(const char* text) {
    return text == nullptr ? std::nullopt : std::optional<std::string>(text);
}

bool Inside(const void* block, int64_t size, const char* buf, size_t length) {
    const auto* start = static_cast<const char*>(block);
    return start >= buf && size >= 0 && start + size <= buf + length;
}

void ExpectSafeStructures(const RpcCommandDemuxer& demuxer, int index, const char* buf,
                          size_t length) {
    const auto array = demuxer.Get<RpcArray>(index);
    if (array.GetData() != nullptr) {
        EXPECT_TRUE(Inside(array.GetData(), array.GetTotalSizeInBytes(), buf, length));
    }
    for (int round = 0; round < 2; ++round) {  // a second Get meets what the first one wrote
        const auto list = demuxer.Get<EpgDataList>(index);
        ASSERT_GE(list.count, 0);
        ASSERT_EQ(list.count > 0, list.items != nullptr);
        if (list.count > 0) {
            ASSERT_TRUE(Inside(list.items, int64_t{48} * list.count, buf, length));
        }
        for (int i = 0; i < list.count; ++i) {
            for (const EpgText& text : list.items[i].text) {
                const char* characters = text;
                ASSERT_TRUE(
                    characters == nullptr ||
                    Inside(characters, static_cast<int64_t>(strlen(characters)) + 1, buf, length));
            }
        }
    }
}

void ExpectAnswers(char* buf, const std::string& bytes) {
    const Oracle oracle(bytes);
    const RpcCommandDemuxer demuxer(buf, static_cast<int>(bytes.size()));
    ASSERT_EQ(demuxer.IsValidCommand(), oracle.Valid());
    ASSERT_EQ(demuxer.GetId(), oracle.Id());
    ASSERT_EQ(demuxer.GetSize() != 0, oracle.Valid());
    for (const int code : {1, 2, 50, 51, 60}) {
        const auto type = static_cast<RpcParamType>(code);
        ASSERT_EQ(demuxer.GetCommandCounts(type), oracle.Counts(code));
        ASSERT_EQ(demuxer.HasParamType(type), oracle.Counts(code) > 0);
    }
    ASSERT_EQ(Optional(demuxer.GetFunctionName()), oracle.Name());
    for (const int index : {INT_MIN, -1, 0, 1, 2, 3, 4, 5, 6, 7, 8, INT_MAX}) {
        ASSERT_EQ(demuxer.GetParamType(index), oracle.Code(index));
        ASSERT_EQ(demuxer.Get<bool>(index), oracle.Value<unsigned char>(index) != 0);
        ASSERT_EQ(demuxer.Get<short>(index), oracle.Value<short>(index));
        ASSERT_EQ(demuxer.Get<long>(index), oracle.Value<int32_t>(index));
        ASSERT_EQ(demuxer.Get<unsigned long>(index), oracle.Value<uint32_t>(index));
        ASSERT_EQ(demuxer.Get<long long>(index), oracle.Value<long long>(index));
        const auto context = demuxer.Get<RpcCallbackContext>(index);
        const auto words = oracle.Value<uint64_t>(index);
        ASSERT_EQ(memcmp(&context, &words, sizeof(words)), 0);
        ASSERT_EQ(Optional(demuxer.Get<const char*>(index)), oracle.String(index));
    }
    demuxer.Dump();
    for (int index = -1; index < 9; ++index) {
        ExpectSafeStructures(demuxer, index, buf, bytes.size());
    }
}

// One command with every shape of parameter: short, long, text, array, list, empty.
std::string Sample() {
    const std::string record =
        Words({1, 2, 7, 0, 7, 7}) + Words({3, 4, 5, 6, 7, 8});  // texts 1, 3 and 4
    const std::string list = Words({1, 1}) + record + Text("ab") + Text("") + Text("c");
    return Command(10001, 0x11223344, 8,
                   Param(1, "\x01") + Param(2, Words({5})) + Param(12, Words({1, 2})) +
                       Param(51, Words({2, 6}) + "abcdef") + Param(51, list) +
                       Param(60, Words({1, 2})) + Param(51, "") + Param(50, Text("Name")));
}

class HostileCommandTest : public testing::Test {
protected:
    void Check(const std::string& bytes) {
        const ExactBytes exact(bytes);
        ExpectAnswers(exact.Data(), bytes);
        ExpectAnswers(m_pageEnd.Place(bytes), bytes);
        m_log.Clear();
    }

private:
    PageEnd m_pageEnd;
    LogCapture m_log;
};

TEST_F(HostileCommandTest, TheSampleItselfIsReadWhole) {
    const std::string bytes = Sample();
    Check(bytes);
    const ExactBytes exact(bytes);
    const RpcCommandDemuxer demuxer(exact.Data(), exact.Size());
    EXPECT_TRUE(demuxer.IsValidCommand());
    const auto list = demuxer.Get<EpgDataList>(4);
    ASSERT_EQ(list.count, 1);
    EXPECT_STREQ(list.items[0].text[0], "ab");
    EXPECT_STREQ(list.items[0].text[1], nullptr);
    EXPECT_STREQ(list.items[0].text[2], "");
    EXPECT_STREQ(list.items[0].text[3], "c");
}

TEST_F(HostileCommandTest, CutAtEveryLength) {
    const std::string bytes = Sample();
    for (size_t length = 0; length <= bytes.size(); ++length) {
        SCOPED_TRACE(length);
        Check(bytes.substr(0, length));
    }
}

TEST_F(HostileCommandTest, CutAtEveryLengthWithATotalThatAgrees) {
    const std::string bytes = Sample();
    for (size_t length = 16; length <= bytes.size(); ++length) {
        SCOPED_TRACE(length);
        std::string cut = bytes.substr(0, length);
        SetWord(&cut, 8, static_cast<uint32_t>(length));
        Check(cut);
    }
}

TEST_F(HostileCommandTest, EveryWordAtEveryPlaceSetToEveryExtreme) {
    const std::string bytes = Sample();
    const auto size = static_cast<uint32_t>(bytes.size());
    for (size_t offset = 0; offset + 4 <= bytes.size(); ++offset) {
        for (const uint32_t value :
             {0U, 1U, 2U, 15U, 16U, 17U, size - 1, size, size + 1, 0x7FFFFFFFU, 0x80000000U,
              0xFFFFFFF7U, 0xFFFFFFF8U, 0xFFFFFFFFU}) {
            SCOPED_TRACE(testing::Message() << "offset " << offset << " value " << value);
            std::string damaged = bytes;
            SetWord(&damaged, offset, value);
            Check(damaged);
        }
    }
}

TEST_F(HostileCommandTest, CountAndTotalBothAtTheirExtremes) {
    const std::string bytes = Sample();
    const auto size = static_cast<uint32_t>(bytes.size());
    const uint32_t extremes[] = {0,        1,          15,         16,        size - 1,
                                 size + 1, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    for (const uint32_t total : extremes) {
        for (const uint32_t count : extremes) {
            SCOPED_TRACE(testing::Message() << "total " << total << " count " << count);
            std::string damaged = bytes;
            SetWord(&damaged, 8, total);
            SetWord(&damaged, 12, count);
            Check(damaged);
        }
    }
}

}  // namespace
