#include "Guide.h"

#include <algorithm>
#include <utility>

#include "Utf8.h"

namespace guide {

namespace {

using Schedule = std::vector<Programme>;

// The first programme that starts at `time` or later.
Schedule::const_iterator FirstFrom(const Schedule& schedule, GuideTime time) {
    return std::lower_bound(
        schedule.begin(), schedule.end(), time,
        [](const Programme& programme, GuideTime value) { return programme.start < value; });
}

// Keeps the channels' order among those that start together.
void SortByStart(Guide::Programmes* programmes) {
    std::stable_sort(programmes->begin(), programmes->end(),
                     [](const Programme* a, const Programme* b) { return a->start < b->start; });
}

bool Contains(const std::string& text, const std::string& folded) {
    return FoldCase(text).find(folded) != std::string::npos;
}

}  // namespace

bool Guide::Add(Programme programme) {
    auto schedule = std::find_if(m_channels.begin(), m_channels.end(), [&](const Schedule& other) {
        return other.front().channelName == programme.channelName;
    });
    if (schedule == m_channels.end()) {
        schedule = m_channels.emplace(m_channels.end());
    } else if (programme.start < schedule->back().end) {
        return false;
    }
    programme.channel = static_cast<int>(schedule - m_channels.begin()) + 1;
    schedule->push_back(std::move(programme));
    return true;
}

int Guide::ProgrammeCount() const {
    size_t count = 0;
    for (const Schedule& schedule : m_channels) {
        count += schedule.size();
    }
    return static_cast<int>(count);
}

const std::string& Guide::ChannelName(int channel) const {
    return m_channels[static_cast<size_t>(channel - 1)].front().channelName;
}

GuideTime Guide::Begin() const {
    std::optional<GuideTime> begin;
    for (const Schedule& schedule : m_channels) {
        begin = std::min(begin.value_or(schedule.front().start), schedule.front().start);
    }
    return begin.value_or(0);
}

const Guide::Schedule* Guide::FindSchedule(int channel) const {
    const bool exists = channel >= 1 && channel <= ChannelCount();
    return exists ? &m_channels[static_cast<size_t>(channel - 1)] : nullptr;
}

const Programme* Guide::OnAt(int channel, GuideTime time) const {
    const Schedule* const schedule = FindSchedule(channel);
    if (schedule == nullptr) {
        return nullptr;
    }
    const auto next = FirstFrom(*schedule, time + 1);
    if (next == schedule->begin()) {
        return nullptr;
    }
    const Programme& last = *(next - 1);
    return last.end > time ? &last : nullptr;
}

const Programme* Guide::NextAfter(int channel, GuideTime time) const {
    const Schedule* const schedule = FindSchedule(channel);
    if (schedule == nullptr) {
        return nullptr;
    }
    const auto next = FirstFrom(*schedule, time + 1);
    return next == schedule->end() ? nullptr : &*next;
}

Guide::Programmes Guide::Starting(int channel, GuideTime from, GuideTime to) const {
    Programmes programmes;
    const Schedule* const schedule = FindSchedule(channel);
    if (schedule != nullptr) {
        for (auto i = FirstFrom(*schedule, from); i != schedule->end() && i->start < to; ++i) {
            programmes.push_back(&*i);
        }
    }
    return programmes;
}

Guide::Programmes Guide::Starting(GuideTime from, GuideTime to) const {
    Programmes programmes;
    for (int channel = 1; channel <= ChannelCount(); ++channel) {
        const Programmes more = Starting(channel, from, to);
        programmes.insert(programmes.end(), more.begin(), more.end());
    }
    SortByStart(&programmes);
    return programmes;
}

std::optional<GuideTime> Guide::NextStart(GuideTime time) const {
    std::optional<GuideTime> start;
    for (int channel = 1; channel <= ChannelCount(); ++channel) {
        const Programme* const next = NextAfter(channel, time);
        if (next != nullptr) {
            start = std::min(start.value_or(next->start), next->start);
        }
    }
    return start;
}

Guide::Programmes Guide::Find(const std::string& text) const {
    const std::string folded = FoldCase(text);
    Programmes found;
    for (const Schedule& schedule : m_channels) {
        for (const Programme& programme : schedule) {
            if (Contains(programme.title, folded) || Contains(programme.description, folded)) {
                found.push_back(&programme);
            }
        }
    }
    SortByStart(&found);
    return found;
}

}  // namespace guide
