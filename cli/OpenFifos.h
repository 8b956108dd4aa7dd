#ifndef KPL_CLI_OPENFIFOS_H_
#define KPL_CLI_OPENFIFOS_H_

#include <sys/stat.h>
#include <sys/types.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace kpl::cli {

// A process that has a FIFO open.
struct FifoUser {
    pid_t pid;
    std::string program;
    bool reads;
    bool writes;
};

// Who has which FIFO open, as /proc shows it: processes of the same user, for root all. Looking
// there touches no FIFO, so no server notices.
class OpenFifos {
public:
    // What is open at this moment.
    static OpenFifos Look();

    // By process id.
    std::vector<FifoUser> UsersOf(const struct stat& fifo) const;

private:
    using File = std::pair<dev_t, ino_t>;

    void LookInto(pid_t pid);

    std::map<File, std::map<pid_t, FifoUser>> m_users;
};

}  // namespace kpl::cli

#endif  // KPL_CLI_OPENFIFOS_H_
