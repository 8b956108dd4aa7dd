#include "BoxView.h"

#include <algorithm>

#include "Utf8.h"
#include "kpl/json/JSON.h"

namespace tv_box {

using guide::GuideTime;
using guide::Programme;

namespace {

constexpr size_t kMaxScheduled = 12;

bool IsControl(char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == '\x7F';
}

// What others say goes through as it is when it is a text: bytes that are no UTF-8 would make
// invalid JSON, and the library writes every control as a zero.
JSONValue* Text(std::string text) {
    const bool isUtf8 = guide::IsUtf8(text);
    for (char& c : text) {
        if (IsControl(c) || (!isUtf8 && static_cast<unsigned char>(c) >= 0x80)) {
            c = '?';
        }
    }
    return new JSONValue(text);
}

JSONValue* Time(GuideTime time) {
    return new JSONValue(guide::FormatStamp(time));
}

JSONObject ProgrammeMembers(const Programme& programme) {
    return {{"title", Text(programme.title)},
            {"genre", Text(programme.genre)},
            {"age", new JSONValue(programme.age)},
            {"start", Time(programme.start)},
            {"end", Time(programme.end)}};
}

// What is on and what is next, whichever of the two there is.
void AddNowAndNext(const GuideView& guide, int channel, JSONObject* members) {
    for (const Programme& programme : guide.nowAndNext) {
        const bool isOn = programme.start <= guide.now;
        const char* const when = isOn ? "now" : "next";
        if (programme.channel != channel || members->count(when) > 0) {
            continue;
        }
        JSONObject shown = ProgrammeMembers(programme);
        if (isOn) {
            shown["percent"] = new JSONValue(PercentOver(programme, guide.now));
        }
        (*members)[when] = new JSONValue(shown);
    }
}

JSONValue* Channels(const GuideView& guide) {
    JSONArray channels;
    for (const guide::Channel& channel : guide.channels) {
        JSONObject members{{"number", new JSONValue(channel.number)}, {"name", Text(channel.name)}};
        AddNowAndNext(guide, channel.number, &members);
        channels.push_back(new JSONValue(members));
    }
    return new JSONValue(channels);
}

const char* NameOf(SearchState state) {
    switch (state) {
        case SearchState::Searching:
            return "searching";
        case SearchState::NoNetwork:
            return "no network";
        default:
            return "off";
    }
}

JSONValue* Devices(const DeviceView& view) {
    JSONArray devices;
    for (const Device& device : view.devices) {
        devices.push_back(new JSONValue(JSONObject{{"location", Text(device.location)},
                                                   {"name", Text(device.name)},
                                                   {"server", Text(device.server)}}));
    }
    return new JSONValue(devices);
}

std::string Write(const JSONObject& members) {
    return JSONValue(members).Stringify();
}

}  // namespace

int PercentOver(const Programme& programme, GuideTime now) {
    const GuideTime whole = std::max(programme.end - programme.start, 1LL);
    return static_cast<int>(std::clamp(now - programme.start, 0LL, whole) * 100 / whole);
}

std::string StateJson(const std::string& version, const std::string& source, const GuideView& guide,
                      const DeviceView& devices) {
    const bool isKnown = guide.now != 0;
    return Write({{"version", Text(version)},
                  {"source", Text(source)},
                  {"guide", new JSONValue(guide.isOnline ? "online" : "offline")},
                  {"now", isKnown ? Time(guide.now) : new JSONValue},
                  {"date", isKnown ? Text(guide::FormatDate(guide.now)) : new JSONValue},
                  {"channels", Channels(guide)},
                  {"search", new JSONValue(NameOf(devices.search))},
                  {"devices", Devices(devices)}});
}

std::string ScheduleJson(const std::vector<Programme>& programmes, GuideTime now) {
    JSONArray shown;
    for (const Programme& programme : programmes) {
        if (programme.end > now && shown.size() < kMaxScheduled) {
            JSONObject members = ProgrammeMembers(programme);
            members["description"] = Text(programme.description);
            shown.push_back(new JSONValue(members));
        }
    }
    return Write({{"programmes", new JSONValue(shown)}});
}

}  // namespace tv_box
