#include "kpl/rpc/RpcArray.h"

#include <limits.h>
#include <string.h>

#include "kpl/rpc/RpcCommandFormat.h"

namespace kpl::rpc {

using namespace detail;

namespace {

constexpr int kArraySizeOffset = 4;
constexpr int kArrayHeaderSize = 8;

}  // namespace

RpcArray::RpcArray(void* data, int elementCount, int totalSize)
    : m_data(data), m_elementCount(elementCount), m_totalSize(totalSize) {}

int RpcArray::Convert(char* buf, int len) const {
    if (buf == nullptr || len <= 0 || m_totalSize < 0 ||
        int64_t{len} < int64_t{m_totalSize} + kArrayHeaderSize) {
        return 0;
    }
    if (m_totalSize > 0) {
        if (m_data == nullptr) {
            return 0;
        }
        // The block first, and moved: it may be a received one in this very buffer.
        memmove(buf + kArrayHeaderSize, m_data, static_cast<size_t>(m_totalSize));
    }
    StoreInt(buf, m_elementCount);
    StoreInt(buf + kArraySizeOffset, m_totalSize);
    return m_totalSize + kArrayHeaderSize;
}

int RpcArray::Retrieve(char* buf, int len) {
    if (buf == nullptr || len < kArrayHeaderSize) {
        return 0;
    }
    m_elementCount = LoadInt(buf);
    m_totalSize = LoadInt(buf + kArraySizeOffset);
    if (m_totalSize < 0 || m_totalSize > len - kArrayHeaderSize) {
        return 0;
    }
    m_data = buf + kArrayHeaderSize;
    return m_totalSize + kArrayHeaderSize;
}

int RpcArray::GetHeaderSize() const {
    return kArrayHeaderSize;
}

int RpcArray::GetSize() const {
    // A refused Retrieve may have left any total size behind.
    return m_totalSize > INT_MAX - kArrayHeaderSize ? INT_MAX : m_totalSize + kArrayHeaderSize;
}

bool operator==(const RpcArray& left, const RpcArray& right) {
    return left.GetData() == right.GetData() &&
           left.GetElementCounts() == right.GetElementCounts() &&
           left.GetTotalSizeInBytes() == right.GetTotalSizeInBytes();
}

}  // namespace kpl::rpc
