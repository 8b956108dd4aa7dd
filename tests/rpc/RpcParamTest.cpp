#include "kpl/rpc/RpcParam.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>

#include "kpl/rpc/EpgDataList.h"
#include "kpl/rpc/RpcArray.h"

namespace {

using namespace kpl::rpc;

template <class T, class Real>
bool Maps(int code) {
    return ParamTypeTrait<T>::Type == code &&
           std::is_same_v<typename ParamTypeTrait<T>::RealType, Real>;
}

TEST(RpcParamTest, EveryTypeHasItsCodeAndItsRealType) {
    EXPECT_TRUE((Maps<bool, bool>(1)));
    EXPECT_TRUE((Maps<int, int>(2)));
    EXPECT_TRUE((Maps<long, long>(3)));
    EXPECT_TRUE((Maps<char, char>(4)));
    EXPECT_TRUE((Maps<unsigned char, unsigned char>(5)));
    EXPECT_TRUE((Maps<long long, long long>(6)));
    EXPECT_TRUE((Maps<unsigned long long, unsigned long long>(7)));
    EXPECT_TRUE((Maps<short, short>(8)));
    EXPECT_TRUE((Maps<unsigned short, unsigned short>(9)));
    EXPECT_TRUE((Maps<unsigned int, unsigned int>(10)));
    EXPECT_TRUE((Maps<unsigned long, unsigned long>(11)));
    EXPECT_TRUE((Maps<double, double>(12)));
    EXPECT_TRUE((Maps<float, float>(13)));
    EXPECT_TRUE((Maps<const char*, const char*>(50)));
    EXPECT_TRUE((Maps<RpcArray, RpcArray>(51)));
    EXPECT_TRUE((Maps<EpgDataList, EpgDataList>(51)));
    EXPECT_TRUE((Maps<RpcCallbackContext, RpcCallbackContext>(60)));
}

TEST(RpcParamTest, CommandTypesHaveTheirNumbers) {
    EXPECT_EQ(RPC_COMMAND_INVOKE, 10001);
    EXPECT_EQ(RPC_COMMAND_RESULT, 10002);
    EXPECT_EQ(RPC_COMMAND_CALLBACK, 10003);
}

void AppendOne(void* proxy, RpcCommandDemuxer*) {
    *static_cast<std::string*>(proxy) += '1';
}

TEST(RpcParamTest, ACallbackContextIsEightBytesEverywhere) {
    EXPECT_EQ(sizeof(RpcCallbackContext), 8U);
    EXPECT_TRUE(std::is_trivially_copyable_v<RpcCallbackContext>);
}

TEST(RpcParamTest, ACallbackContextIsNullByDefault) {
    const RpcCallbackContext context;
    EXPECT_EQ(context.GetProxy(), nullptr);
    EXPECT_EQ(context.GetFunction(), nullptr);
    EXPECT_FALSE(context.IsLost());
}

TEST(RpcParamTest, ACallbackContextGivesItsPointersBack) {
    std::string proxy;
    const RpcCallbackContext context(&proxy, &AppendOne);
    ASSERT_EQ(context.GetProxy(), &proxy);
    context.GetFunction()(context.GetProxy(), nullptr);
    EXPECT_EQ(proxy, "1");
}

}  // namespace
