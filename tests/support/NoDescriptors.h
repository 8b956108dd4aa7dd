#ifndef KPL_TESTS_SUPPORT_NODESCRIPTORS_H_
#define KPL_TESTS_SUPPORT_NODESCRIPTORS_H_

#include <stdint.h>

namespace kpl::test {

// Leaves the process no descriptor for its lifetime, but those that exist.
class NoDescriptors {
public:
    NoDescriptors();
    ~NoDescriptors();
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

private:
    uint64_t m_before;
};

}  // namespace kpl::test

#endif  // KPL_TESTS_SUPPORT_NODESCRIPTORS_H_
