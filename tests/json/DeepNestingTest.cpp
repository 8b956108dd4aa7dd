// Trees of any depth are parsed, written and deleted in the same small piece of stack. Each test
// runs on a thread with a stack of its own making, which shows afterwards how far down it was used.
#include <gtest/gtest.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>

#include "kpl/json/JSON.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KPL_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KPL_SANITIZED 1
#endif

namespace {

constexpr size_t kStackSize = 2 * 1024 * 1024;  // the thread sanitizer wants half of it
constexpr unsigned char kPaint = 0xA5;

constexpr size_t kStackLimit = 32 * 1024;
#ifdef KPL_SANITIZED
constexpr size_t kDepth = 1000000;  // a sanitizer needs ten times the memory
#else
constexpr size_t kDepth = 10000000;
#endif

void* RunTask(void* task) {
    (*static_cast<const std::function<void()>*>(task))();
    return nullptr;
}

// Runs the task and returns how many bytes of stack were used, the thread's own needs included.
size_t StackOfThread(const std::function<void()>& task) {
    void* memory =
        mmap(nullptr, kStackSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    EXPECT_NE(memory, MAP_FAILED);
    memset(memory, kPaint, kStackSize);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    EXPECT_EQ(pthread_attr_setstack(&attributes, memory, kStackSize), 0);
    pthread_t thread{};
    EXPECT_EQ(
        pthread_create(&thread, &attributes, RunTask, const_cast<std::function<void()>*>(&task)),
        0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    const auto* stack = static_cast<const unsigned char*>(memory);
    const auto* used =
        std::find_if(stack, stack + kStackSize, [](unsigned char byte) { return byte != kPaint; });
    const auto size = static_cast<size_t>(stack + kStackSize - used);
    munmap(memory, kStackSize);
    return size;
}

// How many bytes of stack the task itself needs.
size_t StackUsedBy(const std::function<void()>& task) {
    const size_t idle = StackOfThread([] {});
    return StackOfThread(task) - idle;
}

std::string Repeat(const std::string& text, size_t count) {
    std::string all;
    all.reserve(text.size() * count);
    for (size_t i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

// Parses, writes and deletes the text, which is in the form that it is written in.
void ExpectRoundTrip(const std::string& text) {
    const size_t used = StackUsedBy([&text] {
        std::unique_ptr<JSONValue> value(JSON::Parse(text.c_str()));
        ASSERT_NE(value, nullptr);
        EXPECT_TRUE(value->Stringify() == text);  // not EXPECT_EQ, which would print both
        value.reset();
    });
    EXPECT_LT(used, kStackLimit);
    printf("%zu bytes of stack\n", used);
}

TEST(DeepNestingTest, ArraysTenMillionDeepAreReadWrittenAndDeleted) {
    ExpectRoundTrip(std::string(kDepth, '[') + std::string(kDepth, ']'));
}

TEST(DeepNestingTest, ObjectsAreReadWrittenAndDeletedAtAnyDepth) {
    const size_t depth = kDepth / 5;
    ExpectRoundTrip(Repeat("{\"a\":", depth) + "null" + std::string(depth, '}'));
}

TEST(DeepNestingTest, MixedContainersWithNeighboursAreReadWrittenAndDeletedAtAnyDepth) {
    const size_t depth = kDepth / 20;
    ExpectRoundTrip(Repeat("[1,{\"a\":true,\"b\":", depth) + "[]" +
                    Repeat(",\"c\":\"d\"},2]", depth));
}

TEST(DeepNestingTest, ATextThatEndsTenMillionDeepIsRefused) {
    const std::string arrays(kDepth, '[');
    const std::string objects = Repeat("{\"a\":[", kDepth / 10);
    const size_t used = StackUsedBy([&] {
        EXPECT_EQ(JSON::Parse(arrays.c_str()), nullptr);
        EXPECT_EQ(JSON::Parse(objects.c_str()), nullptr);
    });
    EXPECT_LT(used, kStackLimit);
}

TEST(DeepNestingTest, WhatAUserBuildsIsWrittenAndDeletedAtAnyDepth) {
    const size_t used = StackUsedBy([] {
        auto* value = new JSONValue("the bottom");
        for (size_t i = 0; i < kDepth / 40; ++i) {
            value = new JSONValue(JSONArray{new JSONValue(1), value, new JSONValue("text")});
            value = new JSONValue(JSONObject{{"a", new JSONValue()}, {"b", value}, {"c", nullptr}});
            value = new JSONValue(JSONArray{value});
            value = new JSONValue(JSONObject{{"d", value}});
        }
        EXPECT_EQ(value->Stringify().substr(0, 32), R"({"d":[{"a":null,"b":[1,{"d":[{"a)");
        delete value;
    });
    EXPECT_LT(used, kStackLimit);
    printf("%zu bytes of stack\n", used);
}

}  // namespace
