#ifndef KPL_CLI_EPGBLOCK_H_
#define KPL_CLI_EPGBLOCK_H_

#include <stdint.h>

#include <optional>
#include <string>
#include <vector>

namespace kpl::cli {

// One record of an EPG list; a text that was null has no value.
struct EpgRecord {
    uint32_t head[2];
    std::optional<std::string> text[4];
    uint32_t tail[6];
};

// The records in the bytes of a structure parameter that have the form of an EPG list with at least
// one record, to the last byte. Nothing otherwise: whether a structure is a list, only the two
// programs know.
std::optional<std::vector<EpgRecord>> ReadEpgBlock(const std::string& bytes);

// The same block with each pointer of the sender that is not null replaced by 1: only those words
// differ between two processes that send the same list. Any other block comes back as it is.
std::string MaskPointers(const std::string& bytes);

// The element count in the bytes of a structure parameter that have the form of an array, to the
// last byte; the elements begin behind 8 bytes.
std::optional<int> ReadArrayCount(const std::string& bytes);

}  // namespace kpl::cli

#endif  // KPL_CLI_EPGBLOCK_H_
