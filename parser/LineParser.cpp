#include "kpl/parser/LineParser.h"

#include <limits.h>
#include <string.h>

#include <memory>
#include <new>
#include <string>
#include <utility>

#include "kpl/io/CFile.h"
#include "kpl/tools/DebugLog.h"

namespace kpl::parser {

namespace {

using tools::DumpDbgMsg;

// Reads until `size` bytes or no more come; returns how many.
unsigned int ReadUpTo(io::CFile* file, char* buffer, unsigned int size) {
    unsigned int count = 0;
    while (count < size) {
        const int read = file->Read(reinterpret_cast<unsigned char*>(buffer) + count, size - count);
        if (read < 1) {
            break;
        }
        count += static_cast<unsigned int>(read);
    }
    return count;
}

}  // namespace

LineParser::LineParser() : m_buffer(nullptr), m_bufferSize(0) {}

LineParser::~LineParser() {
    ReleaseBuffer();
}

// A length can be what a server claims: memory that cannot be had is a failure like any other.
bool LineParser::AllocateBuffer(unsigned int length) {
    if (length == UINT_MAX) {
        return false;
    }
    m_buffer = new (std::nothrow) char[static_cast<size_t>(length) + 1];
    m_bufferSize = m_buffer != nullptr ? length + 1 : 0;
    return m_buffer != nullptr;
}

bool LineParser::SetContent(const char* text, unsigned int length) {
    if (text == nullptr || length == 0) {
        return false;
    }
    // Until it is copied, the text may be a line in the buffer.
    const std::unique_ptr<char[]> oldBuffer(std::exchange(m_buffer, nullptr));
    ReleaseBuffer();
    if (!AllocateBuffer(length)) {
        return false;
    }
    strncpy(m_buffer, text, length);
    m_buffer[length] = '\0';
    return Parse(m_buffer, m_bufferSize);
}

bool LineParser::SetContent(const char* path) {
    if (path == nullptr || *path == '\0') {
        return false;
    }
    const std::string newPath(path);  // it may be a line in the buffer
    ReleaseBuffer();
    m_path = newPath;
    io::CFile file;
    if (!file.Open(m_path.c_str())) {
        return false;
    }
    const int fileSize = file.GetFileSize();
    const unsigned int size = fileSize > 0 ? static_cast<unsigned int>(fileSize) : 0;
    if (!AllocateBuffer(size)) {
        return false;
    }
    DumpDbgMsg("LineParser::SetContent(): iFileSize=%d\n", fileSize);
    const unsigned int count = ReadUpTo(&file, m_buffer, size);
    m_buffer[count] = '\0';
    DumpDbgMsg("LineParser::SetContent(): %s(%s)\n", m_path.c_str(), m_buffer);
    return size > 0 && count == size && Parse(m_buffer, m_bufferSize);
}

void LineParser::AddLine(char* line) {
    if (*line != '\0') {
        m_lines.push_back(line);
    }
}

bool LineParser::Parse(char* text, unsigned int size) {
    if (text == nullptr || size == 0) {
        return false;
    }
    char* line = text;
    for (char* end = strchr(line, '\n'); end != nullptr; end = strchr(line, '\n')) {
        *end = '\0';
        if (end != line && end[-1] == '\r') {
            end[-1] = '\0';
        }
        AddLine(line);
        line = end + 1;
    }
    AddLine(line);
    return !m_lines.empty();
}

char* LineParser::operator[](unsigned int index) {
    return index < m_lines.size() ? m_lines[index] : nullptr;
}

void LineParser::ReleaseBuffer() {
    delete[] m_buffer;
    m_buffer = nullptr;
    m_bufferSize = 0;
    m_lines.clear();
}

}  // namespace kpl::parser
