// SPDX-License-Identifier: MIT
// Whole-buffer AES: AES-256-CBC with the vector behind the cipher text (over the block
// interface, in pieces of 64 KiB), and AES-CBC carried as base64 text (over OpenSSL directly).
#include <platform_os.h>
#include <uaes.h>
#include <ub64.h>
#include <umem.h>

#include "core/log_modules.hpp"
#include "crypto/openssl_algorithms.hpp"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

namespace {

constexpr int32_t kPiece = 65536;
// A piece and the tail of up to two blocks that may follow it.
constexpr uint32_t kWorkSize = kPiece + 32;
constexpr int kBlock = U_AES_BLOCK_SIZE;
constexpr int kWrapKeyBits = 256;

struct FreeWithUFree {
    void operator()(void *p) const { uFree(p); }
};
using WorkBuffer = std::unique_ptr<uint8_t, FreeWithUFree>;

// Null also for sizes uMalloc cannot be asked for. Sizes are 64-bit so that the rounding of a
// caller's 32-bit length cannot wrap on a 32-bit build.
WorkBuffer allocate(uint64_t size) {
    if (size > UINT32_MAX) {
        return nullptr;
    }
    return WorkBuffer(static_cast<uint8_t *>(uMalloc(static_cast<uint32_t>(size))));
}

// The work buffer of the 64 KiB pair; a failure is logged for function.
WorkBuffer allocateWork(const char *function) {
    WorkBuffer work = allocate(kWorkSize);
    if (!work) {
        pu::log::error(pu::log::kAes, "%s malloc error.", function);
    }
    return work;
}

// The vector of one encryption: rand() seeded with the time. The buffer whose word sum the seed
// also takes in is freshly zeroed, so the time alone decides; calls within one second share a
// vector. The bytes start cleared so the vector depends on nothing else.
void makeVector(uint8_t *iv) {
    std::srand(static_cast<unsigned>(std::time(nullptr)));
    std::memset(iv, 0, kBlock);
    for (int i = kBlock - 1; i >= 0; --i) {
        iv[i] = static_cast<uint8_t>(iv[i] + std::rand());
    }
}

// The cipher of the base64 pair for keyBits (null for a length other than 128, 192 or 256),
// and its vector: the first (up to) 16 bytes of the text as they are, zero-filled behind.
const EVP_CIPHER *cbcCipher(int32_t keyBits, const char *text, uint8_t *iv) {
    std::memset(iv, 0, kBlock);
    if (text != nullptr) {
        std::memcpy(iv, text, strnlen(text, kBlock));
    }
    return pu::crypto::aesCipher(keyBits, true);
}

uint64_t roundUpToBlock(uint64_t length) {
    return (length + kBlock - 1) / kBlock * kBlock;
}

// Length of plain after dropping standard padding, or all of it when the padding is not valid.
std::size_t withoutPadding(const uint8_t *plain, std::size_t length) {
    const uint8_t pad = plain[length - 1];
    if (pad < 1 || pad > kBlock || pad > length) {
        return length;
    }
    for (std::size_t i = length - pad; i < length; ++i) {
        if (plain[i] != pad) {
            return length;
        }
    }
    return length - pad;
}

} // namespace

extern "C" {

int32_t uAesEncrypt(const char *key, const uint8_t *input, int32_t length, uint8_t *output) {
    constexpr const char *kName = "uAesEncrypt";
    if (input == nullptr || output == nullptr) {
        pu::log::error(pu::log::kAes, "%s Parameter is null.", kName);
        return 0;
    }
    WorkBuffer work = allocateWork(kName);
    if (!work) {
        return 0;
    }
    cipherInstance cipher{};
    makeVector(cipher.IV);
    uint8_t vector[kBlock];
    std::memcpy(vector, cipher.IV, kBlock);

    keyInstance keyInst{};
    if (makeKey(&keyInst, U_AES_DIR_ENCRYPT, kWrapKeyBits, key) < 1) {
        pu::log::error(pu::log::kAes, "%s make key error.", kName);
        return 0;
    }
    cipher.mode = U_AES_MODE_CBC;
    if (length <= 0) {
        std::memcpy(output, vector, kBlock);
        return kBlock;
    }

    // Whole pieces go straight to the output; a remainder of exactly one piece is the last
    // piece and gets the padding.
    int32_t done = 0;
    for (; length - done > kPiece; done += kPiece) {
        blockEncrypt(&cipher, &keyInst, input + done, kPiece, output + done);
        // blockEncrypt leaves the vector alone; carry the chain into the next piece.
        std::memcpy(cipher.IV, output + done + kPiece - kBlock, kBlock);
    }
    const int32_t last = length - done;
    std::memcpy(work.get(), input + done, static_cast<std::size_t>(last));
    const int padded = padEncrypt(&cipher, &keyInst, work.get(), last, work.get());
    std::memcpy(output + done, work.get(), static_cast<std::size_t>(padded));
    std::memcpy(output + done + padded, vector, kBlock);
    return done + padded + kBlock;
}

int32_t uAesDecrypt(const char *key, const uint8_t *input, int32_t length, uint8_t *output) {
    constexpr const char *kName = "uAesDecrypt";
    if (input == nullptr || output == nullptr) {
        pu::log::error(pu::log::kAes, "%s Parameter is null.", kName);
        return 0;
    }
    if (length <= kBlock) {
        pu::log::error(pu::log::kAes, "%s The data is invalid.", kName);
        return 0;
    }
    cipherInstance cipher{};
    std::memcpy(cipher.IV, input + length - kBlock, kBlock);
    if (length < 2 * kBlock || length % kBlock != 0) {
        pu::log::error(pu::log::kAes, "%s The data is invalid.", kName);
        return 0;
    }
    keyInstance keyInst{};
    if (makeKey(&keyInst, U_AES_DIR_DECRYPT, kWrapKeyBits, key) < 1) {
        pu::log::error(pu::log::kAes, "%s key error", kName);
        return 0;
    }
    WorkBuffer work = allocateWork(kName);
    if (!work) {
        return 0;
    }
    cipher.mode = U_AES_MODE_CBC;

    uint8_t *buffer = work.get();
    int32_t remaining = length; // still to process, the vector included
    const int32_t lastPiece = length % kPiece;
    int32_t count = 0;
    int plain = 0;
    for (;;) {
        if (remaining == lastPiece) {
            std::memcpy(buffer, input, static_cast<std::size_t>(remaining));
            plain = padDecrypt(&cipher, &keyInst, buffer, remaining - kBlock, buffer);
            break;
        }
        const int32_t after = remaining - kPiece;
        if (after == 0) {
            std::memcpy(buffer, input, kPiece);
            plain = padDecrypt(&cipher, &keyInst, buffer, kPiece - kBlock, buffer);
            break;
        }
        if (after > 2 * kBlock) {
            // The chain follows along inside the cipher instance.
            blockDecrypt(&cipher, &keyInst, input, kPiece, output + count);
            input += kPiece;
            count += kPiece;
            remaining = after;
            continue;
        }
        // A piece followed by one or two blocks: the tail goes with it. The input is not moved
        // past the tail, so the next pass takes it once more as the last piece. Intended: the
        // repeat is part of the format's read, so stored data decrypts to the same bytes and
        // count on every device.
        std::memcpy(buffer, input, static_cast<std::size_t>(remaining));
        input += kPiece;
        plain = padDecrypt(&cipher, &keyInst, buffer, remaining - kBlock, buffer);
        if (plain < 1) {
            pu::log::error(pu::log::kAes, "The data is invalid.");
            return count;
        }
        std::memcpy(output + count, buffer, static_cast<std::size_t>(plain));
        count += plain;
        remaining = after;
    }
    if (plain < 1) {
        pu::log::error(pu::log::kAes, "The data is invalid.");
        return count;
    }
    std::memcpy(output + count, buffer, static_cast<std::size_t>(plain));
    return count + plain;
}

int32_t uAesCbcEncrypt(const uint8_t *key, const uint8_t *input, uint32_t length, char *output,
                       uint32_t outputSize, const char *iv, int32_t keyBits) {
    uint8_t vector[kBlock];
    const EVP_CIPHER *cipher = cbcCipher(keyBits, iv, vector);
    if (output == nullptr || input == nullptr || key == nullptr || cipher == nullptr) {
        return 0;
    }
    const uint64_t blocks = length / kBlock + 1;
    if (blocks * 64 / 3 + 4 > outputSize) {
        return 0;
    }
    WorkBuffer work = allocate(blocks * kBlock);
    if (!work) {
        return 0;
    }
    // A partial last block is completed with zeros; when the length is whole blocks, the
    // extra block is never encrypted and goes out as sixteen zero bytes. That is the format.
    std::memcpy(work.get(), input, length);
    const auto wholeLength = static_cast<std::size_t>(roundUpToBlock(length));
    if (!pu::crypto::cipherBlocks(cipher, true, key, vector, work.get(), wholeLength, work.get())) {
        return 0;
    }
    const int32_t textLength =
        uB64_ntop(work.get(), static_cast<uint32_t>(blocks * kBlock), output, outputSize);
    return textLength > 0 ? textLength : 0;
}

int32_t uAesCbcDecrypt(const uint8_t *key, const char *text, uint32_t workSize, uint8_t *output,
                       uint32_t maxPlainLength, const char *iv, int32_t keyBits) {
    uint8_t vector[kBlock];
    const EVP_CIPHER *cipher = cbcCipher(keyBits, iv, vector);
    if (output == nullptr || text == nullptr || key == nullptr || cipher == nullptr) {
        return 0;
    }
    // Rounded up so that a partial last block can be read whole, as the cipher reads it; the
    // bytes behind the decoded ones are zero.
    WorkBuffer work = allocate(roundUpToBlock(workSize) + kBlock);
    if (!work) {
        return 0;
    }
    const int32_t decoded = uB64_pton(text, work.get(), workSize);
    if (decoded < 1 || static_cast<uint32_t>(decoded) > maxPlainLength) {
        return 0;
    }
    const std::size_t length = static_cast<std::size_t>(decoded);
    const std::size_t whole = length / kBlock * kBlock;
    if (!pu::crypto::cipherBlocks(cipher, false, key, vector, work.get(), whole, output)) {
        return 0;
    }
    if (whole < length) {
        const uint8_t *chain = whole > 0 ? work.get() + whole - kBlock : vector;
        uint8_t tail[kBlock];
        if (!pu::crypto::cipherBlocks(cipher, false, key, chain, work.get() + whole, kBlock,
                                      tail)) {
            return 0;
        }
        std::memcpy(output + whole, tail, length - whole);
    }
    output[withoutPadding(output, length)] = '\0';
    return static_cast<int32_t>(std::strlen(reinterpret_cast<const char *>(output)));
}

} // extern "C"
