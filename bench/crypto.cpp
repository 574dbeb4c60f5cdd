// SPDX-License-Identifier: MIT
// Crypto and codecs, each beside its reference in the same run:
//   - crc32 over 64 KiB against zlib's crc32 (zlib is loaded with dlopen, since both libraries
//     export the same name);
//   - uB64_ntop and uB64_pton over 64 KiB against EVP_EncodeBlock and EVP_DecodeBlock;
//   - uAesEncrypt and uAesDecrypt over 1 MiB against EVP AES-256-CBC with a fresh context;
//   - uDigestSha256it, uDigestMD5 and uDigestHmacSha256it against EVP used directly, over 64
//     bytes and 64 KiB.
#include <platform_sim.h>
#include <platform_utils.h>

#include "support/times_reporter.hpp"

#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/params.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

const char *const kKeyHex = "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4";

Bytes randomBytes(std::size_t length) {
    std::mt19937 engine(17);
    Bytes out(length);
    for (auto &b : out) {
        b = static_cast<uint8_t>(engine());
    }
    return out;
}

const Bytes &data64k() {
    static const Bytes data = randomBytes(65536);
    return data;
}

const Bytes &data1m() {
    static const Bytes data = randomBytes(1 << 20);
    return data;
}

const Bytes &key() {
    static const Bytes bytes = [] {
        Bytes out;
        const std::string hex = kKeyHex;
        for (std::size_t i = 0; i < hex.size(); i += 2) {
            out.push_back(static_cast<uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
        }
        return out;
    }();
    return bytes;
}

// ---- CRC-32 ---------------------------------------------------------------------------

using ZlibCrc32 = unsigned long (*)(unsigned long, const unsigned char *, unsigned int);

ZlibCrc32 zlibCrc32() {
    static const ZlibCrc32 fn = [] {
        void *lib = dlopen("libz.so.1", RTLD_NOW | RTLD_LOCAL);
        return lib != nullptr ? reinterpret_cast<ZlibCrc32>(dlsym(lib, "crc32")) : nullptr;
    }();
    return fn;
}

void BM_Crc32_crc32(benchmark::State &state) {
    const Bytes &data = data64k();
    for (auto _ : state) {
        benchmark::DoNotOptimize(crc32(0, data.data(), static_cast<uint32_t>(data.size())));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data.size()));
}

void BM_Crc32_zlib(benchmark::State &state) {
    const ZlibCrc32 fn = zlibCrc32();
    if (fn == nullptr) {
        state.SkipWithError("libz.so.1 not found");
        return;
    }
    const Bytes &data = data64k();
    if (fn(0, data.data(), static_cast<unsigned>(data.size())) !=
        crc32(0, data.data(), static_cast<uint32_t>(data.size()))) {
        state.SkipWithError("results differ");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(fn(0, data.data(), static_cast<unsigned>(data.size())));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data.size()));
}
BENCHMARK(BM_Crc32_crc32);
BENCHMARK(BM_Crc32_zlib);

// ---- Base64 ---------------------------------------------------------------------------

const std::string &text64k() {
    static const std::string text = [] {
        std::string out(65536 / 3 * 4 + 8, '\0');
        const int n =
            uB64_ntop(data64k().data(), 65536, out.data(), static_cast<uint32_t>(out.size()));
        out.resize(static_cast<std::size_t>(n));
        return out;
    }();
    return text;
}

void BM_B64Encode_uB64_ntop(benchmark::State &state) {
    std::string out(text64k().size() + 1, '\0');
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            uB64_ntop(data64k().data(), 65536, out.data(), static_cast<uint32_t>(out.size())));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * 65536));
}

void BM_B64Encode_EVP_EncodeBlock(benchmark::State &state) {
    std::string out(text64k().size() + 1, '\0');
    for (auto _ : state) {
        benchmark::DoNotOptimize(EVP_EncodeBlock(reinterpret_cast<unsigned char *>(out.data()),
                                                 data64k().data(), 65536));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * 65536));
}

void BM_B64Decode_uB64_pton(benchmark::State &state) {
    Bytes out(65536 + 3);
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            uB64_pton(text64k().c_str(), out.data(), static_cast<uint32_t>(out.size())));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * 65536));
}

void BM_B64Decode_EVP_DecodeBlock(benchmark::State &state) {
    Bytes out(65536 + 3);
    const std::string &text = text64k();
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            EVP_DecodeBlock(out.data(), reinterpret_cast<const unsigned char *>(text.data()),
                            static_cast<int>(text.size())));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * 65536));
}
BENCHMARK(BM_B64Encode_uB64_ntop);
BENCHMARK(BM_B64Encode_EVP_EncodeBlock);
BENCHMARK(BM_B64Decode_uB64_pton);
BENCHMARK(BM_B64Decode_EVP_DecodeBlock);

// ---- AES ------------------------------------------------------------------------------

// One whole-buffer AES-256-CBC operation with a fresh context, as an application would do it.
int evpAes(bool encrypt, const uint8_t *iv, const uint8_t *in, int length, uint8_t *out) {
    EVP_CIPHER_CTX *ctx = EVP_CIPHER_CTX_new();
    int n = 0, tail = 0;
    EVP_CipherInit_ex(ctx, EVP_aes_256_cbc(), nullptr, key().data(), iv, encrypt ? 1 : 0);
    EVP_CipherUpdate(ctx, out, &n, in, length);
    EVP_CipherFinal_ex(ctx, out + n, &tail);
    EVP_CIPHER_CTX_free(ctx);
    return n + tail;
}

const Bytes &wrapped1m() {
    static const Bytes out = [] {
        Bytes wrapped(data1m().size() + 32);
        const int32_t n = uAesEncrypt(kKeyHex, data1m().data(),
                                      static_cast<int32_t>(data1m().size()), wrapped.data());
        wrapped.resize(static_cast<std::size_t>(n));
        return wrapped;
    }();
    return out;
}

void BM_AesEncrypt_uAesEncrypt(benchmark::State &state) {
    Bytes out(data1m().size() + 32);
    for (auto _ : state) {
        benchmark::DoNotOptimize(uAesEncrypt(kKeyHex, data1m().data(),
                                             static_cast<int32_t>(data1m().size()), out.data()));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data1m().size()));
}

void BM_AesEncrypt_EVP(benchmark::State &state) {
    Bytes out(data1m().size() + 32);
    const uint8_t iv[16] = {1, 2, 3};
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            evpAes(true, iv, data1m().data(), static_cast<int>(data1m().size()), out.data()));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data1m().size()));
}

void BM_AesDecrypt_uAesDecrypt(benchmark::State &state) {
    const Bytes &wrapped = wrapped1m();
    Bytes out(wrapped.size());
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            uAesDecrypt(kKeyHex, wrapped.data(), static_cast<int32_t>(wrapped.size()), out.data()));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data1m().size()));
}

void BM_AesDecrypt_EVP(benchmark::State &state) {
    const Bytes &wrapped = wrapped1m();
    Bytes out(wrapped.size());
    const uint8_t *iv = wrapped.data() + wrapped.size() - 16;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            evpAes(false, iv, wrapped.data(), static_cast<int>(wrapped.size() - 16), out.data()));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data1m().size()));
}
BENCHMARK(BM_AesEncrypt_uAesEncrypt);
BENCHMARK(BM_AesEncrypt_EVP);
BENCHMARK(BM_AesDecrypt_uAesDecrypt);
BENCHMARK(BM_AesDecrypt_EVP);

// ---- Digests --------------------------------------------------------------------------

const Bytes &digestInput(int64_t length) {
    static const Bytes small = randomBytes(64);
    return length == 64 ? small : data64k();
}

void BM_Sha256_uDigestSha256it(benchmark::State &state) {
    const Bytes &in = digestInput(state.range(0));
    uint8_t out[32];
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            uDigestSha256it(in.data(), static_cast<uint32_t>(in.size()), out, sizeof out));
    }
}

void BM_Sha256_EVP(benchmark::State &state) {
    const Bytes &in = digestInput(state.range(0));
    uint8_t out[32];
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            EVP_Digest(in.data(), in.size(), out, nullptr, EVP_sha256(), nullptr));
    }
}

void BM_Md5_uDigestMD5(benchmark::State &state) {
    const Bytes &in = digestInput(state.range(0));
    uint8_t out[16];
    for (auto _ : state) {
        uDigestMD5(in.data(), static_cast<uint32_t>(in.size()), out, sizeof out);
        benchmark::DoNotOptimize(out);
    }
}

void BM_Md5_EVP(benchmark::State &state) {
    const Bytes &in = digestInput(state.range(0));
    uint8_t out[16];
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            EVP_Digest(in.data(), in.size(), out, nullptr, EVP_md5(), nullptr));
    }
}

void BM_HmacSha256_uDigestHmacSha256it(benchmark::State &state) {
    const Bytes &in = digestInput(state.range(0));
    uint8_t out[32];
    for (auto _ : state) {
        uint32_t length = sizeof out;
        benchmark::DoNotOptimize(uDigestHmacSha256it(in.data(), static_cast<uint32_t>(in.size()),
                                                     key().data(), 32, out, &length));
    }
}

// The MAC is fetched once outside the loop, the context made per call: the usual direct use.
void BM_HmacSha256_EVP(benchmark::State &state) {
    const Bytes &in = digestInput(state.range(0));
    EVP_MAC *mac = EVP_MAC_fetch(nullptr, "HMAC", nullptr);
    char digest[] = "SHA256";
    const OSSL_PARAM params[] = {OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest, 0),
                                 OSSL_PARAM_construct_end()};
    uint8_t out[32];
    for (auto _ : state) {
        EVP_MAC_CTX *ctx = EVP_MAC_CTX_new(mac);
        std::size_t length = 0;
        EVP_MAC_init(ctx, key().data(), 32, params);
        EVP_MAC_update(ctx, in.data(), in.size());
        EVP_MAC_final(ctx, out, &length, sizeof out);
        EVP_MAC_CTX_free(ctx);
        benchmark::DoNotOptimize(out);
    }
    EVP_MAC_free(mac);
}
BENCHMARK(BM_Sha256_uDigestSha256it)->Arg(64)->Arg(65536);
BENCHMARK(BM_Sha256_EVP)->Arg(64)->Arg(65536);
BENCHMARK(BM_Md5_uDigestMD5)->Arg(64)->Arg(65536);
BENCHMARK(BM_Md5_EVP)->Arg(64)->Arg(65536);
BENCHMARK(BM_HmacSha256_uDigestHmacSha256it)->Arg(64)->Arg(65536);
BENCHMARK(BM_HmacSha256_EVP)->Arg(64)->Arg(65536);

// Speed relative to the reference: reference time / our time, so above 1 we are faster.
void printSummary(const pu::bench::TimesReporter &times) {
    pu::bench::printRatios(
        times, "speed relative to the reference (reference time / our time):",
        {
            {"crc32 64 KiB vs zlib", "BM_Crc32_zlib", "BM_Crc32_crc32"},
            {"uB64_ntop 64 KiB vs EVP_EncodeBlock", "BM_B64Encode_EVP_EncodeBlock",
             "BM_B64Encode_uB64_ntop"},
            {"uB64_pton 64 KiB vs EVP_DecodeBlock", "BM_B64Decode_EVP_DecodeBlock",
             "BM_B64Decode_uB64_pton"},
            {"uAesEncrypt 1 MiB vs EVP", "BM_AesEncrypt_EVP", "BM_AesEncrypt_uAesEncrypt"},
            {"uAesDecrypt 1 MiB vs EVP", "BM_AesDecrypt_EVP", "BM_AesDecrypt_uAesDecrypt"},
            {"uDigestSha256it 64 B vs EVP", "BM_Sha256_EVP/64", "BM_Sha256_uDigestSha256it/64"},
            {"uDigestSha256it 64 KiB vs EVP", "BM_Sha256_EVP/65536",
             "BM_Sha256_uDigestSha256it/65536"},
            {"uDigestMD5 64 B vs EVP", "BM_Md5_EVP/64", "BM_Md5_uDigestMD5/64"},
            {"uDigestMD5 64 KiB vs EVP", "BM_Md5_EVP/65536", "BM_Md5_uDigestMD5/65536"},
            {"uDigestHmacSha256it 64 B vs EVP", "BM_HmacSha256_EVP/64",
             "BM_HmacSha256_uDigestHmacSha256it/64"},
            {"uDigestHmacSha256it 64 KiB vs EVP", "BM_HmacSha256_EVP/65536",
             "BM_HmacSha256_uDigestHmacSha256it/65536"},
        });
}

void ignoreLine(void *, int, const char *, const char *) {}

} // namespace

int main(int argc, char **argv) {
    // A 1 MiB input ends on a whole piece, whose repeated last block logs "The data is
    // invalid." on every decryption; writing that to the terminal is not what is measured.
    platformSimSetLogSink(ignoreLine, nullptr, 1);
    return pu::bench::runBenchmarks(argc, argv, printSummary);
}
