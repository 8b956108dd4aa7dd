#ifndef KPL_BENCH_TOOLS_SPDLOGPEER_H_
#define KPL_BENCH_TOOLS_SPDLOGPEER_H_

#include <memory>
#include <string>

namespace kpl::bench {

// spdlog's synchronous logger into one file, with the text of a message and nothing before it.
// Apart because its headers take long to compile.
class SpdlogPeer {
public:
    static std::string Version();

    explicit SpdlogPeer(std::string path);
    ~SpdlogPeer();

    // Begins the file anew.
    void Truncate();
    void Step(int step, const char* of);
    void Flush();

private:
    struct Logger;
    const std::string m_path;
    std::unique_ptr<Logger> m_logger;
};

}  // namespace kpl::bench

#endif  // KPL_BENCH_TOOLS_SPDLOGPEER_H_
