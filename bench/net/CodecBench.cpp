// Our codecs beside those of nettle, GLib and OpenSSL, on 1 MB and on 64 bytes. Both take turns on
// one core, round by round; printed are the medians for one message, and how many times faster
// ours is. Our Base64 comes in a string of its own; its peer is measured without that string and
// with it.
//
//   codec_bench [rounds]
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "bench/net/Peers.h"
#include "bench/support/Machine.h"
#include "kpl/net/Base64.h"
#include "kpl/net/Md5.h"
#include "kpl/net/Rc4.h"
#include "kpl/net/Sha1.h"

namespace {

// Works on one message; the result is some byte that depends on the work.
using Task = std::function<size_t()>;

constexpr size_t kBytesPerTurn = 1 << 20;

volatile size_t sink = 0;

double Microseconds(const Task& task, size_t messages) {
    timespec begin{};
    timespec end{};
    size_t sum = 0;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &begin);
    for (size_t i = 0; i < messages; ++i) {
        sum += task();
    }
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &end);
    sink = sink + sum;
    return (static_cast<double>(end.tv_sec - begin.tv_sec) * 1e6 +
            static_cast<double>(end.tv_nsec - begin.tv_nsec) / 1e3) /
           static_cast<double>(messages);
}

double Median(std::vector<double> times) {
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

class Bench {
public:
    Bench(size_t length, int rounds)
        : m_length(length), m_rounds(rounds), m_data(length), m_out(length * 2 + 4) {
        srand(1);
        for (unsigned char& byte : m_data) {
            byte = static_cast<unsigned char>(rand());  // NOLINT: the same bytes in every run
        }
    }

    void Run() {
        Md5();
        Rc4();
        Sha1();
        Base64();
    }

private:
    unsigned int Length() const { return static_cast<unsigned int>(m_length); }

    void Measure(const char* what, const char* peerName, const Task& ours, const Task& peer) {
        const size_t messages = std::max<size_t>(kBytesPerTurn / m_length, 1);
        std::vector<double> times[2];
        for (int round = 0; round <= m_rounds; ++round) {
            const double now[] = {Microseconds(ours, messages), Microseconds(peer, messages)};
            for (int i = 0; i < 2 && round > 0; ++i) {  // the first round only warms up
                times[i].push_back(now[i]);
            }
        }
        const double our = Median(times[0]);
        const double other = Median(times[1]);
        printf("%-15s %8zu %12.4f us %12.4f us   %6.0f MB/s %6.2f   %s\n", what, m_length, our,
               other, static_cast<double>(m_length) / our, other / our, peerName);
    }

    void Md5() {
        Measure(
            "MD5", "nettle",
            [&] {
                md5(m_out.data(), m_data.data(), Length() * 8);
                return size_t{m_out[0]};
            },
            [&] {
                kpl::bench::NettleMd5(m_out.data(), m_data.data(), m_length);
                return size_t{m_out[0]};
            });
    }

    void Rc4() {
        unsigned char key[] = "sixteen letters!";
        rc4_state state;
        rc4_init(&state, key, 16);
        kpl::bench::NettleRc4 peer(key, 16);
        Measure(
            "RC4", "nettle",
            [&] {
                rc4_crypt(&state, m_data.data(), m_out.data(), static_cast<int>(m_length));
                return size_t{m_out[0]};
            },
            [&] {
                peer.Crypt(m_data.data(), m_out.data(), m_length);
                return size_t{m_out[0]};
            });
    }

    void Sha1() {
        kpl::bench::GlibSha1 peer;
        Measure(
            "SHA-1", "GLib",
            [&] {
                SHA1Context ctx;
                SHA1Reset(&ctx);
                SHA1Input(&ctx, m_data.data(), Length());
                SHA1Result(&ctx);
                return size_t{ctx.digest[0]};
            },
            [&] {
                peer.Hash(m_out.data(), m_data.data(), m_length);
                return size_t{m_out[0]};
            });
    }

    void Base64() {
        auto* const chars = reinterpret_cast<char*>(m_out.data());
        const Task encode = [&] { return base64_encode(m_data.data(), Length()).size(); };
        Measure("Base64, encode", "OpenSSL, into a buffer", encode,
                [&] { return kpl::bench::OpensslEncode(chars, m_data.data(), m_length); });
        Measure("Base64, encode", "OpenSSL, into a string", encode,
                [&] { return kpl::bench::OpensslEncodeToString(m_data.data(), m_length).size(); });
        const std::string text = base64_encode(m_data.data(), Length());
        const Task decode = [&] { return base64_decode(text).size(); };
        Measure("Base64, decode", "OpenSSL, into a buffer", decode,
                [&] { return kpl::bench::OpensslDecode(m_out.data(), text.data(), text.size()); });
        Measure("Base64, decode", "OpenSSL, into a string", decode,
                [&] { return kpl::bench::OpensslDecodeToString(text).size(); });
    }

    const size_t m_length;
    const int m_rounds;
    std::vector<unsigned char> m_data;
    std::vector<unsigned char> m_out;
};

}  // namespace

int main(int argc, char** argv) {
    const int rounds = std::max(argc > 1 ? atoi(argv[1]) : 101, 1);
    kpl::bench::StayOnOneCore();
    kpl::bench::PrintMachine();
    printf("%s; %d rounds on one core\n", kpl::bench::PeerVersions().c_str(), rounds);
    printf("%-15s %8s %15s %15s %13s %6s\n", "median", "bytes", "ours", "peer", "ours", "ratio");
    Bench(1 << 20, rounds).Run();
    Bench(64, rounds).Run();
    return 0;
}
