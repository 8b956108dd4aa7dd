#ifndef KPL_EXAMPLES_PROGRAMME_GUIDE_GUIDETIME_H_
#define KPL_EXAMPLES_PROGRAMME_GUIDE_GUIDETIME_H_

#include <optional>
#include <string>

namespace guide {

// Seconds since 1970-01-01 00:00, in the guide's own time zone: there are no others, and no
// daylight saving.
using GuideTime = long long;

constexpr GuideTime kMinute = 60;
constexpr GuideTime kHour = 60 * kMinute;
constexpr GuideTime kDay = 24 * kHour;

// "2026-03-14 20:15", exactly so; nothing for a time that does not exist, or lies before 1970.
std::optional<GuideTime> ParseTime(const std::string& text);

// "2026-03-14": that day's midnight.
std::optional<GuideTime> ParseDate(const std::string& text);

std::string FormatTime(GuideTime time);     // "20:15"
std::string FormatDayTime(GuideTime time);  // "Sat 20:15"
std::string FormatDate(GuideTime time);     // "Saturday, 14 March 2026"
std::string FormatStamp(GuideTime time);    // "2026-03-14 20:15:07"

}  // namespace guide

#endif  // KPL_EXAMPLES_PROGRAMME_GUIDE_GUIDETIME_H_
