// The announcements of tests/golden, as a server reads them.
#include <gtest/gtest.h>
#include <string.h>

#include "ipc/AnnouncementBuffer.h"
#include "tests/support/GoldenBytes.h"

namespace {

using kpl::ipc::AnnouncementBuffer;
using kpl::ipc::kAnnouncementMagic;

TEST(GoldenAnnouncementsTest, BothAreRead) {
    const std::string bytes = kpl::test::GoldenBytes("announcements");
    AnnouncementBuffer buffer;
    memcpy(buffer.Room(), bytes.data(), bytes.size());
    const auto first = buffer.Next(static_cast<int>(bytes.size()));
    ASSERT_TRUE(first.has_value());
    EXPECT_EQ(first->magic, kAnnouncementMagic);
    EXPECT_EQ(first->id, 305419896U);
    const auto second = buffer.Next(0);
    ASSERT_TRUE(second.has_value());
    EXPECT_EQ(second->magic, kAnnouncementMagic);
    EXPECT_EQ(second->id, 0U);
    EXPECT_EQ(second->length, 5U);
    EXPECT_TRUE(buffer.IsEmpty());
}

}  // namespace
