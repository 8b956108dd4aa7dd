// The answer of the WebSocket opening handshake that came before RFC 6455: two key headers and an
// 8-byte body (draft-ietf-hybi-thewebsocketprotocol-00). At global scope. Any thread.
#ifndef KPL_NET_WEBSOCKETHANDSHAKE_H_
#define KPL_NET_WEBSOCKETHANDSHAKE_H_

#include "kpl/Export.h"

// Writes the 16 bytes that answer a request to `answer`: not text, and without a NUL behind them.
// `key1` and `key2` are the values of the headers Sec-WebSocket-Key1 and Sec-WebSocket-Key2, `key3`
// points to the 8 bytes of the body. Returns 16; -1 if a pointer is null or `answerSize` is below
// 16, and then leaves `answer` alone.
KPL_EXPORT int md5_getWebSocketHandshakeAnswer(const char* key1, const char* key2, const char* key3,
                                               char* answer, unsigned int answerSize);

// The number hidden in one key: the number that its first 14 digits make, 4294967295 at most,
// divided by the count of its spaces; 0 without digits and 0 without spaces. Only the first 256
// characters count. A request is to be refused when a key has no space, or spaces that do not
// divide its number; neither function says so.
KPL_EXPORT unsigned int doStuffToObtainAnInt32(const char* key);

#endif  // KPL_NET_WEBSOCKETHANDSHAKE_H_
