// The client's half of the opening handshake.
#ifndef HANDSHAKE_OPENING_H_
#define HANDSHAKE_OPENING_H_

#include <random>
#include <string>

namespace handshake {

// A key as a browser makes one: some number times some spaces, with other characters and the spaces
// themselves strewn in, never at the ends.
std::string MakeKey(std::mt19937* random);

// One request, and the 16 bytes that only a server which understands it answers.
struct Opening {
    std::string request;
    std::string proof;
};
Opening MakeOpening(const std::string& host);

}  // namespace handshake

#endif  // HANDSHAKE_OPENING_H_
