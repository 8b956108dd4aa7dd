#ifndef KPL_RPC_RPCARRAY_H_
#define KPL_RPC_RPCARRAY_H_

#include "kpl/Export.h"
#include "kpl/rpc/RpcParam.h"

namespace kpl::rpc {

// Describes a block of elements that travels as one parameter: the element count, the size of the
// block in bytes, then the bytes themselves. It never owns the block.
// One thread at a time.
class KPL_EXPORT RpcArray {
public:
    // No block, no elements, no bytes.
    RpcArray() = default;

    // `totalSize` is the size of the whole block in bytes. Nothing is checked here; Convert refuses
    // a negative size, and a null block that is not empty.
    RpcArray(void* data, int elementCount, int totalSize);

    // Describes the same block.
    RpcArray(const RpcArray& other) = default;
    RpcArray& operator=(const RpcArray& other) = default;

    // Writes the serialised form to `buf`. Returns the bytes written, GetSize(); 0, with nothing
    // written, if `buf` is null or `len` too small, or the description is not usable.
    int Convert(char* buf, int len) const;

    // Describes the serialised form in `buf`, in place: GetData() points into `buf`, at no
    // particular alignment, and `buf` must outlive the array. Returns the bytes consumed; 0 if
    // `buf` is null or too short, or if the block would not lie inside `len` bytes: count and size
    // are then overwritten all the same, and the block is not. The element count is the sender's
    // word; nothing relates it to the size.
    int Retrieve(char* buf, int len);

    // The bytes before the block: always 8.
    int GetHeaderSize() const;

    // Header and block together, in bytes. At most 2147483647.
    int GetSize() const;

    // Of the block, in bytes; and how many elements it has, by its maker's word.
    int GetTotalSizeInBytes() const { return m_totalSize; }
    int GetElementCounts() const { return m_elementCount; }

    // The block, or null.
    void* GetData() const { return m_data; }

private:
    void* m_data = nullptr;
    int m_elementCount = 0;
    int m_totalSize = 0;
};

// True when both describe the same block with the same count and size; contents are not compared.
KPL_EXPORT bool operator==(const RpcArray& left, const RpcArray& right);

template <>
struct ParamTypeTrait<RpcArray> : ParamTypeMapping<RPC_PARAM_STRUCT, RpcArray> {};

}  // namespace kpl::rpc

#endif  // KPL_RPC_RPCARRAY_H_
