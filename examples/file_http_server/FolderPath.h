#ifndef KPL_EXAMPLES_FILE_HTTP_SERVER_FOLDERPATH_H_
#define KPL_EXAMPLES_FILE_HTTP_SERVER_FOLDERPATH_H_

#include <string>
#include <string_view>

namespace file_http {

// A file of the folder, open for reading, or the status that says why there is none.
struct FolderFile {
    int status = 0;       // 200, 400, 403, 404, 500
    int descriptor = -1;  // the caller closes it
    long long size = 0;
    std::string path;
};

// The path that a request's target names: without its query, with its %XX decoded and "." and ".."
// resolved, as "/a/b". Returns 200; 400 if it is not well formed, 403 if it leads above "/".
int DecodeTarget(std::string_view target, std::string* path);

// Opens what `target` names in `folder`, an absolute path without symbolic links; for a folder, the
// "index.html" in it. A symbolic link that leads out of the folder counts as a file that is not
// there. Whoever may write to the folder is trusted not to exchange its directories meanwhile.
FolderFile OpenInFolder(const std::string& folder, std::string_view target);

}  // namespace file_http

#endif  // KPL_EXAMPLES_FILE_HTTP_SERVER_FOLDERPATH_H_
