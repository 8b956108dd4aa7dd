#include "rpc/PageTable.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <random>
#include <set>
#include <thread>
#include <vector>

namespace {

using kpl::rpc::PageTable;

constexpr uintptr_t kPageSize = uintptr_t{1} << PageTable::kOffsetBits;

std::unique_ptr<PageTable> TableOf(uint32_t capacity) {
    return std::make_unique<PageTable>(capacity);
}

// Addresses, never followed.
const void* At(uintptr_t page, uintptr_t offset) {
    return reinterpret_cast<const void*>(page * kPageSize + offset);
}

TEST(PageTableTest, NullTakesNoPage) {
    const auto table = TableOf(1);
    EXPECT_EQ(table->Pack(nullptr), 0U);
    EXPECT_EQ(table->Unpack(0), nullptr);
    EXPECT_NE(table->Pack(At(7, 1)), PageTable::kLostWord);
}

TEST(PageTableTest, AWordIsPageNumberAndOffset) {
    const auto table = TableOf(2);
    EXPECT_EQ(table->Pack(At(900, 0)), 0x00100000U);
    EXPECT_EQ(table->Pack(At(900, 0xABCDE)), 0x001ABCDEU);
    EXPECT_EQ(table->Pack(At(5, 0)), 0x00200000U);
}

TEST(PageTableTest, LastByteOfAPageAndFirstOfTheNextStayApart) {
    const auto table = TableOf(2);
    const uint32_t last = table->Pack(At(10, kPageSize - 1));
    const uint32_t first = table->Pack(At(11, 0));
    EXPECT_EQ(last, 0x001FFFFFU);
    EXPECT_EQ(first, 0x00200000U);
    EXPECT_EQ(table->Unpack(last), At(10, kPageSize - 1));
    EXPECT_EQ(table->Unpack(first), At(11, 0));
}

TEST(PageTableTest, TheLowestAndTheHighestPageCanBeUsed) {
    const auto table = TableOf(2);
    const uintptr_t highest = UINTPTR_MAX >> PageTable::kOffsetBits;
    const uint32_t low = table->Pack(At(0, 1));
    const uint32_t high = table->Pack(At(highest, kPageSize - 1));
    EXPECT_GE(low, kPageSize);
    EXPECT_EQ(table->Unpack(low), At(0, 1));
    EXPECT_EQ(table->Unpack(high), At(highest, kPageSize - 1));
}

TEST(PageTableTest, AFullTableLosesNewPagesAndKeepsTheOldOnes) {
    const auto table = TableOf(2);
    const uint32_t first = table->Pack(At(1, 5));
    const uint32_t second = table->Pack(At(2, 6));
    EXPECT_EQ(table->Pack(At(3, 7)), PageTable::kLostWord);
    EXPECT_EQ(table->Unpack(PageTable::kLostWord), nullptr);
    EXPECT_EQ(table->Pack(At(1, 5)), first);
    EXPECT_EQ(table->Pack(At(2, 6)), second);
    EXPECT_EQ(table->Unpack(second), At(2, 6));
}

TEST(PageTableTest, AtFullCapacityEveryPageIsFoundAndTheNextIsLost) {
    if (sizeof(void*) == 4) {
        GTEST_SKIP() << "all of memory is 4096 pages here, and a word is the pointer itself";
    }
    const auto table = TableOf(PageTable::kMaxPages);
    std::set<uint32_t> words;
    for (uintptr_t page = 1; page <= PageTable::kMaxPages; ++page) {
        words.insert(table->Pack(At(page * 977, page)));
    }
    EXPECT_EQ(words.size(), size_t{PageTable::kMaxPages});
    EXPECT_GE(*words.begin(), kPageSize);
    for (uintptr_t page = 1; page <= PageTable::kMaxPages; ++page) {
        ASSERT_EQ(table->Unpack(table->Pack(At(page * 977, page))), At(page * 977, page));
    }
    EXPECT_EQ(table->Pack(At(1, 0)), PageTable::kLostWord);
}

TEST(PageTableTest, WordsThatWereNeverGivenOutAreNull) {
    const auto table = TableOf(PageTable::kMaxPages);
    table->Pack(At(40, 1));
    EXPECT_EQ(table->Unpack(0x00000001), nullptr);
    EXPECT_EQ(table->Unpack(0x000FFFFF), nullptr);
    EXPECT_EQ(table->Unpack(0x00200000), nullptr);
    EXPECT_EQ(table->Unpack(0xFFFFFFFF), nullptr);
}

// Packs addresses of `pages` pages in an order of its own and checks every word at once.
void PackInAnyOrder(PageTable* table, unsigned seed, uintptr_t pages, std::vector<uint32_t>* words,
                    int* wrong) {
    std::mt19937 random(seed);
    words->resize(pages);
    for (int i = 0; i < 20000; ++i) {
        const uintptr_t page = random() % pages;
        const uint32_t word = table->Pack(At(page + 1000, page));
        *wrong += table->Unpack(word) == At(page + 1000, page) ? 0 : 1;
        (*words)[page] = word;
    }
    for (uintptr_t page = 0; page < pages; ++page) {
        (*words)[page] = table->Pack(At(page + 1000, page));
    }
}

TEST(PageTableTest, ThreadsThatPackTheSamePagesAgreeOnTheirNumbers) {
    constexpr int kThreads = 4;
    constexpr uintptr_t kPages = 3000;
    // Exactly enough room: a page that got two numbers would leave another one without.
    const auto table = TableOf(kPages);
    std::vector<uint32_t> words[kThreads];
    int wrong[kThreads] = {};
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < kThreads; ++i) {
        threads.emplace_back(PackInAnyOrder, table.get(), i, kPages, &words[i], &wrong[i]);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (int i = 0; i < kThreads; ++i) {
        EXPECT_EQ(wrong[i], 0);
        EXPECT_EQ(words[i], words[0]);
    }
}

// Packs one page after the other, each at the same moment as the other thread.
void PackTogether(PageTable* table, std::atomic<uintptr_t>* arrived, uintptr_t pages,
                  std::vector<uint32_t>* words) {
    for (uintptr_t page = 0; page < pages; ++page) {
        ++*arrived;
        while (*arrived < 2 * (page + 1)) {
        }
        words->push_back(table->Pack(At(page + 1000, 1)));
    }
}

TEST(PageTableTest, TwoThreadsThatMeetAtANewPageGiveItOneNumber) {
    constexpr uintptr_t kPages = 4000;
    const auto table = TableOf(kPages);
    std::atomic<uintptr_t> arrived{0};
    std::vector<uint32_t> first;
    std::vector<uint32_t> second;
    std::thread other(PackTogether, table.get(), &arrived, kPages, &second);
    PackTogether(table.get(), &arrived, kPages, &first);
    other.join();
    EXPECT_EQ(first, second);
    // Every number was used once, or the last pages would have found none.
    for (uintptr_t page = 0; page < kPages; ++page) {
        ASSERT_EQ(table->Unpack(first[page]), At(page + 1000, 1));
    }
}

}  // namespace
