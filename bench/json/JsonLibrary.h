#ifndef KPL_BENCH_JSON_JSONLIBRARY_H_
#define KPL_BENCH_JSON_JSONLIBRARY_H_

#include <stddef.h>

#include <memory>
#include <string>

namespace kpl::bench {

// What a tree holds, counted by walking through it: two libraries that have read the same text
// agree.
struct Content {
    size_t values = 0;
    size_t characters = 0;  // of all strings and keys
    double sum = 0;         // of all numbers

    // Each byte is a character but those that go on with one in UTF-8: one library keeps "\u00e9"
    // as one byte, another as two.
    void AddText(const char* text, size_t size) {
        for (size_t i = 0; i < size; ++i) {
            characters += (static_cast<unsigned char>(text[i]) & 0xC0) != 0x80 ? 1 : 0;
        }
    }
};

// A library that reads and writes JSON, as a contender.
class JsonLibrary {
public:
    virtual ~JsonLibrary() = default;

    virtual const char* Name() const = 0;

    // Makes a tree of the text and destroys it.
    virtual void ParseAndDestroy(const std::string& text) = 0;

    // Keeps the text's tree for what follows; or destroys the one that is kept.
    virtual void Keep(const std::string& text) = 0;
    virtual void Drop() = 0;
    virtual Content Kept() const = 0;

    // Writes the kept tree into a new text of the library's usual kind; returns its size.
    virtual size_t Write() = 0;
    virtual std::string Written() = 0;
};

std::unique_ptr<JsonLibrary> OurJson();
std::unique_ptr<JsonLibrary> NlohmannJson();
std::unique_ptr<JsonLibrary> JsonCppJson();
std::unique_ptr<JsonLibrary> RapidJson();

}  // namespace kpl::bench

#endif  // KPL_BENCH_JSON_JSONLIBRARY_H_
