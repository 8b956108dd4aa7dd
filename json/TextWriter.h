#ifndef KPL_JSON_TEXTWRITER_H_
#define KPL_JSON_TEXTWRITER_H_

#include <stddef.h>

#include <memory>
#include <string>
#include <vector>

namespace kpl::json {

// Collects text in blocks that never move, the first of them its own; only the end of it all needs
// one string of the whole size.
class TextWriter {
public:
    TextWriter() = default;
    TextWriter(const TextWriter&) = delete;
    TextWriter& operator=(const TextWriter&) = delete;

    void WriteChar(char c) {
        *Room(1) = c;
        ++m_end;
    }
    // A few bytes.
    void WriteWord(const char* word, size_t size);
    void WriteNumber(double number);
    // The text as a JSON string, with its quotation marks.
    void WriteQuoted(const std::string& text);

    // Everything written so far.
    std::string Text() const;

private:
    static constexpr size_t kFirstBlock = 4096;
    static constexpr size_t kBlock = 32768;

    struct Block {
        std::unique_ptr<char[]> text;
        size_t size;
    };

    // Where the next bytes belong; `size` is at most kFirstBlock.
    char* Room(size_t size) {
        if (static_cast<size_t>(m_limit - m_end) < size) {
            AddBlock();
        }
        return m_end;
    }
    void AddBlock();

    char* m_begin = m_first;  // of the text in the last block
    char* m_end = m_first;
    char* m_limit = m_first + kFirstBlock;
    size_t m_firstSize = 0;       // of the text in m_first, once that is full
    std::vector<Block> m_blocks;  // those behind it
    char m_first[kFirstBlock];
};

}  // namespace kpl::json

#endif  // KPL_JSON_TEXTWRITER_H_
