#ifndef KPL_EXAMPLES_FILE_HTTP_SERVER_FILERESPONSE_H_
#define KPL_EXAMPLES_FILE_HTTP_SERVER_FILERESPONSE_H_

#include <string>

#include "FolderPath.h"
#include "HttpRequest.h"
#include "HttpResponse.h"

namespace file_http {

// Answers requests with the files of a folder: a head first, then, unless only that was asked for,
// the file's bytes.
class FileResponse : public HttpResponse {
public:
    // See OpenInFolder. Outlives this object.
    explicit FileResponse(const std::string& folder);
    ~FileResponse() override;
    FileResponse(const FileResponse&) = delete;
    FileResponse& operator=(const FileResponse&) = delete;

    int Execute(kpl::com::IUnknown* request) override;
    bool IsResponseReady() override;
    bool HasResponseData() override;
    int ReadResponse(char* buffer, int size) override;
    void EndResponse() override;

    // Something is left at the end of a file that has become shorter than the head said.
    long long BytesLeft() const override;

private:
    void Begin(const HttpRequest& request);
    void CloseFile();

    const std::string& m_folder;
    std::string m_head;  // with the text of an error behind it
    FolderFile m_file;
    long long m_left = 0;  // of the file
};

}  // namespace file_http

#endif  // KPL_EXAMPLES_FILE_HTTP_SERVER_FILERESPONSE_H_
