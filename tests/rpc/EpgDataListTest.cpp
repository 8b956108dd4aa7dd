#include "kpl/rpc/EpgDataList.h"

#include <gtest/gtest.h>
#include <limits.h>

#include <type_traits>
#include <vector>

#include "kpl/rpc/RpcCommandDemuxer.h"
#include "kpl/rpc/RpcCommandMuxer.h"
#include "tests/rpc/CommandBytes.h"

namespace {

using namespace kpl::rpc;
using namespace kpl::test;

EpgData Record(uint32_t first) {
    EpgData record{};
    for (uint32_t i = 0; i < 2; ++i) {
        record.head[i] = first + i;
    }
    for (uint32_t i = 0; i < 6; ++i) {
        record.tail[i] = first + 2 + i;
    }
    return record;
}

std::string Bytes(const void* data, size_t size) {
    return std::string(static_cast<const char*>(data), size);
}

// The block of `list`, in exactly as many bytes as its size.
std::string Converted(EpgDataList list) {
    const int size = GetSizeEpgDataList::GetSize(list);
    const ExactBytes exact(std::string(static_cast<size_t>(size), 'x'));
    EXPECT_EQ(ConvertEpgDataList::ConvertToBytes(list, exact.Data(), size), size);
    return exact.Str();
}

// A record as it travels, with these four text words.
std::string WireRecord(uint32_t text1, uint32_t text2, uint32_t text3, uint32_t text4) {
    return Words({1, 2, text1, text2, text3, text4, 3, 4, 5, 6, 7, 8});
}

int Retrieve(EpgDataList* list, const ExactBytes& bytes) {
    return RetrieveEpgDataList::RetrieveFromBytes(*list, bytes.Data(), bytes.Size());
}

TEST(EpgDataListTest, SizesAreTheSameEverywhereAndRecordsNeedNoAlignment) {
    EXPECT_EQ(sizeof(EpgText), 4U);
    EXPECT_EQ(sizeof(EpgData), 48U);
    EXPECT_EQ(alignof(EpgData), 1U);
    EXPECT_TRUE(std::is_trivial_v<EpgData>);
    EXPECT_EQ(offsetof(EpgData, text), 8U);
    EXPECT_EQ(offsetof(EpgData, tail), 24U);
}

TEST(EpgDataListTest, ATextConvertsBothWays) {
    const char* title = "News";
    EpgText text = title;
    EXPECT_EQ(static_cast<const char*>(text), title);
    text = nullptr;
    EXPECT_TRUE(text == nullptr);
    EXPECT_FALSE(text.IsLost());
}

TEST(EpgDataListTest, ANewListIsEmpty) {
    const EpgDataList list;
    EXPECT_EQ(list.count, 0);
    EXPECT_EQ(list.items, nullptr);
    EXPECT_EQ(GetSizeEpgDataList::GetSize(list), 8);
}

TEST(EpgDataListTest, AnEmptyListIsEightBytesAndReadsBackWithCount0) {
    const ExactBytes bytes(Converted(EpgDataList()));
    EXPECT_EQ(bytes.Str(), Words({0, 0}));
    EpgDataList list{5, nullptr};
    EXPECT_EQ(Retrieve(&list, bytes), 8);
    EXPECT_EQ(list.count, 0);
    EXPECT_EQ(list.items, nullptr);
}

TEST(EpgDataListTest, ARecordWhoseFourTextsAreNullAddsExactly48Bytes) {
    EpgData records[3] = {Record(10), Record(20), Record(30)};
    for (int count = 1; count <= 3; ++count) {
        const EpgDataList list{count, records};
        EXPECT_EQ(GetSizeEpgDataList::GetSize(list), 8 + 48 * count);
        EXPECT_EQ(Converted(list).substr(8),
                  Bytes(records, static_cast<size_t>(count) * sizeof(EpgData)));
    }
}

TEST(EpgDataListTest, TheBlockIsPinnedByteForByte) {
    EpgData records[2] = {Record(10), Record(20)};
    records[0].text[0] = "News";
    records[0].text[3] = "HD";
    records[1].text[1] = "Film";
    const auto itemsWord = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(records));
    EXPECT_EQ(Converted({2, records}), Words({2, itemsWord}) + Bytes(records, sizeof(records)) +
                                           Text("News") + Text("HD") + Text("Film"));
}

TEST(EpgDataListTest, TextsTravelRecordByRecordInWordOrder) {
    EpgData records[2] = {Record(1), Record(2)};
    const char* texts[] = {"a", "bb", "ccc", "dddd", "e", "ff", "ggg", "hhhh"};
    for (int i = 0; i < 8; ++i) {
        records[i / 4].text[i % 4] = texts[i];
    }
    std::string expected;
    for (const char* text : texts) {
        expected += Text(text);
    }
    EXPECT_EQ(Converted({2, records}).substr(8 + 96), expected);
}

TEST(EpgDataListTest, RetrieveUsesTheRecordsInPlace) {
    EpgData records[2] = {Record(10), Record(20)};
    records[0].text[1] = "News";
    records[1].text[2] = "Film";
    const ExactBytes bytes(Converted({2, records}) + "more");
    EpgDataList list;
    EXPECT_EQ(Retrieve(&list, bytes), bytes.Size() - 4);
    ASSERT_EQ(list.count, 2);
    EXPECT_EQ(reinterpret_cast<char*>(list.items), bytes.Data() + 8);
    EXPECT_EQ(list.items[0].head[1], 11U);
    EXPECT_EQ(list.items[1].tail[5], 27U);
    EXPECT_EQ(static_cast<const char*>(list.items[0].text[1]), bytes.Data() + 8 + 96);
    EXPECT_STREQ(list.items[0].text[1], "News");
    EXPECT_STREQ(list.items[1].text[2], "Film");
    EXPECT_STREQ(list.items[0].text[0], nullptr);
}

TEST(EpgDataListTest, EmptyTextsStayEmptyTextsAndNullsStayNulls) {
    EpgData record = Record(1);
    record.text[0] = "";
    record.text[2] = "";
    const ExactBytes bytes(Converted({1, &record}));
    EXPECT_EQ(bytes.Size(), 8 + 48 + 2);
    EpgDataList list;
    ASSERT_EQ(Retrieve(&list, bytes), bytes.Size());
    EXPECT_STREQ(list.items[0].text[0], "");
    EXPECT_STREQ(list.items[0].text[1], nullptr);
    EXPECT_STREQ(list.items[0].text[2], "");
    EXPECT_STREQ(list.items[0].text[3], nullptr);
}

TEST(EpgDataListTest, ABlockCutInsideTheTextsIsRefused) {
    const std::string block = Words({1, 1}) + WireRecord(1, 0, 0, 1) + Text("News") + Text("HD");
    for (size_t length = 8 + 48; length < block.size(); ++length) {
        const ExactBytes cut(block.substr(0, length));
        EpgDataList list;
        EXPECT_EQ(Retrieve(&list, cut), 0) << length;
    }
    const ExactBytes whole(block);
    EpgDataList list;
    EXPECT_EQ(Retrieve(&list, whole), whole.Size());
}

TEST(EpgDataListTest, SeveralRecordsWithoutTextsPassTheOneRecordRoomCheck) {
    // All three records are there; only the announced length covers no more than one.
    const ExactBytes bytes(Words({3, 1}) + WireRecord(0, 0, 0, 0) + WireRecord(0, 0, 0, 0) +
                           WireRecord(0, 0, 0, 0));
    EpgDataList list;
    EXPECT_EQ(RetrieveEpgDataList::RetrieveFromBytes(list, bytes.Data(), 8 + 48), 8 + 3 * 48);
    EXPECT_EQ(list.count, 3);
    EXPECT_EQ(RetrieveEpgDataList::RetrieveFromBytes(list, bytes.Data(), 8 + 47), 0);
}

TEST(EpgDataListTest, ATextBeyondTheAnnouncedLengthIsRefused) {
    const ExactBytes bytes(Words({2, 1}) + WireRecord(0, 0, 0, 0) + WireRecord(1, 0, 0, 0) +
                           Text("a"));
    EpgDataList list;
    EXPECT_EQ(RetrieveEpgDataList::RetrieveFromBytes(list, bytes.Data(), 8 + 48), 0);
    EXPECT_EQ(RetrieveEpgDataList::RetrieveFromBytes(list, bytes.Data(), 8 + 96), 0);
    EXPECT_EQ(RetrieveEpgDataList::RetrieveFromBytes(list, bytes.Data(), 8 + 96 + 2), 8 + 96 + 2);
}

TEST(EpgDataListTest, RetrieveWithoutBufferOrHeaderReturns0AndLeavesTheList) {
    EpgData record{};
    EpgDataList list{1, &record};
    const ExactBytes bytes(Words({9, 9}));
    EXPECT_EQ(RetrieveEpgDataList::RetrieveFromBytes(list, nullptr, 100), 0);
    EXPECT_EQ(RetrieveEpgDataList::RetrieveFromBytes(list, bytes.Data(), 7), 0);
    EXPECT_EQ(RetrieveEpgDataList::RetrieveFromBytes(list, bytes.Data(), -1), 0);
    EXPECT_EQ(list.count, 1);
    EXPECT_EQ(list.items, &record);
}

TEST(EpgDataListTest, AListWithoutRecordsKeepsTheSendersWord) {
    EpgDataList list;
    for (const uint32_t count : {0U, 0xFFFFFFFFU, 0x80000000U}) {
        const ExactBytes bytes(Words({count, 0x12345678}));
        EXPECT_EQ(Retrieve(&list, bytes), 8);
        EXPECT_EQ(list.count, static_cast<int>(count));
        EXPECT_EQ(reinterpret_cast<uintptr_t>(list.items), 0x12345678U);
    }
    const ExactBytes absent(Words({3, 0}));
    EXPECT_EQ(Retrieve(&list, absent), 8);
    EXPECT_EQ(list.count, 3);
    EXPECT_EQ(list.items, nullptr);
}

TEST(EpgDataListTest, ACountThatNoBufferCanHoldIsRefused) {
    const ExactBytes bytes(Words({0x7FFFFFFF, 1}) + WireRecord(0, 0, 0, 0));
    EpgDataList list;
    EXPECT_EQ(Retrieve(&list, bytes), 0);
    EXPECT_EQ(list.count, INT_MAX);
}

TEST(EpgDataListTest, ConvertWithoutRoomOrBufferReturns0AndWritesNothing) {
    EpgData record = Record(1);
    record.text[0] = "News";
    EpgDataList list{1, &record};
    const std::string before(8 + 48 + 5, 'x');
    const ExactBytes bytes(before);
    EXPECT_EQ(ConvertEpgDataList::ConvertToBytes(list, nullptr, 1000), 0);
    for (const int len : {INT_MIN, -1, 0, 8, 8 + 48 + 4}) {
        EXPECT_EQ(ConvertEpgDataList::ConvertToBytes(list, bytes.Data(), len), 0) << len;
    }
    EXPECT_EQ(bytes.Str(), before);
    EXPECT_EQ(ConvertEpgDataList::ConvertToBytes(list, bytes.Data(), 8 + 48 + 5), 8 + 48 + 5);
}

TEST(EpgDataListTest, CountsWithoutItemsHaveTheStatedSizeAndOnlyTheHeaderIsWritten) {
    EpgDataList list{2, nullptr};
    EXPECT_EQ(GetSizeEpgDataList::GetSize(list), 8 + 96);
    const ExactBytes bytes(std::string(8 + 96, 'x'));
    EXPECT_EQ(ConvertEpgDataList::ConvertToBytes(list, bytes.Data(), bytes.Size()), 8 + 96);
    EXPECT_EQ(bytes.Str(), Words({2, 0}) + std::string(96, 'x'));
}

TEST(EpgDataListTest, ANegativeCountIsNotSerialised) {
    EpgData record{};
    EpgDataList list{-1, &record};
    EXPECT_EQ(GetSizeEpgDataList::GetSize(list), 8 - 48);
    char buf[128] = {};
    EXPECT_EQ(ConvertEpgDataList::ConvertToBytes(list, buf, sizeof(buf)), 0);
    RpcCommandMuxer muxer(buf, sizeof(buf));
    EXPECT_FALSE(muxer.Push(list));
}

TEST(EpgDataListTest, ASizeBeyondIntIs0) {
    EXPECT_EQ(GetSizeEpgDataList::GetSize({INT_MAX, nullptr}), 0);
    EXPECT_EQ(GetSizeEpgDataList::GetSize({INT_MIN, nullptr}), 0);
    EXPECT_EQ(GetSizeEpgDataList::GetSize({44739243, nullptr}), 0);
    EXPECT_EQ(GetSizeEpgDataList::GetSize({44739242, nullptr}), 2147483624);
    EpgDataList list{INT_MAX, nullptr};
    char buf[16];
    EXPECT_EQ(ConvertEpgDataList::ConvertToBytes(list, buf, INT_MAX), 0);
}

TEST(EpgDataListTest, ItemsWhoseLowWordIsZeroAreSentAsPresent) {
    if (sizeof(void*) == 4) {
        GTEST_SKIP() << "only null has a low word of zero here";
    }
    // Never followed.
    EpgDataList list{0, reinterpret_cast<EpgData*>(static_cast<uintptr_t>(uint64_t{1} << 40))};
    char buf[8];
    EXPECT_EQ(ConvertEpgDataList::ConvertToBytes(list, buf, sizeof(buf)), 8);
    EXPECT_EQ(Bytes(buf, 8), Words({0, 1}));
}

// Parameter 0 of a command, between a string that shifts it and a last parameter.
std::string CommandWith(const std::string& block, const std::string& shift = "") {
    return Command(10002, 1, 3, Param(51, block) + Param(50, shift) + Param(2, Words({7})));
}

EpgDataList GetList(const ExactBytes& bytes) {
    return RpcCommandDemuxer(bytes.Data(), bytes.Size()).Get<EpgDataList>(0);
}

void ExpectRefused(const std::string& block) {
    const ExactBytes bytes(CommandWith(block));
    const EpgDataList list = GetList(bytes);
    EXPECT_EQ(list.count, 0);
    EXPECT_EQ(list.items, nullptr);
}

TEST(EpgDataListTest, TravelsThroughACommandAtAnyAlignment) {
    for (const char* shift : {"", "x", "xx", "xxx"}) {
        EpgData records[2] = {Record(10), Record(20)};
        records[0].text[0] = "News";
        records[1].text[3] = "Film";
        char buf[512];
        RpcCommandMuxer muxer(buf, sizeof(buf));
        ASSERT_TRUE(muxer.Push(shift) && muxer.Push(EpgDataList{2, records}) && muxer.Push(7));
        ASSERT_GT(muxer.Finish(RPC_COMMAND_RESULT, nullptr, 1), 0);
        const ExactBytes bytes(Finished(muxer));
        const RpcCommandDemuxer demuxer(bytes.Data(), bytes.Size());
        ASSERT_TRUE(demuxer.IsValidCommand());
        EXPECT_EQ(demuxer.GetParamType(1), RPC_PARAM_STRUCT);
        const auto list = demuxer.Get<EpgDataList>(1);
        ASSERT_EQ(list.count, 2);
        EXPECT_EQ(list.items[1].head[0], 20U);
        EXPECT_EQ(list.items[1].tail[5], 27U);
        EXPECT_STREQ(list.items[0].text[0], "News");
        EXPECT_STREQ(list.items[1].text[3], "Film");
        EXPECT_EQ(demuxer.Get<int>(2), 7);
    }
}

TEST(EpgDataListTest, PushWritesTheSameBytesAsConvert) {
    EpgData record = Record(1);
    record.text[1] = "News";
    char buf[256];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    ASSERT_TRUE(muxer.Push(EpgDataList{1, &record}));
    ASSERT_GT(muxer.Finish(RPC_COMMAND_RESULT, nullptr, 1), 0);
    EXPECT_EQ(Finished(muxer), Command(10002, 1, 1, Param(51, Converted({1, &record}))));
}

// Three records with texts, each from a storage that the test chooses.
void FillRecords(EpgData* records, const char* text) {
    for (uint32_t i = 0; i < 3; ++i) {
        records[i] = Record(10 * i);
        records[i].head[0] = 0x41414141;  // no word of a text
        records[i].text[0] = text;
        records[i].text[2] = text + i;
    }
}

TEST(EpgDataListTest, AReceivedListCanBePushedIntoTheBufferItLiesIn) {
    EpgData records[3];
    FillRecords(records, "Evening News");
    char buf[512];
    RpcCommandMuxer request(buf, sizeof(buf));
    ASSERT_TRUE(request.Push(EpgDataList{3, records}));
    const int size = request.Finish(RPC_COMMAND_RESULT, nullptr, 1);
    ASSERT_GT(size, 0);
    const auto received = RpcCommandDemuxer(buf, size).Get<EpgDataList>(0);
    ASSERT_EQ(received.count, 3);

    RpcCommandMuxer answer(buf, sizeof(buf));
    ASSERT_TRUE(answer.Push(7) && answer.Push(received));
    const int answerSize = answer.Finish(RPC_COMMAND_RESULT, nullptr, 2);
    const RpcCommandDemuxer demuxer(buf, answerSize);
    ASSERT_TRUE(demuxer.IsValidCommand());
    EXPECT_EQ(demuxer.Get<int>(0), 7);
    const auto list = demuxer.Get<EpgDataList>(1);
    ASSERT_EQ(list.count, 3);
    for (uint32_t i = 0; i < 3; ++i) {
        EXPECT_EQ(list.items[i].head[0], 0x41414141U);
        EXPECT_EQ(list.items[i].tail[5], 10 * i + 7);
        EXPECT_STREQ(list.items[i].text[0], "Evening News");
        EXPECT_STREQ(list.items[i].text[1], nullptr);
        EXPECT_STREQ(list.items[i].text[2], &"Evening News"[i]);
    }
}

TEST(EpgDataListTest, TextsAndRecordsMayLieAnywhereInTheBlocksPlace) {
    EpgData records[3];
    const std::string text = "Evening News";
    FillRecords(records, text.c_str());
    const EpgDataList list{3, records};
    const int size = GetSizeEpgDataList::GetSize(list);
    std::string expected = Converted(list).substr(8 + 3 * 48);  // the texts
    for (int at = -12; at <= size; ++at) {
        char buf[512] = {};
        char* const block = buf + 16;
        memcpy(block + at, text.c_str(), text.size() + 1);
        FillRecords(records, block + at);
        EpgDataList moved = list;
        ASSERT_EQ(ConvertEpgDataList::ConvertToBytes(moved, block, size), size);
        EXPECT_EQ(Bytes(block, static_cast<size_t>(size)).substr(8 + 3 * 48), expected) << at;
        EXPECT_EQ(Bytes(block + 8, 3 * 48), Bytes(records, sizeof(records))) << at;
    }
    FillRecords(records, text.c_str());
    expected = Bytes(records, sizeof(records)) + expected;
    for (int at = -12; at <= size; ++at) {
        char buf[1024] = {};
        char* const block = buf + 16;
        memcpy(block + at, records, sizeof(records));
        EpgDataList moved{3, reinterpret_cast<EpgData*>(block + at)};
        ASSERT_EQ(ConvertEpgDataList::ConvertToBytes(moved, block, size), size);
        EXPECT_EQ(Bytes(block + 8, static_cast<size_t>(size) - 8), expected) << at;
    }
}

TEST(EpgDataListTest, ASecondGetOfTheSameParameterGivesTheSameList) {
    const ExactBytes bytes(
        CommandWith(Words({1, 1}) + WireRecord(5, 0, 5, 0) + Text("News") + Text("HD")));
    const EpgDataList first = GetList(bytes);
    const EpgDataList second = GetList(bytes);
    EXPECT_EQ(second.count, 1);
    EXPECT_EQ(second.items, first.items);
    EXPECT_STREQ(second.items[0].text[0], "News");
    EXPECT_STREQ(second.items[0].text[1], nullptr);
    EXPECT_STREQ(second.items[0].text[2], "HD");
}

TEST(EpgDataListTest, PushWithoutItemsSendsNoOldBytesOfTheBuffer) {
    char buf[256];
    memset(buf, 'x', sizeof(buf));
    RpcCommandMuxer muxer(buf, sizeof(buf));
    ASSERT_TRUE(muxer.Push(EpgDataList{2, nullptr}));
    ASSERT_GT(muxer.Finish(RPC_COMMAND_RESULT, nullptr, 1), 0);
    EXPECT_EQ(Finished(muxer),
              Command(10002, 1, 1, Param(51, Words({2, 0}) + std::string(96, '\0'))));
    const auto list = RpcCommandDemuxer(buf, sizeof(buf)).Get<EpgDataList>(0);
    EXPECT_EQ(list.count, 0);
    EXPECT_EQ(list.items, nullptr);
}

TEST(EpgDataListTest, PushOfAListThatDoesNotFitDiscardsTheCommand) {
    EpgData record = Record(1);
    record.text[0] = "News";
    const ExactBytes bytes(std::string(16 + 12 + 8 + 8 + 48 + 5, 'x'));
    RpcCommandMuxer fits(bytes.Data(), bytes.Size());
    EXPECT_TRUE(fits.Push(1) && fits.Push(EpgDataList{1, &record}));
    RpcCommandMuxer lacksOne(bytes.Data(), bytes.Size() - 1);
    EXPECT_TRUE(lacksOne.Push(1));
    EXPECT_FALSE(lacksOne.Push(EpgDataList{1, &record}));
    EXPECT_FALSE(lacksOne.IsValidCommand());
}

TEST(EpgDataListTest, GetRefusesRecordsThatDoNotLieInsideTheParameter) {
    // All zero, so that no missing text gives them away, and the command goes on behind them: only
    // the parameter's own length can tell.
    const std::string record(48, '\0');
    ExpectRefused(Words({2, 1}) + record + record.substr(1));
    ExpectRefused(Words({2, 1}) + record + record.substr(24));
    ExpectRefused(Words({2, 1}) + record);
    ExpectRefused(Words({0x7FFFFFFF, 1}) + record);
    ExpectRefused(Words({0x05555556, 1}) + record);  // 48 times this wraps to 32 in 32 bits
    ExpectRefused(Words({1, 1}) + record.substr(1));
    const ExactBytes whole(CommandWith(Words({2, 1}) + record + record));
    EXPECT_EQ(GetList(whole).count, 2);
}

TEST(EpgDataListTest, GetRefusesATextThatLeavesTheParameter) {
    const std::string block = Words({1, 1}) + WireRecord(1, 0, 0, 0) + "News";
    ExpectRefused(block);
    const ExactBytes whole(CommandWith(block + std::string(1, '\0')));
    EXPECT_EQ(GetList(whole).count, 1);
}

TEST(EpgDataListTest, GetOfAListWithoutRecordsIsEmptyWhateverItsWordsSay) {
    ExpectRefused(Words({0, 0x12345678}));
    ExpectRefused(Words({0xFFFFFFFF, 0x12345678}));
    ExpectRefused(Words({3, 0}));
    ExpectRefused("");
    ExpectRefused(std::string(7, '\x01'));
}

TEST(EpgDataListTest, GetOfAMissingParameterIsEmpty) {
    const ExactBytes bytes(Command(10002, 1, 0, ""));
    EXPECT_EQ(GetList(bytes).count, 0);
    EXPECT_EQ(GetList(bytes).items, nullptr);
}

}  // namespace
