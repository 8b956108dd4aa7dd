#include "kpl/ipc/PipePath.h"

#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <string>

namespace {

using kpl::ipc::GetPipeClientPath;
using kpl::ipc::GetPipeServerPath;
using kpl::ipc::GetPipeServerRootPath;
using kpl::ipc::SetPipeRootPath;

// Before any test sets another directory.
const std::string rootPathAtLoad = [] {
    char buf[64] = {};
    (void)GetPipeServerRootPath("Foo", buf, sizeof(buf));
    return std::string(buf);
}();

class PipePathTest : public ::testing::Test {
protected:
    void SetUp() override { memset(m_buf, 'x', sizeof(m_buf)); }

    bool IsUntouched() const {
        return std::all_of(std::begin(m_buf), std::end(m_buf), [](char c) { return c == 'x'; });
    }

    char m_buf[64];
};

TEST_F(PipePathTest, TheRootDirectoryIsTmpUntilItIsSet) {
    EXPECT_EQ(rootPathAtLoad, "/tmp/FooRoot");
}

TEST_F(PipePathTest, ThePathsOfAServerAndItsConnection) {
    SetPipeRootPath("/run/pipes");
    ASSERT_TRUE(GetPipeServerRootPath("Foo", m_buf, sizeof(m_buf)));
    EXPECT_STREQ(m_buf, "/run/pipes/FooRoot");
    ASSERT_TRUE(GetPipeServerPath("Foo", 17, m_buf, sizeof(m_buf)));
    EXPECT_STREQ(m_buf, "/run/pipes/FooServer17");
    ASSERT_TRUE(GetPipeClientPath("Foo", 17, m_buf, sizeof(m_buf)));
    EXPECT_STREQ(m_buf, "/run/pipes/FooClient17");
    ASSERT_TRUE(GetPipeClientPath("Foo", 0, m_buf, sizeof(m_buf)));
    EXPECT_STREQ(m_buf, "/run/pipes/FooClient0");
    ASSERT_TRUE(GetPipeServerPath("Foo", 2147483647, m_buf, sizeof(m_buf)));
    EXPECT_STREQ(m_buf, "/run/pipes/FooServer2147483647");
}

TEST_F(PipePathTest, ANullOrEmptyRootDirectoryIsIgnored) {
    SetPipeRootPath("/run/pipes");
    SetPipeRootPath(nullptr);
    SetPipeRootPath("");
    ASSERT_TRUE(GetPipeServerRootPath("Foo", m_buf, sizeof(m_buf)));
    EXPECT_STREQ(m_buf, "/run/pipes/FooRoot");
}

TEST_F(PipePathTest, ANullOrEmptyNameMakesEveryBuilderFail) {
    for (const char* name : {static_cast<const char*>(nullptr), ""}) {
        EXPECT_FALSE(GetPipeServerRootPath(name, m_buf, sizeof(m_buf)));
        EXPECT_FALSE(GetPipeServerPath(name, 1, m_buf, sizeof(m_buf)));
        EXPECT_FALSE(GetPipeClientPath(name, 1, m_buf, sizeof(m_buf)));
    }
    EXPECT_TRUE(IsUntouched());
}

TEST_F(PipePathTest, ANegativeIdMakesTheServerAndTheClientBuilderFail) {
    EXPECT_FALSE(GetPipeServerPath("Foo", -1, m_buf, sizeof(m_buf)));
    EXPECT_FALSE(GetPipeClientPath("Foo", -1, m_buf, sizeof(m_buf)));
    EXPECT_TRUE(IsUntouched());
}

TEST_F(PipePathTest, ANullBufferOrASizeBelowOneMakesEveryBuilderFail) {
    EXPECT_FALSE(GetPipeServerRootPath("Foo", nullptr, 64));
    EXPECT_FALSE(GetPipeServerPath("Foo", 1, nullptr, 64));
    EXPECT_FALSE(GetPipeClientPath("Foo", 1, nullptr, 64));
    for (const int size : {0, -1}) {
        EXPECT_FALSE(GetPipeServerRootPath("Foo", m_buf, size));
        EXPECT_FALSE(GetPipeServerPath("Foo", 1, m_buf, size));
        EXPECT_FALSE(GetPipeClientPath("Foo", 1, m_buf, size));
    }
    EXPECT_TRUE(IsUntouched());
}

TEST_F(PipePathTest, ABufferOfOneByteYieldsAnEmptyStringAndTrue) {
    EXPECT_TRUE(GetPipeServerRootPath("Foo", m_buf, 1));
    EXPECT_EQ(m_buf[0], '\0');
    m_buf[0] = 'x';
    EXPECT_TRUE(GetPipeServerPath("Foo", 1, m_buf, 1));
    EXPECT_EQ(m_buf[0], '\0');
    m_buf[0] = 'x';
    EXPECT_TRUE(GetPipeClientPath("Foo", 1, m_buf, 1));
    EXPECT_EQ(m_buf[0], '\0');
    EXPECT_EQ(m_buf[1], 'x');
}

TEST_F(PipePathTest, APathThatDoesNotFitIsCutOffAndReportedAsBuilt) {
    SetPipeRootPath("/run/pipes");
    EXPECT_TRUE(GetPipeServerPath("Foo", 17, m_buf, 12));
    EXPECT_STREQ(m_buf, "/run/pipes/");
    EXPECT_EQ(m_buf[12], 'x');
}

TEST_F(PipePathTest, TheRestOfTheBufferIsZero) {
    SetPipeRootPath("/run/pipes");
    ASSERT_TRUE(GetPipeServerRootPath("Foo", m_buf, 40));
    const size_t length = strlen(m_buf);
    EXPECT_TRUE(std::all_of(m_buf + length, m_buf + 40, [](char c) { return c == '\0'; }));
    EXPECT_EQ(m_buf[40], 'x');
}

}  // namespace
