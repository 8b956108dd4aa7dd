#include <stdio.h>

#include <fstream>
#include <memory>
#include <string>

#include "OwnLog.h"
#include "Recipes.h"
#include "kpl/json/JSON.h"
#include "kpl/os/CEvent.h"
#include "kpl/parser/LineParser.h"
#include "kpl/tools/CommandProcessor.h"
#include "kpl/tools/DebugLog.h"
#include "kpl/tools/TimerObject.h"

using kpl::os::CEvent;
using kpl::parser::LineParser;

void ReadLines() {
    std::ofstream("channels.txt") << "News\r\n\nSport\n";

    LineParser lines;
    if (!lines.SetContent("channels.txt")) {  // or "https://..." in a process with Java
        puts("not there, empty, or of unknown length");
        return;
    }
    for (unsigned int i = 0; lines[i] != nullptr; ++i) {
        printf("%u: %s\n", i + 1, lines[i]);
    }
}

void ReadAndWriteJson() {
    const std::unique_ptr<JSONValue> channel(
        JSON::Parse(R"({"name": "Sport/Live", "number": 7, "tags": ["hd", "new"]})"));
    if (channel == nullptr || !channel->IsObject()) {
        puts("no JSON object");
        return;
    }
    const JSONObject& members = channel->AsObject();
    printf("%s has %zu tags\n", members.at("name")->AsString().c_str(),
           members.at("tags")->AsArray().size());

    // The tree owns what is put into it.
    const JSONValue answer(JSONObject{{"ok", new JSONValue(true)},
                                      {"seconds", new JSONValue(1234567.0)},
                                      {"text", new JSONValue("1234567")},
                                      {"title", new JSONValue("Sport/Live")}});
    puts(answer.Stringify().c_str());
}

void LogToFiles() {
    kpl::tools::EnableDumpLog(true, true);  // DumpDbgMsg too; and into files, in this directory
    kpl::tools::DumpDbgMsg("channel %d\n", 7);
    kpl::tools::ForceDumpDbgMsg("always\n");  // also when the log is off
    kpl::tools::EnableDumpLog(false, false);
    kpl::tools::DumpDbgMsg("nobody sees this\n");
    kpl::tools::FlushLogFile();  // the text is in the file now

    std::ifstream file("LogTools0.txt");
    for (std::string line; std::getline(file, line);) {
        puts(line.c_str());
    }
}

void TakeTheLog() {
    PrintMessagesWith("channel", nullptr);
    kpl::tools::ForceDumpDbgMsg("channel %d\n", 7);
    kpl::tools::ForceDumpDbgMsg("something else\n");
}

void UseATimer() {
    CEvent done(false);
    kpl::tools::TimerObject timer;
    const auto onTick = [](void* arg, int tick) {  // on the timer's thread
        printf("tick %d\n", tick);
        if (tick == 3) {
            static_cast<CEvent*>(arg)->Set();
        }
    };
    timer.Start(10, onTick, &done, 3, false, 0);  // 3 times, every 10 ms
    done.Wait(10000);
    timer.Stop();  // waits for a tick that runs
}

namespace {

class Recorder : public kpl::tools::CommandProcessor<int> {
public:
    bool Execute(int channel) override {  // on the queue's thread, one at a time
        printf("recording channel %d\n", channel);
        return true;
    }
    void OnCommandDone(int channel) override {
        if (channel == 0) {
            m_done.Set();
        }
    }
    void WaitForTheLast() { m_done.Wait(10000); }

private:
    CEvent m_done{false};
};

}  // namespace

void UseAQueue() {
    Recorder recorder;
    kpl::tools::CommandQueue<int> queue(&recorder);
    queue.Post(7);
    queue.Post(3);
    queue.Post(0);
    recorder.WaitForTheLast();
    queue.Stop();  // before the recorder goes; hands back what was not executed
}
