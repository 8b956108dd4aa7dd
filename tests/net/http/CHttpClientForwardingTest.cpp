// CHttpClient with its implementation.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kpl/net/http/CHttpClient.h"
#include "kpl/os/android/JniContext.h"
#include "tests/support/FakeJava.h"
#include "tests/support/LogCapture.h"

namespace {

using kpl::net::http::CHttpClient;
using kpl::net::http::IHttpClient;
using kpl::os::android::JniContext;
using kpl::test::FakeJava;
using kpl::test::LogCapture;
using testing::Contains;
using testing::IsEmpty;
using testing::StrEq;

TEST(CHttpClientForwardingTest, EveryOperationReachesTheJavaMethod) {
    LogCapture log;
    FakeJava java;
    std::vector<std::string> names = {"com/kapelo/net/CHttpClient"};
    JniContext::GetInstance().Initialize(java.Vm(), names);
    java.intResults = {{"GetTotalLength", 7},
                       {"GetResposnseCode", 200},
                       {"GetAvailableDataLength", 1},
                       {"Seek", 5}};
    java.readResults = {3};
    {
        CHttpClient client;
        char buffer[3] = {};
        client.SetRequestProperty("Accept", "text/plain");
        EXPECT_THAT(client.GetRequestProperty("Accept"), StrEq("the GetRequestProperty"));
        EXPECT_TRUE(client.Open("http://h/x"));
        EXPECT_EQ(client.Read(buffer, 3), 3);
        EXPECT_TRUE(client.IsDataAvailable());
        EXPECT_EQ(client.Seek(5, IHttpClient::SEEK_FLAG_CURRENT), 5);
        EXPECT_EQ(client.GetTotalLength(), 7);
        EXPECT_EQ(client.GetResposnseCode(), 200);
        EXPECT_THAT(client.GetResponseText(), StrEq("the GetResponseText"));
        EXPECT_THAT(client.GetResponseProperty("Server"), StrEq("the GetResponseProperty"));
        EXPECT_THAT(client.GetUrl(), StrEq("the GetUrl"));
        EXPECT_THAT(client.GetConnectedUrl(), StrEq("the GetConnectedUrl"));
        client.Close();
        EXPECT_THAT(java.TakeCalls(), Contains("CallStaticVoidMethodA(Close connection1)"));
        EXPECT_EQ(client.GetUrl(), nullptr);
        EXPECT_TRUE(client.Open("http://h/y"));
    }
    EXPECT_THAT(java.TakeCalls(), Contains("CallStaticVoidMethodA(Close connection2)"));
    JniContext::GetInstance().Finalize(java.Vm());
    EXPECT_EQ(java.GlobalCount(), 0);
    EXPECT_THAT(java.Mistakes(), IsEmpty());
}

}  // namespace
