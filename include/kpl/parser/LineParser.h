#ifndef KPL_PARSER_LINEPARSER_H_
#define KPL_PARSER_LINEPARSER_H_

#include <string>
#include <vector>

#include "kpl/Export.h"

namespace kpl::parser {

// Splits a text into its non-empty lines. A line ends at a line feed; one carriage return before it
// goes too. The lines lie in one buffer that the parser owns and are valid until the next
// SetContent, ReleaseBuffer or the end of the parser. A text ends at its first zero byte. One
// thread at a time.
class KPL_EXPORT LineParser {
public:
    LineParser();
    ~LineParser();
    LineParser(const LineParser&) = delete;
    LineParser& operator=(const LineParser&) = delete;

    // Replaces the content by a copy of `length` bytes of `text`. False when there is no line in
    // it; null and length 0 leave the content as it was.
    bool SetContent(const char* text, unsigned int length);

    // Replaces the content by that of a file, read through io::CFile: a local path, or an http://
    // or https:// address. False when it cannot be opened or not be read to the end, when its
    // length is 0 or not known, and when there is no line in it. Null and the empty path leave all
    // as it was.
    bool SetContent(const char* path);

    // Splits `text`, which ends with a NUL and stays the caller's, in place, and adds its lines to
    // those there are. False for null and size 0 (`size` means nothing else), and when there is no
    // line, earlier ones included.
    bool Parse(char* text, unsigned int size);

    // The line at `index`, from 0; null behind the last one.
    char* operator[](unsigned int index);

    // Forgets the lines and frees the buffer.
    void ReleaseBuffer();

private:
    bool AllocateBuffer(unsigned int length);
    void AddLine(char* line);

    char* m_buffer;
    unsigned int m_bufferSize;
    std::vector<char*> m_lines;
    std::string m_path;
};

}  // namespace kpl::parser

#endif  // KPL_PARSER_LINEPARSER_H_
