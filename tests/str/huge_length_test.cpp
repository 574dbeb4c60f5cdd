// SPDX-License-Identifier: MIT
// Texts whose sizes do not fit uMalloc's 32 bits, or wrap when tripled: refused, never given a
// wrapped small buffer. The texts cost almost no memory: one 2 MiB piece of 'a' mapped again and
// again, so only the page holding the terminator is ever copied.
#include <platform_utils.h>

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

namespace {

constexpr std::size_t kPiece = std::size_t{2} << 20;

class HugeText {
  public:
    explicit HugeText(std::size_t length) : span_((length + kPiece) / kPiece * kPiece) {
        const int fd = memfd_create("huge-text", 0);
        void *base =
            mmap(nullptr, span_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        void *fill = fd >= 0 && ftruncate(fd, kPiece) == 0
                         ? mmap(nullptr, kPiece, PROT_WRITE, MAP_SHARED, fd, 0)
                         : MAP_FAILED;
        bool mapped = base != MAP_FAILED && fill != MAP_FAILED;
        if (fill != MAP_FAILED) {
            std::memset(fill, 'a', kPiece);
            munmap(fill, kPiece);
        }
        // Private mappings: the terminator's page alone is copied, the piece stays all 'a'.
        for (std::size_t at = 0; mapped && at < span_; at += kPiece) {
            mapped = mmap(static_cast<char *>(base) + at, kPiece, PROT_READ | PROT_WRITE,
                          MAP_PRIVATE | MAP_FIXED, fd, 0) != MAP_FAILED;
        }
        close(fd);
        if (mapped) {
            base_ = static_cast<char *>(base);
            base_[length] = '\0';
        } else if (base != MAP_FAILED) {
            munmap(base, span_);
        }
    }
    ~HugeText() {
        if (base_ != nullptr) {
            munmap(base_, span_);
        }
    }
    const char *text() const { return base_; }

  private:
    std::size_t span_;
    char *base_ = nullptr;
};

TEST(HugeLength, SizesThatWrapAreRefused) {
    if constexpr (sizeof(std::size_t) < 8) {
        GTEST_SKIP() << "no such texts in a 32-bit address space";
    }
#if defined(__SANITIZE_THREAD__)
    // ThreadSanitizer shadows every page the walks touch: minutes for a test about arithmetic on
    // one thread. The plain and ASan builds run it.
    GTEST_SKIP() << "gigabyte walks under ThreadSanitizer";
#endif
    // 3 * length + 1 is 2^32 + 3: cut to 32 bits it was a 3-byte buffer.
    const HugeText url(1'431'655'766);
    ASSERT_NE(url.text(), nullptr);
    char *escaped = nullptr;
    EXPECT_EQ(uStrFileNameEscape(url.text(), &escaped), -1);
    EXPECT_EQ(escaped, nullptr);
    UStrUrlPara *rec = nullptr;
    EXPECT_EQ(uStrUrlParse(url.text(), &rec), -1);
    EXPECT_EQ(rec, nullptr);

    // length + 1 is 2^32 + 1, a 1-byte copy when cut to 32 bits.
    const HugeText text(std::size_t{UINT32_MAX} + 1);
    ASSERT_NE(text.text(), nullptr);
    EXPECT_EQ(uStrGetCopy(text.text()), nullptr);
    // The grown capacity would be 2^32 + 3 + 256: refused before the capacity changes.
    char *buf = uStrGetCopy("abc");
    std::uint32_t capacity = 4;
    EXPECT_EQ(uStrDynamicCat(&buf, &capacity, text.text()), -1);
    EXPECT_EQ(capacity, 4U);
    EXPECT_STREQ(buf, "abc");
    uFree(buf);
}

} // namespace
