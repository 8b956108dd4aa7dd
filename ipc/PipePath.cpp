#include "kpl/ipc/PipePath.h"

#include <stdio.h>
#include <string.h>

#include <string>

#include "ipc/PathLimit.h"

namespace kpl::ipc {

namespace {

std::string pipeRootPath("/tmp");

bool AreArgumentsValid(const char* name, const char* buf, int size) {
    return name != nullptr && name[0] != '\0' && buf != nullptr && size >= 1;
}

bool BuildConnectionPath(const char* name, const char* side, int id, char* buf, int size) {
    if (!AreArgumentsValid(name, buf, size) || id < 0) {
        return false;
    }
    const auto room = static_cast<size_t>(size);
    memset(buf, 0, room);
    snprintf(buf, room, "%s/%s%s%d", pipeRootPath.c_str(), name, side, id);
    return true;
}

}  // namespace

void SetPipeRootPath(const char* path) {
    if (path != nullptr && path[0] != '\0') {
        pipeRootPath = path;
    }
}

bool GetPipeServerRootPath(const char* name, char* buf, int size) {
    if (!AreArgumentsValid(name, buf, size)) {
        return false;
    }
    const auto room = static_cast<size_t>(size);
    memset(buf, 0, room);
    snprintf(buf, room, "%s/%sRoot", pipeRootPath.c_str(), name);
    return true;
}

bool GetPipeServerPath(const char* name, int id, char* buf, int size) {
    return BuildConnectionPath(name, "Server", id, buf, size);
}

bool GetPipeClientPath(const char* name, int id, char* buf, int size) {
    return BuildConnectionPath(name, "Client", id, buf, size);
}

bool PathsFit(const char* serverName) {
    constexpr size_t kLongestSuffix = sizeof("/Server2147483647");  // with the NUL
    return pipeRootPath.size() + strlen(serverName) + kLongestSuffix <= size_t{kPathSize};
}

}  // namespace kpl::ipc
