#include "Views.h"

#include <algorithm>

#include "Table.h"
#include "Utf8.h"

namespace guide {

namespace {

constexpr int kChannelWidth = 17;
constexpr int kBarWidth = 8;

std::string Age(const Programme& programme) {
    return programme.age > 0 ? std::to_string(programme.age) + "+" : "";
}

std::string Span(const Programme& programme) {
    return FormatTime(programme.start) + "–" + FormatTime(programme.end);
}

std::string NextText(const Programme* next) {
    return next != nullptr ? FormatTime(next->start) + " " + next->title : "";
}

// `first` is what is on; without that, what is next.
void AddNowRow(Table* table, const Programme& first, const Programme* next, GuideTime now) {
    const std::string number = std::to_string(first.channel);
    if (first.start <= now) {
        table->AddRow({number, first.channelName, first.title, Age(first), Span(first),
                       ProgressBar(first, now), NextText(next)});
    } else {
        table->AddRow({number, first.channelName, "–", "", "", "", NextText(&first)});
    }
}

}  // namespace

std::string ChannelTable(const std::vector<Channel>& channels) {
    Table table;
    table.AddColumn("No", 3, Table::Align::Right);
    table.AddColumn("Channel", 40);
    for (const Channel& channel : channels) {
        table.AddRow({std::to_string(channel.number), channel.name});
    }
    return table.ToString();
}

std::string NowTable(const std::vector<Programme>& programmes, GuideTime now) {
    Table table;
    table.AddColumn("No", 3, Table::Align::Right);
    table.AddColumn("Channel", kChannelWidth);
    table.AddColumn("On now", 26);
    table.AddColumn("Age", 3, Table::Align::Right);
    table.AddColumn("Time", 11);
    table.AddColumn("So far", kBarWidth);
    table.AddColumn("Next", 20);
    for (size_t i = 0; i < programmes.size(); ++i) {
        const Programme& first = programmes[i];
        const bool hasNext = first.start <= now && i + 1 < programmes.size() &&
                             programmes[i + 1].channel == first.channel;
        AddNowRow(&table, first, hasNext ? &programmes[i + 1] : nullptr, now);
        i += hasNext ? 1 : 0;
    }
    return table.ToString();
}

std::string DayTable(const std::vector<Programme>& programmes) {
    Table table;
    table.AddColumn("Time", 11);
    table.AddColumn("Age", 3, Table::Align::Right);
    table.AddColumn("Genre", 13);
    table.AddColumn("Programme", 28);
    table.AddColumn("What it is about", 37);
    for (const Programme& programme : programmes) {
        table.AddRow({Span(programme), Age(programme), programme.genre, programme.title,
                      programme.description});
    }
    return table.ToString();
}

std::string FoundTable(const GuideConnection::Programmes& found) {
    Table table;
    table.AddColumn("Start", 9);
    table.AddColumn("Channel", kChannelWidth);
    table.AddColumn("Age", 3, Table::Align::Right);
    table.AddColumn("Genre", 13);
    table.AddColumn("Programme", 50);
    for (const Programme& programme : found.programmes) {
        table.AddRow({FormatDayTime(programme.start), programme.channelName, Age(programme),
                      programme.genre, programme.title});
    }
    const int more = found.total - static_cast<int>(found.programmes.size());
    return table.ToString() + (more > 0 ? "… and " + std::to_string(more) + " more\n" : "");
}

std::string StartLine(const Programme& programme) {
    const int blanks = kChannelWidth - DisplayWidth(programme.channelName);
    std::string line = FormatTime(programme.start) + "  " + programme.channelName +
                       std::string(static_cast<size_t>(std::max(blanks, 0)), ' ') + "  " +
                       programme.title;
    line += programme.genre.empty() ? "" : ", " + programme.genre;
    line += programme.age > 0 ? ", " + Age(programme) : "";
    return line + "\n";
}

std::string ProgressBar(const Programme& programme, GuideTime now) {
    const GuideTime whole = std::max(programme.end - programme.start, 1LL);
    const GuideTime over = std::clamp(now - programme.start, 0LL, whole);
    const auto filled = static_cast<int>(over * kBarWidth / whole);
    std::string bar;
    for (int i = 0; i < kBarWidth; ++i) {
        bar += i < filled ? "█" : "░";
    }
    return bar;
}

}  // namespace guide
