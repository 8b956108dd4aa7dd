#include "ipc/AnnouncementBuffer.h"

#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "tests/support/LogCapture.h"

namespace {

using kpl::ipc::Announcement;
using kpl::ipc::AnnouncementBuffer;
using kpl::ipc::kAnnouncementMagic;
using kpl::test::LogCapture;
using Ids = std::vector<uint32_t>;

std::string Bytes(const Announcement& header) {
    return std::string(reinterpret_cast<const char*>(&header), sizeof(header));
}

std::string Good(uint32_t id, uint32_t length = 0) {
    return Bytes({kAnnouncementMagic, id, 0, length});
}

class AnnouncementBufferTest : public ::testing::Test {
protected:
    // What one read of these bytes does.
    std::optional<Announcement> Receive(const std::string& bytes) {
        char* const room = m_buffer.Room();
        EXPECT_LE(static_cast<int>(bytes.size()), m_buffer.RoomSize());
        memcpy(room, bytes.data(), bytes.size());
        return m_buffer.Next(static_cast<int>(bytes.size()));
    }

    // The ids of all announcements with the right magic that come out, as the accept steps would
    // take them.
    Ids Drain(const std::string& bytes) {
        Ids ids;
        std::optional<Announcement> next = Receive(bytes);
        int before = -1;
        for (;;) {
            if (next && next->magic == kAnnouncementMagic) {
                ids.push_back(next->id);
            }
            if (m_buffer.IsEmpty() || before == m_buffer.Pending()) {
                return ids;
            }
            before = m_buffer.Pending();
            next = m_buffer.Next(0);
        }
    }

    LogCapture m_quiet{LogCapture::Debug::Off};
    AnnouncementBuffer m_buffer;
};

TEST_F(AnnouncementBufferTest, IsEmptyAtFirstWithRoomForAllOfItsSize) {
    EXPECT_TRUE(m_buffer.IsEmpty());
    EXPECT_EQ(m_buffer.RoomSize(), 262144);
}

TEST_F(AnnouncementBufferTest, AnnouncementsComeOutInOrder) {
    EXPECT_EQ(Drain(Good(1) + Good(2) + Good(3)), (Ids{1, 2, 3}));
    EXPECT_TRUE(m_buffer.IsEmpty());
    EXPECT_EQ(m_buffer.RoomSize(), 262144);
}

TEST_F(AnnouncementBufferTest, ExtraDataIsSkipped) {
    EXPECT_EQ(Drain(Good(1, 8) + "12345678" + Good(2, 1) + "x" + Good(3)), (Ids{1, 2, 3}));
}

TEST_F(AnnouncementBufferTest, AWrongMagicComesOutAndIsConsumed) {
    const std::optional<Announcement> wrong = Receive(Bytes({1, 2, 3, 0}));
    ASSERT_TRUE(wrong);
    EXPECT_EQ(wrong->magic, 1U);
    EXPECT_TRUE(m_buffer.IsEmpty());
}

TEST_F(AnnouncementBufferTest, AWrongMagicsLengthSkipsNoAnnouncement) {
    EXPECT_EQ(Drain(Bytes({1, 2, 3, 16}) + Good(5)), (Ids{5}));
    EXPECT_EQ(Drain(Bytes({1, 2, 3, 0xffffffff}) + Good(6)), (Ids{6}));
    EXPECT_EQ(Drain("x" + Good(7)), (Ids{7}));
}

TEST_F(AnnouncementBufferTest, AHugeOrNegativeLengthSkipsNoAnnouncement) {
    for (const uint32_t length : {17U, 0x7fffffffU, 0x80000000U, 0xffffffffU, 0xfffffff0U}) {
        EXPECT_EQ(Drain(Good(5, length) + Good(6)), (Ids{6})) << length;
        m_buffer.Clear();
    }
}

TEST_F(AnnouncementBufferTest, ABeginningOfAnyLengthSkipsNoAnnouncement) {
    for (size_t size = 1; size < 16; ++size) {
        EXPECT_EQ(Drain(Good(5).substr(0, size) + Good(6) + Good(7)), (Ids{6, 7})) << size;
        m_buffer.Clear();
    }
}

TEST_F(AnnouncementBufferTest, AnIdThatReadsLikeTheMagicIsAnId) {
    EXPECT_EQ(Drain(Good(kAnnouncementMagic)), (Ids{kAnnouncementMagic}));
    EXPECT_EQ(Drain(Good(kAnnouncementMagic) + Good(6)), (Ids{kAnnouncementMagic, 6}));
}

TEST_F(AnnouncementBufferTest, AHeaderSplitAcrossTwoReadsIsNotPutTogether) {
    EXPECT_EQ(Drain(Good(5).substr(0, 8)), Ids{});
    EXPECT_EQ(Drain(Good(5).substr(8)), Ids{});
    EXPECT_EQ(Drain(Good(6)), (Ids{6}));
}

TEST_F(AnnouncementBufferTest, AStaleCountFindsNoAnnouncementASecondTime) {
    EXPECT_EQ(Drain(Good(1) + Good(2)), (Ids{1, 2}));
    EXPECT_EQ(Drain(Good(3, 64)), Ids{});
    for (uint32_t id = 4; id < 50; ++id) {
        EXPECT_EQ(Drain(Good(id)), (Ids{id}));
    }
}

TEST_F(AnnouncementBufferTest, AFullBufferIsEmptiedForTheNextRead) {
    EXPECT_EQ(Drain(std::string(262144, '\x20')), Ids{});
    EXPECT_FALSE(m_buffer.IsEmpty());
    EXPECT_EQ(m_buffer.RoomSize(), 0);
    EXPECT_EQ(Drain(Good(6)), (Ids{6}));
}

// Whatever count foreign bytes have left behind, a whole FIFO fits: else a read could end inside an
// announcement.
TEST_F(AnnouncementBufferTest, ForeignBytesLeaveRoomForAWholeFifo) {
    for (const size_t size : {262136U, 262144U - 65535U, 200000U}) {
        m_buffer.Clear();
        EXPECT_EQ(Drain(std::string(size, '\x20')), Ids{});
        (void)m_buffer.Room();
        EXPECT_GE(m_buffer.RoomSize(), 65536) << size;
    }
    EXPECT_EQ(Drain(Good(6)), (Ids{6}));
}

TEST_F(AnnouncementBufferTest, ClearForgetsEverything) {
    EXPECT_EQ(Drain(Good(5).substr(0, 8)), Ids{});
    m_buffer.Clear();
    EXPECT_TRUE(m_buffer.IsEmpty());
    EXPECT_EQ(m_buffer.RoomSize(), 262144);
    EXPECT_EQ(Drain(Good(6)), (Ids{6}));
}

// Reads at a parse offset, which the accept steps do not do, must not overrun the buffer either.
TEST_F(AnnouncementBufferTest, AnyBytesInAnyPiecesStayInsideTheBuffer) {
    std::mt19937 engine(4711);
    const auto random = [&engine] { return static_cast<uint32_t>(engine()); };
    for (int round = 0; round < 1000; ++round) {
        const uint32_t length = random() % 4 == 0 ? random() : random() % 300000;
        std::string bytes = random() % 2 == 0 ? Good(random(), length) : Bytes({1, 2, 3, length});
        bytes += std::string(random() % 200000, static_cast<char>(random() % 3 * 16));
        if (random() % 2 == 0) {
            bytes += Good(random());
        }
        (void)m_buffer.Room();
        const int fits = std::min(m_buffer.RoomSize(), static_cast<int>(bytes.size()));
        (void)Receive(bytes.substr(0, static_cast<size_t>(fits)));
        for (unsigned i = random() % 4; i > 0; --i) {
            (void)m_buffer.Next(0);
        }
        ASSERT_GE(m_buffer.RoomSize(), 0);
        ASSERT_LE(m_buffer.Pending(), 262144);
        ASSERT_GE(m_buffer.Pending(), 0);
    }
}

}  // namespace
