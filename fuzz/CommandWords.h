// What a command says, in words that two readers can compare.
#ifndef KPL_FUZZ_COMMANDWORDS_H_
#define KPL_FUZZ_COMMANDWORDS_H_

#include <algorithm>
#include <string>

#include "kpl/rpc/RpcCommandDemuxer.h"

namespace kpl::fuzz {

inline std::string CommandWords(const rpc::RpcCommandDemuxer& command) {
    std::string words = std::to_string(command.GetCommandType()) + " " +
                        std::to_string(command.GetId()) + " " + std::to_string(command.GetSize()) +
                        " " + std::to_string(command.GetCommandCounts());
    const int last = std::min(command.GetCommandCounts(), 16);
    for (int i = 0; i < last; ++i) {
        int length = 0;
        const char* const bytes = command.GetBytes(i, &length);
        words += " " + std::to_string(command.GetParamType(i)) + ":";
        words.append(bytes != nullptr ? bytes : "", static_cast<size_t>(length));
    }
    return words;
}

}  // namespace kpl::fuzz

#endif  // KPL_FUZZ_COMMANDWORDS_H_
