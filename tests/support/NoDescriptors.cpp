#include "tests/support/NoDescriptors.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

namespace kpl::test {

NoDescriptors::NoDescriptors() : m_before(0) {
    rlimit limit{};
    (void)getrlimit(RLIMIT_NOFILE, &limit);
    m_before = limit.rlim_cur;
    // The lowest free number; all above may hold some, which stay open.
    const int next = dup(STDERR_FILENO);
    close(next);
    limit.rlim_cur = static_cast<rlim_t>(next);
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

NoDescriptors::~NoDescriptors() {
    rlimit limit{};
    (void)getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = static_cast<rlim_t>(m_before);
    (void)setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace kpl::test
