#include <gtest/gtest.h>
#include <signal.h>

#include <string>
#include <vector>

#include "tests/examples/Program.h"
#include "tests/support/Process.h"
#include "tests/support/SsdpResponder.h"
#include "tests/support/Stopwatch.h"
#include "tests/support/TestNetwork.h"

namespace {

using kpl::test::kCeilingMs;
using kpl::test::Lines;
using kpl::test::NetHost;
using kpl::test::OnTwoHosts;
using kpl::test::Program;
using kpl::test::ProgramResult;
using kpl::test::RunProgram;
using kpl::test::SsdpAnswer;
using kpl::test::SsdpResponder;
using kpl::test::Stopwatch;
using kpl::test::WaitUntil;

constexpr char kProgram[] = "find_devices";

// `body` runs on one host, `far` is the other.
void OnNetwork(const std::function<void(const NetHost& far)>& body) {
    OnTwoHosts("10.77.3.1/16", "10.77.3.2/16",
               [&](const NetHost&, const NetHost& far) { body(far); });
}

// A line of the table, without the time.
std::string Row(const std::string& location, const std::string& device, const std::string& server) {
    const auto pad = [](const std::string& text, size_t width) {
        return text + std::string(text.size() < width ? width - text.size() : 0, ' ') + "  ";
    };
    return "  " + pad(location, 40) + pad(device, 41) + server;
}

std::string RowOf(int number) {
    const std::string text = std::to_string(number);
    return Row("http://10.77.3.2:8080/" + text + ".xml", "uuid:00000000-0000-0000-0000-" + text,
               "Linux/6.1 UPnP/1.0 Responder/1." + text);
}

// Everything but the times, which begin the lines of the table.
std::vector<std::string> WithoutTimes(const std::string& output) {
    std::vector<std::string> lines = Lines(output);
    for (std::string& line : lines) {
        const size_t unit = line.find(" s  ");
        if (unit != std::string::npos) {
            line.erase(0, unit + 2);
        }
    }
    return lines;
}

const std::string kHeading = "  After" + Row("Location", "Device", "Server");

void ExpectFault(const std::vector<std::string>& arguments, const std::string& fault) {
    const ProgramResult result = RunProgram(kProgram, arguments);
    EXPECT_EQ(result.code, 2);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "find_devices: " + fault + "\n");
}

TEST(FindDevicesTest, WrongArgumentsAreRefusedInOneLine) {
    ExpectFault({"--second", "1"}, "unknown option '--second' (--help lists them)");
    ExpectFault({"--seconds"}, "option '--seconds' needs a value");
    ExpectFault({"all"}, "unexpected argument 'all'");
    for (const char* seconds : {"0", "3601", "-1", "1.5", "x", ""}) {
        ExpectFault({"--seconds", seconds},
                    std::string("'") + seconds + "' is no number of seconds (1 to 3600)");
    }
}

TEST(FindDevicesTest, HelpListsTheOptions) {
    const ProgramResult result = RunProgram(kProgram, {"--help"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.errors, "");
    for (const char* option : {"--seconds N", "--renderers", "--verbose"}) {
        EXPECT_NE(result.output.find(option), std::string::npos) << option;
    }
}

TEST(FindDevicesTest, DevicesAreListedAndTheSearchEndsInTime) {
    OnNetwork([](const NetHost& far) {
        const SsdpResponder responder(far, {SsdpAnswer(1), SsdpAnswer(2), SsdpAnswer(1)});
        const Stopwatch watch;
        const ProgramResult result = RunProgram(kProgram, {"--seconds", "1"});
        EXPECT_GE(watch.ElapsedMs(), 1000);
        EXPECT_LT(watch.ElapsedMs(), 1000 + kCeilingMs);
        EXPECT_EQ(result.code, 0);
        EXPECT_EQ(result.errors, "");
        EXPECT_EQ(WithoutTimes(result.output),
                  (std::vector<std::string>{kHeading, RowOf(1), RowOf(2), "", "Devices: 2"}));
    });
}

TEST(FindDevicesTest, ADeviceIsListedWhenItAnswersAndCtrlCEndsTheSearch) {
    OnNetwork([](const NetHost& far) {
        SsdpResponder responder(far, {});
        Program program(kProgram, {"--seconds", "3600"});
        ASSERT_TRUE(responder.WaitForRequests(1));
        EXPECT_EQ(program.Output(), "");
        ASSERT_TRUE(responder.Send(SsdpAnswer(1)));
        ASSERT_TRUE(program.WaitForOutput(RowOf(1) + "\n"));
        ASSERT_TRUE(responder.Send(SsdpAnswer(2)));
        ASSERT_TRUE(program.WaitForOutput(RowOf(2) + "\n"));
        program.Kill(SIGINT);
        EXPECT_EQ(program.Wait(), 0);
        EXPECT_EQ(WithoutTimes(program.Output()),
                  (std::vector<std::string>{kHeading, RowOf(1), RowOf(2), "", "Devices: 2"}));
    });
}

TEST(FindDevicesTest, NoDeviceIsNoFailure) {
    OnNetwork([](const NetHost&) {
        const ProgramResult result = RunProgram(kProgram, {"--seconds", "1"});
        EXPECT_EQ(result.code, 0);
        EXPECT_EQ(result.output, "No device has answered.\n");
        EXPECT_EQ(result.errors, "");
    });
}

TEST(FindDevicesTest, OddAnswersDoNotReachTheTerminalAsTheyAre) {
    OnNetwork([](const NetHost& far) {
        const SsdpResponder responder(
            far, {"HTTP/1.1 200 OK\r\nSERVER: \x1b[2J\xc3\xa9\r\nUSN: a\tb\r\nST: t\r\n\r\n"});
        const ProgramResult result = RunProgram(kProgram, {"--seconds", "1"});
        EXPECT_EQ(
            WithoutTimes(result.output),
            (std::vector<std::string>{kHeading, Row("(none)", "a?b", "?[2J??"), "", "Devices: 1"}));
    });
}

TEST(FindDevicesTest, RenderersAloneAreSearchedForByTheirTarget) {
    OnNetwork([](const NetHost& far) {
        const SsdpResponder responder(far, {});
        EXPECT_EQ(RunProgram(kProgram, {"--seconds", "1"}).code, 0);
        EXPECT_EQ(RunProgram(kProgram, {"--seconds", "1", "--renderers"}).code, 0);
        ASSERT_EQ(responder.Requests().size(), 2u);
        EXPECT_NE(responder.Requests()[0].find("\r\nST: upnp:rootdevice\r\n"), std::string::npos);
        EXPECT_NE(
            responder.Requests()[1].find("\r\nST: urn:schemas-upnp-org:device:MediaRenderer:1\r\n"),
            std::string::npos);
    });
}

TEST(FindDevicesTest, VerboseShowsTheLibrarysLog) {
    OnNetwork([](const NetHost&) {
        const ProgramResult result = RunProgram(kProgram, {"--seconds", "1", "--verbose"});
        EXPECT_EQ(result.errors, "KPL: UPnPFinder::ReadSSDPRespond(): Timeout!\n");
    });
}

TEST(FindDevicesTest, WithoutANetworkItFailsAndSaysSo) {
    OnTwoHosts("", "", [](const NetHost&, const NetHost&) {
        const ProgramResult result = RunProgram(kProgram, {});
        EXPECT_EQ(result.code, 1);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors,
                  "find_devices: cannot send the search: is there a network? (error 2)\n");
    });
}

}  // namespace
