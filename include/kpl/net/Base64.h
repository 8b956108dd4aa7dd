// Base64 with the alphabet of RFC 4648 and "=" as padding. At global scope. Any thread, once the
// library's static objects exist.
#ifndef KPL_NET_BASE64_H_
#define KPL_NET_BASE64_H_

#include <string>

#include "kpl/Export.h"

// `length` bytes as text: four characters for every three bytes, the last group filled up with one
// or two "=", no line breaks. Nothing of `data` is read when `length` is 0.
KPL_EXPORT std::string base64_encode(const unsigned char* data, unsigned int length);

// The bytes that `text` stands for. Decoding ends without a complaint at the end, at the first "="
// and at the first character outside the alphabet, white space included; what was decoded so far is
// returned. Four characters give three bytes, a last group of three gives two, of two gives one,
// and of one gives nothing.
KPL_EXPORT std::string base64_decode(const std::string& text);

#endif  // KPL_NET_BASE64_H_
