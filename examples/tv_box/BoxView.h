// What the page shows, as the program holds it, and as JSON.
#ifndef KPL_EXAMPLES_TV_BOX_BOXVIEW_H_
#define KPL_EXAMPLES_TV_BOX_BOXVIEW_H_

#include <map>
#include <string>
#include <vector>

#include "Guide.h"
#include "GuideConnection.h"

namespace tv_box {

// The guide server, as it was last heard.
struct GuideView {
    bool isOnline = false;
    guide::GuideTime now = 0;  // by the server's clock; 0 if it was never heard
    std::vector<guide::Channel> channels;
    std::vector<guide::Programme> nowAndNext;  // by channel, as GuideConnection::OnNow
};

// All programmes of each channel, by its number.
using Schedules = std::map<int, std::vector<guide::Programme>>;

struct Device {
    std::string location;
    std::string name;
    std::string server;
};

enum class SearchState { Off, Searching, NoNetwork };

struct DeviceView {
    SearchState search = SearchState::Off;
    std::vector<Device> devices;
};

// All of these are JSON texts. Times in them are strings, as "2026-03-14 20:30:07": a number is
// written with six significant digits, which for the seconds since 1970 are steps of three hours.

// The state of the box. `version` is a string for the same reason. `source` is where the guide came
// from.
std::string StateJson(const std::string& version, const std::string& source, const GuideView& guide,
                      const DeviceView& devices);

// What is on from `now` on, twelve programmes at most.
std::string ScheduleJson(const std::vector<guide::Programme>& programmes, guide::GuideTime now);

// How much of it is over, 0 to 100.
int PercentOver(const guide::Programme& programme, guide::GuideTime now);

}  // namespace tv_box

#endif  // KPL_EXAMPLES_TV_BOX_BOXVIEW_H_
