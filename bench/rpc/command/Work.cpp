#include "bench/rpc/command/Work.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <deque>

namespace kpl::bench {

namespace {

constexpr size_t kProgrammes = 1000;

const char* const kWords[] = {"news", "film", "weather", "match", "evening", "documentary"};

// A text of 8 to about 50 characters, kept until the end.
const char* Text(size_t number) {
    static std::deque<std::string> texts;
    std::string text = std::to_string(10000000 + number);
    for (size_t i = 0; i < number % 7; ++i) {
        text += std::string(" ") + kWords[(number + i) % 6];
    }
    texts.push_back(text);
    return texts.back().c_str();
}

Guide MakeGuide() {
    Guide made;
    for (size_t i = 0; i < kProgrammes; ++i) {
        const auto word = static_cast<uint32_t>(i);
        made.push_back({{word, word * 3},
                        {Text(i), Text(i + 3), i % 2 == 0 ? Text(i * 5) : "", Text(i + 1)},
                        {word, word + 1, word + 2, word * 70000, 5, 6}});
    }
    return made;
}

[[noreturn]] void Fail(const std::string& contender) {
    fprintf(stderr, "%s: has not read what was written\n", contender.c_str());
    exit(1);
}

}  // namespace

Command command{7,    "SetReminder",         17, 0x80000005U, 1700000000123LL, 23.976,
                true, "news at half past 10"};
Guide guide = MakeGuide();

void CheckCommand(const std::string& contender, const Command& read) {
    if (read.id != command.id || read.channel != command.channel || read.flags != command.flags ||
        read.time != command.time || read.rate != command.rate || read.live != command.live ||
        read.function == nullptr || strcmp(read.function, command.function) != 0 ||
        read.title == nullptr || strcmp(read.title, command.title) != 0) {
        Fail(contender);
    }
}

uint64_t SumOfGuide() {
    uint64_t sum = 0;
    for (const Programme& programme : guide) {
        for (const uint32_t word : programme.head) {
            sum += word;
        }
        for (const char* text : programme.text) {
            sum += static_cast<unsigned char>(*text);
        }
        for (const uint32_t word : programme.tail) {
            sum += word;
        }
    }
    return sum;
}

void CheckGuide(const std::string& contender, uint64_t sum) {
    if (sum != SumOfGuide()) {
        Fail(contender);
    }
}

}  // namespace kpl::bench
