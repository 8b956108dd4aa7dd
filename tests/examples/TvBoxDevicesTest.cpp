// The search for devices, in a network that exists only for the test.
#include "tests/examples/TvBoxPrograms.h"
#include "tests/support/SsdpResponder.h"
#include "tests/support/TestNetwork.h"

namespace {

using kpl::test::NetHost;
using kpl::test::OnTwoHosts;
using kpl::test::SsdpAnswer;
using kpl::test::SsdpResponder;

class TvBoxDevicesTest : public kpl::test::TvBoxTest {
protected:
    // `far` is another host. The front ends before the network does.
    void OnNetwork(const std::function<void(const NetHost& far)>& body) {
        OnTwoHosts("10.77.3.1/16", "10.77.3.2/16", [&](const NetHost&, const NetHost& far) {
            body(far);
            EndPrograms();
        });
    }

    bool WaitForDevices(size_t count) const {
        return WaitForState([&](const Json& state) { return state["devices"].size() == count; });
    }
};

TEST_F(TvBoxDevicesTest, DevicesAreShownWhenTheyAnswer) {
    OnNetwork([&](const NetHost& far) {
        SsdpResponder responder(far, {SsdpAnswer(1), SsdpAnswer(1)});
        StartWeb({"--discover", "--search", "600000"});
        ASSERT_TRUE(WaitForDevices(1));
        const Json device = State()["devices"][0];
        EXPECT_EQ("searching", State()["search"]);
        EXPECT_EQ("http://10.77.3.2:8080/1.xml", device["location"]);
        EXPECT_EQ("uuid:00000000-0000-0000-0000-1", device["name"]);
        EXPECT_EQ("Linux/6.1 UPnP/1.0 Responder/1.1", device["server"]);
        const std::string version = Version();
        ASSERT_TRUE(responder.Send(SsdpAnswer(2)));
        ASSERT_TRUE(WaitForDevices(2));
        EXPECT_NE(version, Version());
    });
}

TEST_F(TvBoxDevicesTest, OneThatDoesNotAnswerTheNextSearchIsShownNoMore) {
    OnNetwork([&](const NetHost& far) {
        SsdpResponder responder(far, {SsdpAnswer(1)});
        StartWeb({"--discover", "--search", "1000"});
        ASSERT_TRUE(WaitForDevices(1));
        // Answers that come in the gap between two searches find nobody: until one is heard.
        ASSERT_TRUE(kpl::test::WaitUntil(
            [&] { return responder.Send(SsdpAnswer(2)) && State()["devices"].size() == 2; },
            30000));
        EXPECT_TRUE(WaitForState([](const Json& state) {
            return state["devices"].size() == 1 &&
                   state["devices"][0]["name"] == "uuid:00000000-0000-0000-0000-1";
        }));
    });
}

TEST_F(TvBoxDevicesTest, NothingIsSentUnlessItIsAskedFor) {
    OnNetwork([&](const NetHost& far) {
        const SsdpResponder responder(far, {SsdpAnswer(1)});
        StartGuide();
        StartWeb({"--search", "100"});
        ASSERT_TRUE(WaitForGuide("online"));
        EXPECT_EQ("off", State()["search"]);
        StopWeb();
        StartWeb({"--discover", "--search", "600000"});
        ASSERT_TRUE(WaitForDevices(1));
        EXPECT_EQ(1u, responder.Requests().size());
        StopServer();
    });
}

TEST_F(TvBoxDevicesTest, WithoutANetworkThePageSaysSo) {
    OnTwoHosts("", "", [&](const NetHost&, const NetHost&) {
        StartWeb({"--discover"});
        EXPECT_TRUE(
            WaitForState([](const Json& state) { return state["search"] == "no network"; }));
        StopWeb();
    });
}

}  // namespace
