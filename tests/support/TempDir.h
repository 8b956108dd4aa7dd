#ifndef KPL_TESTS_SUPPORT_TEMPDIR_H_
#define KPL_TESTS_SUPPORT_TEMPDIR_H_

#include <string>
#include <vector>

namespace kpl::test {

// A fresh directory that is removed with its contents at the end.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& Path() const { return m_path; }
    const char* c_str() const { return m_path.c_str(); }

    // The names in it, sorted.
    std::vector<std::string> Entries() const;

private:
    std::string m_path;
};

}  // namespace kpl::test

#endif  // KPL_TESTS_SUPPORT_TEMPDIR_H_
