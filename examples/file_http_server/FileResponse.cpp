#include "FileResponse.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "kpl/tools/StringTools.h"

namespace file_http {

namespace {

const char* TypeOf(const std::string& path) {
    static const struct {
        const char* extension;
        const char* type;
    } kTypes[] = {
        {".html", "text/html"},     {".txt", "text/plain"},        {".css", "text/css"},
        {".js", "text/javascript"}, {".json", "application/json"}, {".png", "image/png"},
        {".jpg", "image/jpeg"},     {".svg", "image/svg+xml"},     {".mp3", "audio/mpeg"},
        {".mp4", "video/mp4"},
    };
    for (const auto& entry : kTypes) {
        if (kpl::tools::IsFileExt(path.c_str(), entry.extension)) {
            return entry.type;
        }
    }
    return "application/octet-stream";
}

}  // namespace

FileResponse::FileResponse(const std::string& folder) : m_folder(folder) {}

FileResponse::~FileResponse() {
    CloseFile();
}

int FileResponse::Execute(kpl::com::IUnknown* request) {
    EndResponse();
    const auto& asked = *static_cast<HttpRequest*>(request);
    if (!asked.isIgnored) {
        Begin(asked);
    }
    return 0;
}

void FileResponse::Begin(const HttpRequest& request) {
    m_file.status = request.status;
    if (request.status == 200) {
        m_file = OpenInFolder(m_folder, request.target);
    }
    if (m_file.status == 200) {
        m_head = HeadOf(200, TypeOf(m_file.path), m_file.size, request.keepsConnection);
        m_left = request.isHead ? 0 : m_file.size;
        return;
    }
    const std::string text = std::string(ReasonOf(m_file.status)) + "\n";
    m_head = HeadOf(m_file.status, "text/plain", static_cast<long long>(text.size()),
                    request.keepsConnection);
    m_head += request.isHead ? "" : text;
}

bool FileResponse::IsResponseReady() {
    return true;
}

bool FileResponse::HasResponseData() {
    return !m_head.empty();
}

int FileResponse::ReadResponse(char* buffer, int size) {
    const size_t fromHead = std::min(m_head.size(), static_cast<size_t>(size));
    memcpy(buffer, m_head.data(), fromHead);
    m_head.erase(0, fromHead);
    const long long wanted =
        std::min(m_left, static_cast<long long>(size) - static_cast<long long>(fromHead));
    ssize_t count = 0;
    if (wanted > 0) {
        do {
            count = read(m_file.descriptor, buffer + fromHead, static_cast<size_t>(wanted));
        } while (count < 0 && errno == EINTR);
    }
    count = std::max<ssize_t>(count, 0);
    m_left -= count;
    return static_cast<int>(fromHead) + static_cast<int>(count);
}

void FileResponse::EndResponse() {
    CloseFile();
    m_file = FolderFile();
    m_head.clear();
    m_left = 0;
}

long long FileResponse::BytesLeft() const {
    return static_cast<long long>(m_head.size()) + m_left;
}

void FileResponse::CloseFile() {
    if (m_file.descriptor >= 0) {
        close(m_file.descriptor);
    }
    m_file.descriptor = -1;
}

}  // namespace file_http
