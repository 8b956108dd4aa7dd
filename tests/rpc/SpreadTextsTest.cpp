// A process whose texts lie all over its address space, like one that has mapped many large files:
// thousands of pointers travel through commands and come back right, and once the process has used
// up its pages, what does not fit fails.
#include <gtest/gtest.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "kpl/rpc/EpgDataList.h"
#include "kpl/rpc/RpcCommandDemuxer.h"
#include "kpl/rpc/RpcCommandMuxer.h"
#include "tests/support/OwnProgram.h"

namespace {

using namespace kpl::rpc;

constexpr bool kWide = sizeof(void*) > sizeof(uint32_t);
constexpr uintptr_t kMiB = uintptr_t{1} << 20;
constexpr size_t kTextsPerMap = 64;
constexpr size_t kMapSize = (kTextsPerMap + 1) * kMiB;  // they start at a whole MiB
// A 32-bit process has that much to spare.
constexpr size_t kMaps = kWide ? 52 : 16;
constexpr size_t kPages = 4095;

// Address space without memory, but for one text in each MiB of it.
class Texts {
public:
    ~Texts() {
        for (char* map : m_maps) {
            munmap(map, kMapSize);
        }
    }

    // Another map of texts; false when there is no address space.
    bool AddMap() {
        void* map =
            mmap(nullptr, kMapSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (map == MAP_FAILED) {
            return false;
        }
        m_maps.push_back(static_cast<char*>(map));
        for (size_t i = 0; i < kTextsPerMap; ++i) {
            Write(Place(i));
        }
        return true;
    }

    size_t Count() const { return m_texts.size(); }
    const char* At(size_t number) const { return m_texts[number]; }

    static std::string Expected(size_t number) { return "programme " + std::to_string(number); }

    // From the first text to the last.
    uintptr_t Spread() const {
        const auto ends = std::minmax_element(m_texts.begin(), m_texts.end());
        return static_cast<uintptr_t>(*ends.second - *ends.first);
    }

private:
    // Anywhere in its MiB; every other one reaches into the next MiB.
    char* Place(size_t i) const {
        const bool crosses = i % 2 == 1 && i + 1 < kTextsPerMap;
        char* const first =
            m_maps.back() + (kMiB - reinterpret_cast<uintptr_t>(m_maps.back()) % kMiB);
        return first + i * kMiB + (crosses ? kMiB - 7 : m_texts.size() * 1237 % 1000000);
    }

    void Write(char* place) {
        const auto size = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
        char* const page = place - reinterpret_cast<uintptr_t>(place) % size;
        const std::string text = Expected(m_texts.size());
        ASSERT_EQ(mprotect(page, 2 * size, PROT_READ | PROT_WRITE), 0);
        std::copy_n(text.c_str(), text.size() + 1, place);
        m_texts.push_back(place);
    }

    std::vector<char*> m_maps;
    std::vector<const char*> m_texts;
};

void OnEvent(void*, RpcCommandDemuxer*) {}

// Sends texts `first` to `first` + 3 in a record, and contexts with them as proxies, and reads
// both. Returns how many of the eight came back wrong.
int CountWrong(const Texts& texts, size_t first) {
    EpgData record{};
    for (size_t i = 0; i < 4; ++i) {
        record.text[i] = texts.At(first + i);
    }
    // In the same page each time: the texts that are read lie in it.
    static thread_local char buffer[1024];
    RpcCommandMuxer muxer(buffer, sizeof(buffer));
    bool pushed = muxer.Push(EpgDataList{1, &record});
    for (size_t i = 0; i < 4; ++i) {
        pushed = pushed &&
                 muxer.Push(RpcCallbackContext(const_cast<char*>(texts.At(first + i)), &OnEvent));
    }
    if (!pushed) {
        return 8;
    }
    const RpcCommandDemuxer demuxer(buffer, muxer.Finish(RPC_COMMAND_RESULT, nullptr, 1));
    const auto list = demuxer.Get<EpgDataList>(0);
    int wrong = 0;
    for (size_t i = 0; i < 4; ++i) {
        const char* text = list.count == 1 ? static_cast<const char*>(list.items->text[i]) : "";
        const auto context = demuxer.Get<RpcCallbackContext>(static_cast<int>(i) + 1);
        wrong += text != nullptr && text == Texts::Expected(first + i) ? 0 : 1;
        wrong +=
            context.GetProxy() == texts.At(first + i) && context.GetFunction() == &OnEvent ? 0 : 1;
    }
    return wrong;
}

// All texts, beginning with number `from`.
int CountWrong(const Texts& texts, size_t begin, size_t end, size_t from) {
    int wrong = 0;
    for (size_t i = 0; i < end - begin; i += 4) {
        wrong += CountWrong(texts, begin + (from + i) % (end - begin));
    }
    return wrong;
}

TEST(SpreadTextsTest, TwoThreadsSendThousandsOfTextsFromAllOverTheAddressSpace) {
    if (!kpl::test::RunsInFreshProcess()) {
        return;
    }
    Texts texts;
    for (size_t i = 0; i < kMaps; ++i) {
        ASSERT_TRUE(texts.AddMap());
    }
    ASSERT_GE(texts.Spread(), kWide ? 3072 * kMiB : 1000 * kMiB);
    // The other one begins half-way, so that each finds pages that are new and pages that are
    // known.
    int wrongThere = 0;
    std::thread other([&] { wrongThere = CountWrong(texts, 0, texts.Count(), texts.Count() / 2); });
    const int wrongHere = CountWrong(texts, 0, texts.Count(), 0);
    other.join();
    EXPECT_EQ(wrongHere, 0);
    EXPECT_EQ(wrongThere, 0);
}

const char kKnown[] = "known";

// What cannot be sent: a push says so, and discards the command.
void ExpectRefused(const char* text) {
    char buffer[1024];
    RpcCommandMuxer muxer(buffer, sizeof(buffer));
    EpgData record{};
    record.text[1] = kKnown;
    record.text[3] = text;
    EXPECT_TRUE(muxer.Push("before"));
    EXPECT_FALSE(muxer.Push(EpgDataList{1, &record}));
    EXPECT_FALSE(muxer.IsValidCommand());
    EXPECT_TRUE(muxer.Push("before"));
    EXPECT_FALSE(muxer.Push(RpcCallbackContext(const_cast<char*>(text), &OnEvent)));
    EXPECT_FALSE(muxer.IsValidCommand());
}

TEST(SpreadTextsTest, WithAllPagesUsedUpAPushOfATextElsewhereFailsAndTheOthersStayRight) {
    if (!kWide) {
        GTEST_SKIP() << "the word is the pointer here";
    }
    if (!kpl::test::RunsInFreshProcess()) {
        return;
    }
    Texts texts;
    ASSERT_TRUE(texts.AddMap());
    // The pages of the code, the constants, the buffer.
    ASSERT_EQ(CountWrong(texts, 0), 0);
    ASSERT_FALSE(EpgText(kKnown).IsLost());
    size_t known = 0;
    while (!WordPointer::IsLost(WordPointer::Pack(texts.At(known)))) {
        if (++known == texts.Count()) {
            ASSERT_TRUE(texts.AddMap());
        }
    }
    EXPECT_LT(known, kPages);
    EXPECT_GE(known, kPages - 16);
    ASSERT_TRUE(texts.AddMap());
    for (size_t number = known; number < texts.Count(); ++number) {
        ExpectRefused(texts.At(number));
    }
    EXPECT_EQ(CountWrong(texts, 0, known / 4 * 4, 0), 0);
}

}  // namespace
