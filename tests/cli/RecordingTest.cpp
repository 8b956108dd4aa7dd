#include "cli/Recording.h"

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

#include "cli/ParamText.h"
#include "kpl/rpc/RpcParam.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/WireFormatsPage.h"

namespace {

using namespace kpl::cli;

using kpl::test::WireFormatsExample;

std::string File(const std::vector<RecordEntry>& entries) {
    std::string bytes = RecordHeader(0);
    for (const RecordEntry& entry : entries) {
        bytes += RecordEntryBytes(entry);
    }
    return bytes;
}

// One line an event.
std::string Shown(const RecordedEvent& event) {
    std::string text = std::to_string(static_cast<int>(event.kind));
    if (event.isCommand) {
        text += " " + std::to_string(event.type) + " " + std::to_string(event.id) + " " +
                event.function;
        for (const Param& param : event.params) {
            text += " " + ParamLine(param);
        }
    } else if (!event.bytes.empty()) {
        text += " bytes " + event.bytes;
    }
    return text;
}

std::vector<std::string> Events(const std::string& file, std::string* fault) {
    std::istringstream in(file);
    std::vector<std::string> events;
    Recording recording;
    *fault = recording.Read(&in, [&](const RecordedEvent& event) {
        events.push_back(Shown(event));
        return true;
    });
    return events;
}

std::vector<std::string> Events(const std::vector<RecordEntry>& entries) {
    std::string fault;
    const std::vector<std::string> events = Events(File(entries), &fault);
    EXPECT_EQ("", fault);
    return events;
}

using Lines = std::vector<std::string>;

const Lines kCall = {"2 10001 7 Add int 19 int 23", "3 10002 7 Add int 42",
                     "3 10003 7 Add int 0 str \"half\""};

TEST(RecordingTest, CommandsAreFoundAndResultsNamed) {
    EXPECT_EQ(kCall, Events({{EntryKind::FromClient, 1, 1, WireFormatsExample("invoke")},
                             {EntryKind::FromServer, 1, 2, WireFormatsExample("result")},
                             {EntryKind::FromServer, 1, 3, WireFormatsExample("callback")}}));
}

TEST(RecordingTest, CommandsMayBeSplitAnywhere) {
    const std::string invoke = WireFormatsExample("invoke");
    for (size_t at = 1; at < invoke.size(); ++at) {
        EXPECT_EQ(Lines{kCall[0]}, Events({{EntryKind::FromClient, 1, 1, invoke.substr(0, at)},
                                           {EntryKind::FromClient, 1, 1, invoke.substr(at)}}))
            << at;
    }
}

TEST(RecordingTest, AnEntryMayHoldSeveralCommands) {
    const std::string answers = WireFormatsExample("result") + WireFormatsExample("callback");
    EXPECT_EQ(kCall, Events({{EntryKind::FromClient, 1, 1, WireFormatsExample("invoke")},
                             {EntryKind::FromServer, 1, 1, answers}}));
}

TEST(RecordingTest, ConnectionsAndDirectionsDoNotMix) {
    const std::string invoke = WireFormatsExample("invoke");
    const std::string head = invoke.substr(0, 20);
    const std::string tail = invoke.substr(20);
    EXPECT_EQ((Lines{kCall[0], kCall[0]}), Events({{EntryKind::FromClient, 1, 1, head},
                                                   {EntryKind::FromClient, 2, 1, head},
                                                   {EntryKind::FromClient, 2, 1, tail},
                                                   {EntryKind::FromClient, 1, 1, tail}}));
    // The other connection's result has no function: nobody called there.
    EXPECT_EQ((Lines{kCall[0], "3 10002 7  int 42"}),
              Events({{EntryKind::FromClient, 1, 1, invoke},
                      {EntryKind::FromServer, 2, 1, WireFormatsExample("result")}}));
}

TEST(RecordingTest, BadBytesAreHandedOnAndTheNextEntryIsReadAfresh) {
    EXPECT_EQ((Lines{"2 bytes hello", kCall[0]}),
              Events({{EntryKind::FromClient, 1, 1, "hello"},
                      {EntryKind::FromClient, 1, 1, WireFormatsExample("invoke")}}));
}

TEST(RecordingTest, WhatIsLeftAtTheEndIsHandedOn) {
    const std::string cut = WireFormatsExample("invoke").substr(0, 3);
    EXPECT_EQ((Lines{"2 bytes " + cut, "4"}),
              Events({{EntryKind::FromClient, 1, 1, cut}, {EntryKind::Closed, 1, 1, ""}}));
    EXPECT_EQ((Lines{"2 bytes " + cut}), Events({{EntryKind::FromClient, 1, 1, cut}}));
}

TEST(RecordingTest, ACommandLargerThanTheLibrarysIsBytes) {
    std::string huge = WireFormatsExample("invoke");
    huge[10] = 1;  // 65588 bytes
    EXPECT_EQ((Lines{"2 bytes " + huge, kCall[0]}),
              Events({{EntryKind::FromClient, 1, 1, huge},
                      {EntryKind::FromClient, 1, 1, WireFormatsExample("invoke")}}))
        << "nothing is waited for that nobody would have sent";
    const std::string largest = kpl::test::CommandBytes(kpl::rpc::RPC_COMMAND_RESULT, 0,
                                                        std::string(16384 - 25, 'x').c_str());
    ASSERT_EQ(16384u, largest.size());
    EXPECT_EQ(0u, Events({{EntryKind::FromServer, 1, 1, largest}})[0].find("3 10002 0  str"));
}

TEST(RecordingTest, AnInvokeWithoutANameIsBytes) {
    const std::string nameless =
        kpl::test::CommandBytes(kpl::rpc::RPC_COMMAND_RESULT, 0).replace(0, 1, "\x11");
    EXPECT_EQ(Lines{"2 bytes " + nameless}, Events({{EntryKind::FromClient, 1, 1, nameless}}));
}

TEST(RecordingTest, TheSinkCanEndIt) {
    std::istringstream in(File({{EntryKind::Opened, 1, 1, ""},
                                {EntryKind::Closed, 1, 1, ""},
                                {EntryKind::Opened, 2, 1, ""}}));
    int events = 0;
    Recording recording;
    EXPECT_EQ("", recording.Read(&in, [&](const RecordedEvent&) { return ++events < 2; }));
    EXPECT_EQ(2, events);
}

// Every byte of a good file, changed in several ways: it is read to an end, within its bounds.
TEST(RecordingTest, AFlippedByteDoesNoHarm) {
    const std::string good = File({{EntryKind::Opened, 1, 1, ""},
                                   {EntryKind::FromClient, 1, 2, WireFormatsExample("invoke")},
                                   {EntryKind::FromServer, 1, 3, WireFormatsExample("result")},
                                   {EntryKind::FromServer, 1, 4, WireFormatsExample("callback")},
                                   {EntryKind::Closed, 1, 5, ""}});
    for (size_t at = 0; at < good.size(); ++at) {
        for (const int flip : {0x01, 0x80, 0xFF, 0x7F, 0x10}) {
            std::string file = good;
            file[at] = static_cast<char>(file[at] ^ flip);
            std::string fault;
            EXPECT_LE(Events(file, &fault).size(), 6u) << at;
        }
    }
}

TEST(RecordingTest, ACutFileDoesNoHarm) {
    const std::string good = File({{EntryKind::FromClient, 1, 2, WireFormatsExample("invoke")},
                                   {EntryKind::FromServer, 1, 3, WireFormatsExample("result")}});
    for (size_t size = 0; size < good.size(); ++size) {
        std::string fault;
        EXPECT_LE(Events(good.substr(0, size), &fault).size(), 2u) << size;
    }
}

}  // namespace
