#include <openssl/evp.h>
#include <openssl/opensslv.h>
#include <openssl/provider.h>

#include <memory>

#include "bench/net/CodecPeers.h"

namespace kpl::bench::openssl {

std::string Version() {
    return OPENSSL_VERSION_TEXT;
}

namespace {

// Fetched and made once: to look for the algorithm takes longer than to hash a short message.
Codec Digest(const char* name) {
    const std::shared_ptr<EVP_MD> md(EVP_MD_fetch(nullptr, name, nullptr), EVP_MD_free);
    const std::shared_ptr<EVP_MD_CTX> ctx(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    return [md, ctx](unsigned char* out, const unsigned char* in, size_t length) {
        unsigned int size = 0;
        EVP_DigestInit_ex(ctx.get(), md.get(), nullptr);
        EVP_DigestUpdate(ctx.get(), in, length);
        EVP_DigestFinal_ex(ctx.get(), out, &size);
        return size_t{size};
    };
}

}  // namespace

Codec Md5() {
    return Digest("MD5");
}

Codec Sha1() {
    return Digest("SHA1");
}

// The provider stays loaded until the program ends.
Codec Rc4(const std::string& key) {
    OSSL_PROVIDER_load(nullptr, "legacy");
    OSSL_PROVIDER_load(nullptr, "default");
    const std::unique_ptr<EVP_CIPHER, decltype(&EVP_CIPHER_free)> rc4(
        EVP_CIPHER_fetch(nullptr, "RC4", nullptr), EVP_CIPHER_free);
    const std::shared_ptr<EVP_CIPHER_CTX> ctx(EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
    EVP_EncryptInit_ex(ctx.get(), rc4.get(), nullptr,
                       reinterpret_cast<const unsigned char*>(key.data()), nullptr);
    return [ctx](unsigned char* out, const unsigned char* in, size_t length) {
        int size = 0;
        EVP_EncryptUpdate(ctx.get(), out, &size, in, static_cast<int>(length));
        return static_cast<size_t>(size);
    };
}

size_t Base64Encode(unsigned char* out, const unsigned char* in, size_t length) {
    return static_cast<size_t>(EVP_EncodeBlock(out, in, static_cast<int>(length)));
}

// It counts a last group as three bytes, whatever its padding.
size_t Base64Decode(unsigned char* out, const unsigned char* in, size_t length) {
    const auto size = static_cast<size_t>(EVP_DecodeBlock(out, in, static_cast<int>(length)));
    return size - (in[length - 1] == '=') - (in[length - 2] == '=');
}

}  // namespace kpl::bench::openssl
