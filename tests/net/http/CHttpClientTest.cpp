// Without a Java machine, which for a user is the same whether the library has an implementation
// (kpl_tests) or not (kpl_no_java_tests).
#include "kpl/net/http/CHttpClient.h"

#include <gtest/gtest.h>

namespace {

using kpl::net::http::CHttpClient;
using kpl::net::http::IHttpClient;

void ExpectNothingIsOpen(IHttpClient& client) {
    EXPECT_FALSE(client.IsDataAvailable());
    EXPECT_EQ(client.GetTotalLength(), 0);
    EXPECT_EQ(client.GetResposnseCode(), 0);
    EXPECT_EQ(client.GetResponseText(), nullptr);
    EXPECT_EQ(client.GetResponseProperty("Server"), nullptr);
    EXPECT_EQ(client.GetRequestProperty("Range"), nullptr);
    EXPECT_EQ(client.GetUrl(), nullptr);
    EXPECT_EQ(client.GetConnectedUrl(), nullptr);
}

TEST(CHttpClientTest, WithoutAnImplementationReadIsMinusOneSeekIsMinusThreeAndTheRestIsNothing) {
    CHttpClient client;
    char buffer[4];
    client.SetRequestProperty("Range", "bytes=0-1");
    ExpectNothingIsOpen(client);
    EXPECT_FALSE(client.Open("http://127.0.0.1/"));
    EXPECT_EQ(client.Read(buffer, 4), -1);
    EXPECT_EQ(client.Seek(0, IHttpClient::SEEK_FLAG_BEGIN), -3);
    ExpectNothingIsOpen(client);
    client.Close();
}

}  // namespace
