#include "GuideTime.h"

#include <time.h>

#include <iomanip>
#include <sstream>

namespace guide {

namespace {

constexpr char kTimeFormat[] = "%Y-%m-%d %H:%M";

struct tm Parts(GuideTime time) {
    const auto seconds = static_cast<time_t>(time);
    struct tm parts = {};
    gmtime_r(&seconds, &parts);
    return parts;
}

// The programs never leave the C locale, so names of days and months are English.
std::string Format(const char* format, GuideTime time) {
    const struct tm parts = Parts(time);
    std::ostringstream text;
    text << std::put_time(&parts, format);
    return text.str();
}

}  // namespace

std::optional<GuideTime> ParseTime(const std::string& text) {
    struct tm parts = {};
    if (strptime(text.c_str(), kTimeFormat, &parts) == nullptr) {
        return std::nullopt;
    }
    const GuideTime time = timegm(&parts);
    // strptime is lenient with blanks and lets 31 February pass; only what reads back is a time.
    const bool isTime = time >= 0 && Format(kTimeFormat, time) == text;
    return isTime ? std::optional<GuideTime>(time) : std::nullopt;
}

std::optional<GuideTime> ParseDate(const std::string& text) {
    return ParseTime(text + " 00:00");
}

std::string FormatTime(GuideTime time) {
    return Format("%H:%M", time);
}

std::string FormatDayTime(GuideTime time) {
    return Format("%a %H:%M", time);
}

std::string FormatStamp(GuideTime time) {
    return Format("%Y-%m-%d %H:%M:%S", time);
}

std::string FormatDate(GuideTime time) {
    return Format("%A, ", time) + std::to_string(Parts(time).tm_mday) + Format(" %B %Y", time);
}

}  // namespace guide
