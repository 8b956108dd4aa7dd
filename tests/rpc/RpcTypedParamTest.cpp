#include "kpl/rpc/RpcTypedParam.h"

#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>

#include <functional>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

#include "tests/rpc/CommandBytes.h"

namespace {

using namespace kpl::rpc;
using kpl::test::ExactBytes;
using kpl::test::Param;
using kpl::test::Text;
using kpl::test::Words;

// Reads a result with the given parameters from memory of exactly its size.
class Result {
public:
    Result(uint32_t count, const std::string& params)
        : m_bytes(kpl::test::Command(RPC_COMMAND_RESULT, 1, count, params)),
          m_demuxer(m_bytes.Data(), m_bytes.Size()) {}

    const RpcCommandDemuxer& operator*() const { return m_demuxer; }

private:
    ExactBytes m_bytes;
    RpcCommandDemuxer m_demuxer;
};

// Pushes `value` the typed way and looks at it as the other end does.
template <class T, class Check>
void Travel(const T& value, Check check) {
    char buffer[512];
    RpcCommandMuxer muxer(buffer, sizeof(buffer));
    ASSERT_TRUE(RpcTypedParam<T>::Push(&muxer, value));
    const RpcCommandDemuxer command(buffer, muxer.Finish(RPC_COMMAND_RESULT, nullptr, 1));
    ASSERT_TRUE(RpcTypedParam<T>::Fits(command, 0));
    EXPECT_FALSE(RpcTypedParam<T>::Fits(command, 1));
    EXPECT_FALSE(RpcTypedParam<T>::Fits(command, -1));
    check(RpcTypedParam<T>::Get(command, 0));
}

// --- Scalars ---

template <class T>
class ScalarParamTest : public testing::Test {};

using Scalars = testing::Types<bool, int, long, char, unsigned char, long long, unsigned long long,
                               short, unsigned short, unsigned int, unsigned long, double, float>;
TYPED_TEST_SUITE(ScalarParamTest, Scalars);

// What 4 bytes hold, for the types that travel in them.
template <class T>
std::vector<T> Extremes() {
    using Wire = typename ParamTypeTrait<T>::WireType;
    const auto lowest = static_cast<T>(std::numeric_limits<Wire>::lowest());
    return {lowest, T(0), T(1), static_cast<T>(std::numeric_limits<Wire>::max())};
}

TYPED_TEST(ScalarParamTest, EveryValueTravels) {
    for (const TypeParam value : Extremes<TypeParam>()) {
        Travel<TypeParam>(value, [value](TypeParam got) { EXPECT_EQ(got, value); });
    }
}

// The codes that readers treat alike, in groups; every other code stands alone.
int GroupOf(int code) {
    const std::vector<std::vector<int>> groups = {{RPC_PARAM_BOOL, RPC_PARAM_CHAR, RPC_PARAM_UCHAR},
                                                  {RPC_PARAM_LONG, RPC_PARAM_UINT, RPC_PARAM_ULONG},
                                                  {RPC_PARAM_LONGLONG, RPC_PARAM_ULONGLONG}};
    for (size_t i = 0; i < groups.size(); ++i) {
        for (const int member : groups[i]) {
            if (member == code) {
                return 100 + static_cast<int>(i);
            }
        }
    }
    return code;
}

TYPED_TEST(ScalarParamTest, CodesOfItsGroupFitAndNoOthers) {
    using Trait = ParamTypeTrait<TypeParam>;
    const std::string value(sizeof(typename Trait::WireType), '\0');
    for (const int code : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 50, 51, 60, -1}) {
        const Result result(1, Param(static_cast<uint32_t>(code), value));
        EXPECT_EQ(RpcTypedParam<TypeParam>::Fits(*result, 0), GroupOf(code) == GroupOf(Trait::Type))
            << "code " << code;
    }
}

TYPED_TEST(ScalarParamTest, OnlyItsOwnLengthFits) {
    using Trait = ParamTypeTrait<TypeParam>;
    for (size_t length = 0; length <= 9; ++length) {
        const Result result(1, Param(Trait::Type, std::string(length, '\1')));
        EXPECT_EQ(RpcTypedParam<TypeParam>::Fits(*result, 0),
                  length == sizeof(typename Trait::WireType))
            << "length " << length;
    }
}

TYPED_TEST(ScalarParamTest, AMissingParameterDoesNotFit) {
    const Result result(0, "");
    EXPECT_FALSE(RpcTypedParam<TypeParam>::Fits(*result, 0));
}

TEST(RpcTypedParamTest, ALongTravelsAs4BytesAndALongLongAs8) {
    char buffer[64];
    RpcCommandMuxer muxer(buffer, sizeof(buffer));
    EXPECT_TRUE(RpcTypedParam<long>::Push(&muxer, 7) &&
                RpcTypedParam<unsigned long>::Push(&muxer, 8) &&
                RpcTypedParam<long long>::Push(&muxer, 9));
    EXPECT_EQ(muxer.Finish(RPC_COMMAND_RESULT, nullptr, 1), 16 + 12 + 12 + 16);
}

TEST(RpcTypedParamTest, ALongOfMoreThan4BytesIsNotPushed) {
    if (sizeof(long) == 4) {
        GTEST_SKIP() << "every long has 4 bytes here";
    }
    char buffer[64];
    RpcCommandMuxer muxer(buffer, sizeof(buffer));
    EXPECT_FALSE(RpcTypedParam<long>::Push(&muxer, std::numeric_limits<long>::max()));
    EXPECT_FALSE(RpcTypedParam<unsigned long>::Push(&muxer, std::numeric_limits<long>::max()));
}

// --- Strings ---

TEST(RpcTypedParamTest, AStringTravelsUpToItsFirstNul) {
    Travel<const char*>("text", [](const char* got) { EXPECT_STREQ(got, "text"); });
    Travel<std::string>("text", [](const std::string& got) { EXPECT_EQ(got, "text"); });
    Travel<std::string>("", [](const std::string& got) { EXPECT_EQ(got, ""); });
    Travel<std::string>(std::string("cut\0off", 7),
                        [](const std::string& got) { EXPECT_EQ(got, "cut"); });
    Travel<const char*>(nullptr, [](const char* got) { EXPECT_STREQ(got, ""); });
}

TEST(RpcTypedParamTest, ACharArrayThatCanBeWrittenIsAStringToo) {
    char text[] = "mutable";
    char buffer[64];
    RpcCommandMuxer muxer(buffer, sizeof(buffer));
    EXPECT_TRUE(RpcTypedParam<char*>::Push(&muxer, text));
    const RpcCommandDemuxer command(buffer, muxer.Finish(RPC_COMMAND_RESULT, nullptr, 1));
    EXPECT_STREQ(RpcTypedParam<char*>::Get(command, 0), "mutable");
}

TEST(RpcTypedParamTest, AStringMustEndInsideItsOwnLength) {
    const auto fits = [](const std::string& value, const std::string& behind = "") {
        const Result result(behind.empty() ? 1 : 2, Param(RPC_PARAM_STRING, value) + behind);
        return HasString(*result, 0);
    };
    EXPECT_TRUE(fits(Text("")));
    EXPECT_TRUE(fits(std::string("a\0b", 3)));
    EXPECT_FALSE(fits(""));
    EXPECT_FALSE(fits("abc"));
    // A NUL behind it belongs to the next parameter.
    EXPECT_FALSE(fits("abc", Param(RPC_PARAM_INT, Words({0}))));
}

TEST(RpcTypedParamTest, AStringHasItsOwnCode) {
    for (const uint32_t code : {1U, 2U, 4U, 51U, 60U}) {
        const Result result(1, Param(code, Text("abc")));
        EXPECT_FALSE(HasString(*result, 0)) << "code " << code;
    }
    const Result none(0, "");
    EXPECT_FALSE(HasString(*none, 0));
}

// --- Arrays ---

TEST(RpcTypedParamTest, AnArrayTravels) {
    char block[] = {1, 2, 3, 4};
    Travel<RpcArray>(RpcArray(block, 2, 4), [&block](const RpcArray& got) {
        EXPECT_EQ(got.GetElementCounts(), 2);
        ASSERT_EQ(got.GetTotalSizeInBytes(), 4);
        EXPECT_EQ(memcmp(got.GetData(), block, 4), 0);
    });
    Travel<RpcArray>(RpcArray(), [](const RpcArray& got) {
        EXPECT_EQ(got.GetElementCounts(), 0);
        EXPECT_EQ(got.GetTotalSizeInBytes(), 0);
    });
}

TEST(RpcTypedParamTest, AnArrayMustLieInsideItsParameter) {
    const auto fits = [](const std::string& value, uint32_t code = RPC_PARAM_STRUCT) {
        // What follows must not make up for what is missing.
        const Result result(2, Param(code, value) + Param(RPC_PARAM_INT, Words({0})));
        return HasArray(*result, 0);
    };
    EXPECT_TRUE(fits(Words({1, 4}) + "four"));
    EXPECT_TRUE(fits(Words({0, 0})));
    EXPECT_FALSE(fits(Words({1, 4}) + "fo"));
    EXPECT_FALSE(fits(Words({1, 0xFFFFFFFF}) + "four"));
    EXPECT_FALSE(fits(Words({1, 0x80000000}) + "four"));
    EXPECT_FALSE(fits(Words({1, 0x7FFFFFFF}) + "four"));
    EXPECT_FALSE(fits(Words({1, 0x7FFFFFF8}) + "four"));  // Wraps with its header.
    EXPECT_FALSE(fits(Words({1})));
    EXPECT_FALSE(fits(""));
    EXPECT_FALSE(fits(Words({1, 4}) + "four", RPC_PARAM_STRING));
}

// --- Lists ---

TEST(RpcTypedParamTest, AListTravels) {
    EpgData records[2] = {};
    records[0].head[0] = 5;
    records[0].text[1] = "News";
    records[1].text[3] = "Film";
    Travel<EpgDataList>(EpgDataList{2, records}, [](const EpgDataList& got) {
        ASSERT_EQ(got.count, 2);
        EXPECT_EQ(+got.items[0].head[0], 5U);
        EXPECT_STREQ(got.items[0].text[1], "News");
        EXPECT_STREQ(got.items[1].text[3], "Film");
        EXPECT_EQ(static_cast<const char*>(got.items[1].text[0]), nullptr);
    });
    Travel<EpgDataList>(EpgDataList(), [](const EpgDataList& got) {
        EXPECT_EQ(got.count, 0);
        EXPECT_EQ(got.items, nullptr);
    });
}

// One record whose first text is there, with these texts behind it.
std::string Record(const std::string& texts) {
    return Words({0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0}) + texts;
}

TEST(RpcTypedParamTest, AListMustLieInsideItsParameter) {
    const auto fits = [](const std::string& value, uint32_t code = RPC_PARAM_STRUCT) {
        const Result result(2, Param(code, value) + Param(RPC_PARAM_INT, Words({0})));
        return HasEpgDataList(*result, 0);
    };
    EXPECT_TRUE(fits(Words({1, 1}) + Record(Text("News"))));
    EXPECT_TRUE(fits(Words({0, 0})));
    EXPECT_FALSE(fits(Words({1, 1}) + Record("News")));  // A text without an end.
    EXPECT_FALSE(fits(Words({1, 1}) + Record("")));      // No text at all.
    EXPECT_FALSE(fits(Words({2, 1}) + Record(Text("News"))));
    EXPECT_FALSE(fits(Words({1, 1}) + std::string(47, '\0')));
    EXPECT_FALSE(fits(Words({0x7FFFFFFF, 1}) + Record(Text("News"))));
    EXPECT_FALSE(fits(Words({89478486, 1}) + Record(Text("News"))));  // 48 times it wraps to 32.
    EXPECT_FALSE(fits(Words({1})));
    EXPECT_FALSE(fits(""));
    EXPECT_FALSE(fits(Words({1, 1}) + Record(Text("News")), RPC_PARAM_STRING));
}

TEST(RpcTypedParamTest, AListWithoutRecordsIsEmptyWhateverItsWordsSay) {
    for (const std::string& header : {Words({0, 7}), Words({0xFFFFFFFF, 7}), Words({3, 0})}) {
        const Result result(1, Param(RPC_PARAM_STRUCT, header));
        ASSERT_TRUE(RpcTypedParam<EpgDataList>::Fits(*result, 0));
        const EpgDataList got = RpcTypedParam<EpgDataList>::Get(*result, 0);
        EXPECT_EQ(got.count, 0);
        EXPECT_EQ(got.items, nullptr);
    }
}

// --- Several values ---

TEST(RpcTypedParamTest, SeveralValuesTravelInTheirOrder) {
    using Values = std::tuple<int, std::string, bool>;
    char buffer[128];
    RpcCommandMuxer muxer(buffer, sizeof(buffer));
    ASSERT_TRUE(muxer.Push(99));
    ASSERT_TRUE(RpcTypedParams<Values>::Push(&muxer, Values(1, "two", true)));
    const RpcCommandDemuxer command(buffer, muxer.Finish(RPC_COMMAND_RESULT, nullptr, 1));
    EXPECT_EQ(RpcTypedParams<Values>::Count, 3);
    ASSERT_TRUE(RpcTypedParams<Values>::Fit(command, 1));
    EXPECT_EQ(RpcTypedParams<Values>::Get(command, 1), Values(1, "two", true));
    EXPECT_FALSE(RpcTypedParams<Values>::Fit(command, 0));
    EXPECT_FALSE(RpcTypedParams<Values>::Fit(command, 2));
}

TEST(RpcTypedParamTest, NoValuesFitEverywhere) {
    const Result result(0, "");
    EXPECT_EQ(RpcTypedParams<std::tuple<>>::Count, 0);
    EXPECT_TRUE(RpcTypedParams<std::tuple<>>::Fit(*result, 0));
    EXPECT_EQ(RpcTypedParams<std::tuple<>>::Get(*result, 0), std::tuple<>());
}

TEST(RpcTypedParamTest, ValuesWithoutRoomAreNotPushed) {
    char buffer[16 + 12 + 8];
    RpcCommandMuxer muxer(buffer, sizeof(buffer));
    EXPECT_FALSE((RpcTypedParams<std::tuple<int, int>>::Push(&muxer, {1, 2})));
    EXPECT_FALSE(muxer.IsValidCommand());
}

TEST(RpcTypedParamTest, AResultIsOneValueOrATuple) {
    EXPECT_EQ(RpcTypedResult<int>::ToTuple(4), std::tuple<int>(4));
    EXPECT_EQ(RpcTypedResult<std::string>::FromTuple(std::tuple<std::string>("x")), "x");
    using Pair = std::tuple<int, std::string>;
    EXPECT_EQ(RpcTypedResult<Pair>::ToTuple(Pair(1, "x")), Pair(1, "x"));
    EXPECT_EQ(RpcTypedResult<Pair>::FromTuple(Pair(1, "x")), Pair(1, "x"));
}

// --- Callables ---

int Function(const std::string&, int) {
    return 0;
}

int NoexceptFunction(const std::string&, int) noexcept {
    return 0;
}

template <class F>
constexpr bool HasExpectedTraits = std::is_same_v<typename CallableTraits<F>::Result, int>&&
    std::is_same_v<typename CallableTraits<F>::Params, std::tuple<std::string, int>>;

template <class F>
constexpr bool TellsItsTypes(F) {
    return HasExpectedTraits<F>;
}

TEST(RpcTypedParamTest, EveryKindOfCallableTellsItsTypes) {
    EXPECT_TRUE(TellsItsTypes(&Function));
    EXPECT_TRUE(TellsItsTypes(NoexceptFunction));
    EXPECT_TRUE(TellsItsTypes(std::function<int(const std::string&, int)>(&Function)));
    EXPECT_TRUE(TellsItsTypes([](const std::string&, int) { return 0; }));
    EXPECT_TRUE(TellsItsTypes([](const std::string&, int) mutable { return 0; }));
    EXPECT_TRUE(TellsItsTypes([](std::string, const int) noexcept { return 0; }));
    EXPECT_TRUE(TellsItsTypes([](std::string&&, int) mutable noexcept { return 0; }));
}

}  // namespace
