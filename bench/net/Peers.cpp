#include "bench/net/Peers.h"

#include <glib.h>
#include <nettle/arcfour.h>
#include <nettle/md5.h>
#include <nettle/version.h>
#include <openssl/evp.h>
#include <openssl/opensslv.h>

namespace kpl::bench {

std::string PeerVersions() {
    return "nettle " + std::to_string(NETTLE_VERSION_MAJOR) + "." +
           std::to_string(NETTLE_VERSION_MINOR) + ", GLib " + std::to_string(glib_major_version) +
           "." + std::to_string(glib_minor_version) + "." + std::to_string(glib_micro_version) +
           ", " OPENSSL_VERSION_TEXT;
}

void NettleMd5(unsigned char* hash, const unsigned char* data, size_t length) {
    md5_ctx ctx;
    md5_init(&ctx);
    md5_update(&ctx, length, data);
    md5_digest(&ctx, MD5_DIGEST_SIZE, hash);
}

struct NettleRc4::State {
    arcfour_ctx ctx;
};

NettleRc4::NettleRc4(const unsigned char* key, size_t length) : m_state(new State) {
    arcfour_set_key(&m_state->ctx, length, key);
}

NettleRc4::~NettleRc4() = default;

void NettleRc4::Crypt(const unsigned char* in, unsigned char* out, size_t length) {
    arcfour_crypt(&m_state->ctx, length, out, in);
}

struct GlibSha1::State {
    GChecksum* checksum;
};

GlibSha1::GlibSha1() : m_state(new State{g_checksum_new(G_CHECKSUM_SHA1)}) {}

GlibSha1::~GlibSha1() {
    g_checksum_free(m_state->checksum);
}

void GlibSha1::Hash(unsigned char* hash, const unsigned char* data, size_t length) {
    gsize size = 20;
    g_checksum_reset(m_state->checksum);
    g_checksum_update(m_state->checksum, data, static_cast<gssize>(length));
    g_checksum_get_digest(m_state->checksum, hash, &size);
}

size_t OpensslEncode(char* text, const unsigned char* data, size_t length) {
    return static_cast<size_t>(
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text), data, static_cast<int>(length)));
}

size_t OpensslDecode(unsigned char* data, const char* text, size_t length) {
    return static_cast<size_t>(EVP_DecodeBlock(data, reinterpret_cast<const unsigned char*>(text),
                                               static_cast<int>(length)));
}

std::string OpensslEncodeToString(const unsigned char* data, size_t length) {
    std::string text((length + 2) / 3 * 4 + 1, '\0');  // it writes a NUL behind
    text.resize(OpensslEncode(text.data(), data, length));
    return text;
}

std::string OpensslDecodeToString(const std::string& text) {
    std::string data(text.size() / 4 * 3, '\0');
    auto* const out = reinterpret_cast<unsigned char*>(data.data());
    const size_t padding = text.size() - (text.find_last_not_of('=') + 1);
    data.resize(OpensslDecode(out, text.data(), text.size()) - padding);
    return data;
}

}  // namespace kpl::bench
