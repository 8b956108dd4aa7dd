#include "bench/tools/SpdlogPeer.h"

#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <utility>

namespace kpl::bench {

std::string SpdlogPeer::Version() {
    return "spdlog " + std::to_string(SPDLOG_VER_MAJOR) + "." + std::to_string(SPDLOG_VER_MINOR) +
           "." + std::to_string(SPDLOG_VER_PATCH);
}

struct SpdlogPeer::Logger {
    std::shared_ptr<spdlog::logger> logger;
};

SpdlogPeer::SpdlogPeer(std::string path) : m_path(std::move(path)), m_logger(new Logger) {
    Truncate();
}

SpdlogPeer::~SpdlogPeer() {
    spdlog::drop("bench");
}

void SpdlogPeer::Truncate() {
    spdlog::drop("bench");
    m_logger->logger = spdlog::basic_logger_mt("bench", m_path, true);
    m_logger->logger->set_pattern("%v");
}

void SpdlogPeer::Step(int step, const char* of) {
    m_logger->logger->info("Bench::Run(): step {} of {}", step, of);
}

void SpdlogPeer::Flush() {
    m_logger->logger->flush();
}

}  // namespace kpl::bench
