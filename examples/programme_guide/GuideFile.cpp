#include "GuideFile.h"

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <fstream>
#include <utility>
#include <vector>

#include "ParseInt.h"
#include "Utf8.h"

namespace guide {

namespace {

constexpr size_t kColumns = 7;

std::vector<std::string> Split(const std::string& line) {
    std::vector<std::string> cells;
    size_t begin = 0;
    size_t tab = 0;
    while ((tab = line.find('\t', begin)) != std::string::npos) {
        cells.push_back(line.substr(begin, tab - begin));
        begin = tab + 1;
    }
    cells.push_back(line.substr(begin));
    return cells;
}

// Controls would reach the terminals of those who read the guide.
bool HasControl(const std::string& line) {
    return std::any_of(line.begin(), line.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return (byte < 0x20 && c != '\t') || byte == 0x7F;
    });
}

// What is wrong with the line as a text; empty if nothing is.
std::string FaultOfText(const std::string& line) {
    if (line.size() > kMaxLineSize) {
        return "longer than " + std::to_string(kMaxLineSize) + " bytes";
    }
    if (!IsUtf8(line)) {
        return "not UTF-8";
    }
    return HasControl(line) ? "a control character" : "";
}

// Fills `programme` from the columns of a line, all but the channel's number. Returns what is wrong
// with them; empty if nothing is.
std::string Parse(const std::vector<std::string>& cells, Programme* programme) {
    if (cells.size() != kColumns) {
        return std::to_string(kColumns) + " columns expected, " + std::to_string(cells.size()) +
               " found";
    }
    const std::optional<GuideTime> start = ParseTime(cells[1]);
    const std::optional<int> minutes = ParseInt(cells[2], 1, 1440);
    const std::optional<int> age = ParseInt(cells[4], 0, 18);
    if (cells[0].empty() || cells[0].size() > kMaxChannelNameSize) {
        return "the channel's name is empty or longer than " + std::to_string(kMaxChannelNameSize) +
               " bytes";
    }
    if (!start) {
        return "'" + cells[1] + "' is no time (YYYY-MM-DD HH:MM)";
    }
    if (!minutes) {
        return "'" + cells[2] + "' is no number of minutes (1 to 1440)";
    }
    if (!age) {
        return "'" + cells[4] + "' is no age (0 to 18)";
    }
    if (cells[5].empty()) {
        return "no title";
    }
    *programme = {0,    cells[0], *start,   *start + *minutes * kMinute,
                  *age, cells[3], cells[5], cells[6]};
    return "";
}

// Adds what the line says. Returns what is wrong with it; empty if nothing is.
std::string AddLine(const std::string& line, Guide* guide) {
    std::string fault = FaultOfText(line);
    if (!fault.empty() || line.empty() || line[0] == '#') {
        return fault;
    }
    Programme programme;
    fault = Parse(Split(line), &programme);
    if (!fault.empty()) {
        return fault;
    }
    const std::string title = programme.title;
    if (!guide->Add(std::move(programme))) {
        return "'" + title + "' starts before the channel's last programme has ended";
    }
    return guide->ChannelCount() > kMaxChannels
               ? "more than " + std::to_string(kMaxChannels) + " channels"
               : "";
}

std::string Located(const std::string& fault, const std::string& name, int line) {
    return name + ":" + std::to_string(line) + ": " + fault;
}

std::optional<Guide> Unreadable(const std::string& path, std::string* error) {
    *error = "cannot read guide file '" + path + "': " + strerror(errno);
    return std::nullopt;
}

}  // namespace

std::optional<Guide> LoadGuide(const std::string& path, std::string* error) {
    std::ifstream in(path);
    return in ? ReadGuide(in, path, error) : Unreadable(path, error);
}

std::optional<Guide> ReadGuide(std::istream& in, const std::string& name, std::string* error) {
    Guide guide;
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        const std::string fault = AddLine(line, &guide);
        if (!fault.empty()) {
            *error = Located(fault, name, number);
            return std::nullopt;
        }
    }
    if (in.bad()) {
        return Unreadable(name, error);  // a directory, for one
    }
    if (guide.ProgrammeCount() == 0) {
        *error = name + ": no programmes";
        return std::nullopt;
    }
    return guide;
}

}  // namespace guide
