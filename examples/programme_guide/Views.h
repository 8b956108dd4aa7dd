// How the client shows what it was told: as text for a terminal, at most 100 columns wide.
#ifndef KPL_EXAMPLES_PROGRAMME_GUIDE_VIEWS_H_
#define KPL_EXAMPLES_PROGRAMME_GUIDE_VIEWS_H_

#include <string>
#include <vector>

#include "Guide.h"
#include "GuideConnection.h"

namespace guide {

std::string ChannelTable(const std::vector<Channel>& channels);

// What is on, how far it has got, and what comes next. `programmes` come by channel.
std::string NowTable(const std::vector<Programme>& programmes, GuideTime now);

// One channel's programmes.
std::string DayTable(const std::vector<Programme>& programmes);

// Programmes of all channels and days; `total` says how many would have been found.
std::string FoundTable(const GuideConnection::Programmes& found);

// One line: a programme that has just started.
std::string StartLine(const Programme& programme);

// How much of the programme is over, as a bar.
std::string ProgressBar(const Programme& programme, GuideTime now);

}  // namespace guide

#endif  // KPL_EXAMPLES_PROGRAMME_GUIDE_VIEWS_H_
