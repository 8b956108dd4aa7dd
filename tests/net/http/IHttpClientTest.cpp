#include "kpl/net/http/IHttpClient.h"

#include <gtest/gtest.h>
#include <stdio.h>

#include "tests/support/VirtualSlot.h"

namespace {

using kpl::net::http::IHttpClient;
using kpl::test::SlotOf;

// The destructor comes first; it has two entries.
TEST(IHttpClientTest, TheVirtualOperationsKeepTheirSlots) {
    EXPECT_EQ(SlotOf(&IHttpClient::Open), 2);
    EXPECT_EQ(SlotOf(&IHttpClient::Read), 3);
    EXPECT_EQ(SlotOf(&IHttpClient::IsDataAvailable), 4);
    EXPECT_EQ(SlotOf(&IHttpClient::Seek), 5);
    EXPECT_EQ(SlotOf(&IHttpClient::Close), 6);
    EXPECT_EQ(SlotOf(&IHttpClient::GetTotalLength), 7);
    EXPECT_EQ(SlotOf(&IHttpClient::GetResposnseCode), 8);
    EXPECT_EQ(SlotOf(&IHttpClient::GetResponseText), 9);
    EXPECT_EQ(SlotOf(&IHttpClient::GetResponseProperty), 10);
    EXPECT_EQ(SlotOf(&IHttpClient::SetRequestProperty), 11);
    EXPECT_EQ(SlotOf(&IHttpClient::GetRequestProperty), 12);
    EXPECT_EQ(SlotOf(&IHttpClient::GetUrl), 13);
    EXPECT_EQ(SlotOf(&IHttpClient::GetConnectedUrl), 14);
}

TEST(IHttpClientTest, TheSeekFlagsAreTheNumbersOfTheCLibrary) {
    EXPECT_EQ(static_cast<int>(IHttpClient::SEEK_FLAG_BEGIN), SEEK_SET);
    EXPECT_EQ(static_cast<int>(IHttpClient::SEEK_FLAG_CURRENT), SEEK_CUR);
    EXPECT_EQ(static_cast<int>(IHttpClient::SEEK_FLAG_END), SEEK_END);
}

}  // namespace
