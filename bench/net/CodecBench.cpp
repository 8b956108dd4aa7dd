// Our codecs beside those of nettle, OpenSSL and GLib, on 16 KiB and on 64 bytes. A result that is
// not ours ends the program.
//
//   codec_bench [rounds]
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "bench/net/CodecPeers.h"
#include "bench/support/Contest.h"
#include "bench/support/Machine.h"
#include "kpl/net/Base64.h"
#include "kpl/net/Md5.h"
#include "kpl/net/Rc4.h"
#include "kpl/net/Sha1.h"

namespace {

using kpl::bench::Codec;
using kpl::bench::Contest;
using kpl::bench::Keep;
using kpl::bench::NsPerRun;
namespace glib = kpl::bench::glib;
namespace nettle = kpl::bench::nettle;
namespace openssl = kpl::bench::openssl;

// One work on one message. How much is counted is that of the data: of Base64, what it stands for.
class Match {
public:
    Match(std::string work, const std::string& in, size_t counted)
        : m_contest(work, "MB/s"),
          m_work(std::move(work)),
          m_in(in),
          m_counted(counted),
          m_out(in.size() * 2 + 64) {}

    // `codec` is a Codec or a function like one; or it gives the result in a string of its own.
    template <typename AnyCodec>
    void Add(const std::string& name, AnyCodec codec) {
        if constexpr (std::is_invocable_v<AnyCodec, unsigned char*, const unsigned char*, size_t>) {
            const auto run = [this, codec] { return codec(m_out.data(), In(), m_in.size()); };
            const size_t size = run();
            Check(name, {reinterpret_cast<const char*>(m_out.data()), size});
            AddRun(name, run);
        } else {
            Check(name, codec(In(), m_in.size()));
            AddRun(name, [this, codec] { return codec(In(), m_in.size()).size(); });
        }
    }

    // The least that could be done: as many bytes as there are, from one place to another.
    void Run(int rounds) {
        AddRun("raw: memcpy", [this] {
            memcpy(m_out.data(), m_in.data(), m_counted);
            return m_counted;
        });
        m_contest.Run(rounds);
    }

private:
    const unsigned char* In() const { return reinterpret_cast<const unsigned char*>(m_in.data()); }

    // The first one added is ours.
    void Check(const std::string& name, const std::string& result) {
        if (m_expected.empty()) {
            m_expected = result;
        }
        if (result != m_expected || result.empty()) {
            fprintf(stderr, "codec_bench: %s: the result of %s is another one\n", m_work.c_str(),
                    name.c_str());
            exit(1);
        }
    }

    template <typename Run>
    void AddRun(const std::string& name, Run run) {
        auto ns = NsPerRun([this, run]() mutable {
            Keep(run());
            Keep(m_out.data());
        });
        m_contest.Add(name,
                      [this, ns]() mutable { return static_cast<double>(m_counted) / ns() * 1e3; });
    }

    Contest m_contest;
    const std::string m_work;
    const std::string& m_in;
    const size_t m_counted;
    std::vector<unsigned char> m_out;
    std::string m_expected;
};

size_t OurMd5(unsigned char* out, const unsigned char* in, size_t length) {
    md5(out, in, static_cast<unsigned int>(length * 8));
    return 16;
}

size_t OurSha1(unsigned char* out, const unsigned char* in, size_t length) {
    SHA1Context ctx;
    SHA1Reset(&ctx);
    SHA1Input(&ctx, in, static_cast<unsigned int>(length));
    SHA1Result(&ctx);
    for (size_t i = 0; i < 20; ++i) {
        out[i] = static_cast<unsigned char>(ctx.digest[i / 4] >> (24 - 8 * (i % 4)));
    }
    return 20;
}

Codec OurRc4(std::string key) {
    rc4_state state;
    rc4_init(&state, reinterpret_cast<unsigned char*>(key.data()), static_cast<int>(key.size()));
    return [state](unsigned char* out, const unsigned char* in, size_t length) mutable {
        rc4_crypt(&state, in, out, static_cast<int>(length));
        return length;
    };
}

std::string OurBase64Encode(const unsigned char* in, size_t length) {
    return base64_encode(in, static_cast<unsigned int>(length));
}

// `room` is enough for the result.
template <typename AnyCodec>
auto IntoString(AnyCodec codec, size_t room) {
    return [codec, room](const unsigned char* in, size_t length) {
        std::string out(room, '\0');
        out.resize(codec(reinterpret_cast<unsigned char*>(out.data()), in, length));
        return out;
    };
}

class Bench {
public:
    Bench(size_t length, std::string suffix, int rounds)
        : m_rounds(rounds), m_suffix(std::move(suffix)), m_data(length, '\0') {
        srand(1);
        for (char& byte : m_data) {
            byte = static_cast<char>(rand());  // NOLINT: the same bytes in every run
        }
    }

    void Run() const {
        Digests("MD5", OurMd5, nettle::Md5(), openssl::Md5(), glib::Md5());
        Rc4();
        Digests("SHA-1", OurSha1, nettle::Sha1(), openssl::Sha1(), glib::Sha1());
        Base64Encode();
        Base64Decode();
    }

private:
    Match On(const char* work, const std::string& in) const {
        return {work + m_suffix, in, m_data.size()};
    }

    void Digests(const char* work, const Codec& ours, const Codec& byNettle, const Codec& byOpenssl,
                 const Codec& byGlib) const {
        Match match = On(work, m_data);
        match.Add("ours", ours);
        match.Add("nettle", byNettle);
        match.Add("OpenSSL", byOpenssl);
        match.Add("GLib", byGlib);
        match.Run(m_rounds);
    }

    void Rc4() const {
        const std::string key = "sixteen letters!";
        Match match = On("RC4", m_data);
        match.Add("ours", OurRc4(key));
        match.Add("nettle", nettle::Rc4(key));
        match.Add("OpenSSL", openssl::Rc4(key));
        match.Run(m_rounds);
    }

    // Ours comes in a string of its own. The peers write into a buffer that is there already; for
    // what that string costs, OpenSSL is measured with it too, also the NUL that it writes behind.
    void Base64Encode() const {
        Match match = On("Base64 encode", m_data);
        match.Add("ours", OurBase64Encode);
        match.Add("nettle", nettle::Base64Encode);
        match.Add("OpenSSL", openssl::Base64Encode);
        match.Add("OpenSSL, into a string",
                  IntoString(openssl::Base64Encode, m_data.size() / 3 * 4 + 5));
        match.Add("GLib", glib::Base64Encode);
        match.Run(m_rounds);
    }

    void Base64Decode() const {
        const std::string text =
            OurBase64Encode(reinterpret_cast<const unsigned char*>(m_data.data()), m_data.size());
        Match match = On("Base64 decode", text);
        match.Add("ours", [&text](const unsigned char*, size_t) { return base64_decode(text); });
        match.Add("nettle", nettle::Base64Decode);
        match.Add("OpenSSL", openssl::Base64Decode);
        match.Add("OpenSSL, into a string", IntoString(openssl::Base64Decode, text.size() / 4 * 3));
        match.Add("GLib", glib::Base64Decode);
        match.Run(m_rounds);
    }

    const int m_rounds;
    const std::string m_suffix;
    std::string m_data;
};

}  // namespace

int main(int argc, char** argv) {
    const int rounds = std::max(argc > 1 ? atoi(argv[1]) : 15, 1);
    kpl::bench::StayOnOneCore();
    fprintf(stderr, "%s, %s, %s\n", nettle::Version().c_str(), openssl::Version().c_str(),
            glib::Version().c_str());
    Bench(16384, "", rounds).Run();
    Bench(64, ", 64 bytes", rounds).Run();
    return 0;
}
