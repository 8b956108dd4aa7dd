#include "bench/json/Documents.h"

#include <stdint.h>

namespace kpl::bench {

namespace {

constexpr size_t kSize = 1000000;

// A small generator of our own, so that every platform makes the same texts.
class Dice {
public:
    unsigned Below(unsigned limit) {
        m_state = m_state * 6364136223846793005U + 1442695040888963407U;
        return static_cast<unsigned>(m_state >> 33) % limit;
    }

    template <unsigned kCount>
    const char* Pick(const char* const (&from)[kCount]) {
        return from[Below(kCount)];
    }

private:
    uint64_t m_state = 20240501;
};

const char* const kWords[] = {"evening", "news",  "the",     "film",   "of",       "a",
                              "country", "match", "weather", "report", "children", "and",
                              "live",    "music", "from",    "studio", "history",  "world"};
const char* const kGenres[] = {"drama", "sport", "news", "documentary", "kids", "music"};

std::string Sentence(Dice* dice, unsigned words) {
    std::string text = dice->Pick(kWords);
    while (--words > 0) {
        text += ' ';
        text += dice->Pick(kWords);
    }
    return text;
}

std::string Genres(Dice* dice) {
    std::string text = "[";
    for (unsigned i = dice->Below(3); i > 0; --i) {
        text += '"';
        text += dice->Pick(kGenres);
        text += "\",";
    }
    return text + "\"tv\"]";
}

std::string Programme(Dice* dice, unsigned id) {
    return "{\"id\": " + std::to_string(id) + ", \"title\": \"" +
           Sentence(dice, 2 + dice->Below(4)) +
           "\", \"start\": " + std::to_string(1700000000U + id * 1800U) +
           ", \"duration\": " + std::to_string(5 + dice->Below(180)) + ", \"description\": \"" +
           Sentence(dice, 8 + dice->Below(20)) + ".\", \"genres\": " + Genres(dice) +
           ", \"live\": " + (dice->Below(4) == 0 ? "true" : "false") +
           ", \"rating\": " + std::to_string(dice->Below(10)) + "." +
           std::to_string(dice->Below(10)) + ", \"series\": null, \"image\": \"img-" +
           std::to_string(dice->Below(100000)) + ".jpg\"}";
}

std::string Digits(Dice* dice, unsigned count) {
    std::string text;
    while (count-- > 0) {
        text += static_cast<char>('0' + dice->Below(10));
    }
    return text;
}

std::string Number(Dice* dice) {
    std::string text = dice->Below(4) == 0 ? "-" : "";
    text += static_cast<char>('1' + dice->Below(9)) + Digits(dice, dice->Below(7));
    const unsigned kind = dice->Below(8);
    if (kind > 2) {
        text += '.' + Digits(dice, 1 + dice->Below(8));
    }
    if (kind == 7) {
        text += (dice->Below(2) == 0 ? "e-" : "e") + std::to_string(1 + dice->Below(12));
    }
    return text;
}

std::string EscapedString(Dice* dice) {
    static const char* const escapes[] = {"\\n", "\\\"",    "\\\\",   "\\t",
                                          "\\/", "\\u0041", "\\u00e9"};
    std::string text;
    for (unsigned left = 20 + dice->Below(181); left > 0; --left) {
        if (dice->Below(10) == 0) {
            text += dice->Pick(escapes);
        } else {
            text += static_cast<char>('a' + dice->Below(26));
        }
    }
    return text;
}

}  // namespace

std::string ProgrammeGuide(size_t size) {
    Dice dice;
    std::string text = "{\"version\": 3, \"channels\": [";
    unsigned programme = 0;
    for (unsigned channel = 1; text.size() < size; ++channel) {
        text += channel == 1 ? "\n" : ",\n";
        text += "{\"channel\": " + std::to_string(channel) + ", \"name\": \"Channel " +
                std::to_string(channel) + "\", \"programmes\": [\n";
        for (int i = 0; i < 30 && (i == 0 || text.size() < size); ++i) {
            text += (i == 0 ? "  " : ",\n  ") + Programme(&dice, programme++);
        }
        text += "]}";
    }
    return text + "]}\n";
}

std::string Numbers() {
    Dice dice;
    std::string text = "[";
    while (text.size() < kSize) {
        text += text.size() == 1 ? "[" : ",\n[";
        for (int i = 0; i < 50; ++i) {
            text += (i == 0 ? "" : ", ") + Number(&dice);
        }
        text += ']';
    }
    return text + "]\n";
}

std::string EscapedStrings() {
    Dice dice;
    std::string text = "[";
    while (text.size() < kSize) {
        text += (text.size() == 1 ? "\"" : ",\n\"") + EscapedString(&dice) + '"';
    }
    return text + "]\n";
}

}  // namespace kpl::bench
