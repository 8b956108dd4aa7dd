// A list of programme-guide records, and its way to one block of bytes and back. Through a command
// it travels as one parameter: Push and Get take it directly.
#ifndef KPL_RPC_EPGDATALIST_H_
#define KPL_RPC_EPGDATALIST_H_

#include <stddef.h>
#include <stdint.h>

#include "kpl/Export.h"
#include "kpl/rpc/RpcParam.h"
#include "kpl/rpc/WordPointer.h"

// A pointer to a text in one 32-bit word; the text is not owned. Like every word pointer it means
// something only in the process that assigned it. Uninitialised unless it is given a value.
class __attribute__((packed)) EpgText {
public:
    EpgText() = default;

    // IsLost() when the pointer cannot be kept; null stays null.
    EpgText(const char* text) : m_word(kpl::rpc::WordPointer::Pack(text)) {}

    // The text, or null.
    operator const char*() const {
        return static_cast<const char*>(kpl::rpc::WordPointer::Unpack(m_word));
    }

    // True when there is a text and its pointer could not be kept. Such a list is not serialised.
    bool IsLost() const { return m_word != 0 && static_cast<const char*>(*this) == nullptr; }

private:
    uint32_t m_word;
};

// One record. It is packed because records are used in place, wherever they happen to start in a
// received command; so no plain pointer or reference to a number inside it can be had.
struct __attribute__((packed)) EpgData {
    uint32_t head[2];  // carried verbatim
    EpgText text[4];   // each may be null
    uint32_t tail[6];  // carried verbatim
};

static_assert(sizeof(EpgText) == 4, "a text takes one word of the record");
static_assert(sizeof(EpgData) == 48 && alignof(EpgData) == 1, "records are used in place");
static_assert(offsetof(EpgData, head) == 0 && offsetof(EpgData, text) == 8 &&
                  offsetof(EpgData, tail) == 24,
              "the record's words lie where every other port expects them");

// Records that lie one behind the other.
struct EpgDataList {
    int count = 0;             // number of records
    EpgData* items = nullptr;  // the records, not owned
};

// How long that block is.
struct KPL_EXPORT GetSizeEpgDataList {
    // The size of the block in bytes: 8 + 48 * count + the texts with their terminators. Without
    // records (count below 1, or items null) no text is counted. 0 if a text is lost or the sum is
    // outside the range of int.
    static int GetSize(const EpgDataList& list);
};

// A list as a block of bytes.
struct KPL_EXPORT ConvertEpgDataList {
    // Writes the block to `buf` and returns its size. Records or texts may lie in the `len` bytes
    // of `buf`, as those of a received list do: the block is then made elsewhere, which allocates.
    // Returns 0 and writes nothing if `buf` is null, `len` is too small, the count is negative,
    // GetSize gives 0, or that memory cannot be had. With a positive count and items null, the size
    // is returned and only the first 8 bytes are written.
    static int ConvertToBytes(EpgDataList& list, char* buf, int len);
};

// A block of bytes as a list.
struct KPL_EXPORT RetrieveEpgDataList {
    // Rebuilds the list over the block in `buf`, in place: the records' text words are replaced by
    // pointers into `buf`, so `buf` must be writable and outlive the list. Returns the bytes
    // consumed. A list without records gives 8 and keeps the sender's word in items: treat it as
    // empty. Returns 0 if the block ends too early, or if a pointer could not be kept; the list is
    // then half-filled. `len` must cover every record that the block announces: only room for one
    // is checked here. For bytes from another process use RpcCommandDemuxer::Get<EpgDataList>,
    // which checks all of them.
    static int RetrieveFromBytes(EpgDataList& list, char* buf, int len);
};

template <>
struct kpl::rpc::ParamTypeTrait<EpgDataList> : ParamTypeMapping<RPC_PARAM_STRUCT, EpgDataList> {};

#endif  // KPL_RPC_EPGDATALIST_H_
