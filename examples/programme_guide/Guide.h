#ifndef KPL_EXAMPLES_PROGRAMME_GUIDE_GUIDE_H_
#define KPL_EXAMPLES_PROGRAMME_GUIDE_GUIDE_H_

#include <optional>
#include <string>
#include <vector>

#include "GuideTime.h"

namespace guide {

struct Programme {
    int channel = 0;  // its number, from 1
    std::string channelName;
    GuideTime start = 0;
    GuideTime end = 0;  // the first second that is not part of it
    int age = 0;        // the youngest age that it suits
    std::string genre;  // may be empty
    std::string title;
    std::string description;  // may be empty
};

// What is on, by channel and time. Filled first, by one thread; then any thread may look, and the
// pointers that are returned stay good.
class Guide {
public:
    using Programmes = std::vector<const Programme*>;

    // Puts it behind the channel's others. A channel that is new gets the next number; the number
    // in `programme` is not looked at. Returns false if it starts before the channel's last one
    // ends.
    bool Add(Programme programme);

    int ChannelCount() const { return static_cast<int>(m_channels.size()); }
    int ProgrammeCount() const;

    // Of a channel from 1 to ChannelCount().
    const std::string& ChannelName(int channel) const;

    // Over all channels; 0 without programmes.
    GuideTime Begin() const;

    // What is on, and what starts next. Null if there is nothing, or no such channel.
    const Programme* OnAt(int channel, GuideTime time) const;
    const Programme* NextAfter(int channel, GuideTime time) const;

    // Those that start from `from` on and before `to`, in that order. None for no such channel.
    Programmes Starting(int channel, GuideTime from, GuideTime to) const;

    // The same of all channels, in the order of their starts, then of the channels.
    Programmes Starting(GuideTime from, GuideTime to) const;

    // The start of the first programme after `time` on any channel.
    std::optional<GuideTime> NextStart(GuideTime time) const;

    // Those whose title or description has `text` in it, capital or small, in the order of their
    // starts.
    Programmes Find(const std::string& text) const;

private:
    using Schedule = std::vector<Programme>;

    const Schedule* FindSchedule(int channel) const;

    std::vector<Schedule> m_channels;  // none is empty
};

}  // namespace guide

#endif  // KPL_EXAMPLES_PROGRAMME_GUIDE_GUIDE_H_
