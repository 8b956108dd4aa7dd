#include <glib.h>

#include <memory>

#include "bench/net/CodecPeers.h"

namespace kpl::bench::glib {

std::string Version() {
    return "GLib " + std::to_string(glib_major_version) + "." + std::to_string(glib_minor_version) +
           "." + std::to_string(glib_micro_version);
}

namespace {

Codec Checksum(GChecksumType type) {
    const std::shared_ptr<GChecksum> checksum(g_checksum_new(type), g_checksum_free);
    return [checksum, type](unsigned char* out, const unsigned char* in, size_t length) {
        auto size = static_cast<gsize>(g_checksum_type_get_length(type));
        g_checksum_reset(checksum.get());
        g_checksum_update(checksum.get(), in, static_cast<gssize>(length));
        g_checksum_get_digest(checksum.get(), out, &size);
        return size;
    };
}

}  // namespace

Codec Md5() {
    return Checksum(G_CHECKSUM_MD5);
}

Codec Sha1() {
    return Checksum(G_CHECKSUM_SHA1);
}

size_t Base64Encode(unsigned char* out, const unsigned char* in, size_t length) {
    auto* const text = reinterpret_cast<gchar*>(out);
    gint state = 0;
    gint save = 0;
    const gsize size = g_base64_encode_step(in, length, FALSE, text, &state, &save);
    return size + g_base64_encode_close(FALSE, text + size, &state, &save);
}

size_t Base64Decode(unsigned char* out, const unsigned char* in, size_t length) {
    gint state = 0;
    guint save = 0;
    return g_base64_decode_step(reinterpret_cast<const gchar*>(in), length, out, &state, &save);
}

}  // namespace kpl::bench::glib
