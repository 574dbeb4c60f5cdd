// SPDX-License-Identifier: MIT
// Version-5 UUIDs and random seeding.
#include <uuuid.h>

#include <openssl/rand.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

std::string uuidText(const std::string &name) {
    uUuid uuid;
    EXPECT_EQ(uUuidGenerateV5(name.data(), static_cast<uint32_t>(name.size()), &uuid), 0);
    char text[37];
    EXPECT_EQ(uUuidToStr(&uuid, text, sizeof text), 0);
    return text;
}

TEST(Uuid, VersionFiveInTheUrlNameSpace) {
    EXPECT_EQ(uuidText("hello"), "074171de-bc84-5ea4-b636-1135477620e1");
    EXPECT_EQ(uuidText("http://www.example.com/"), uuidText("http://www.example.com/"));
    EXPECT_NE(uuidText("a"), uuidText("b"));
    for (const char *name : {"", "a", "some longer name"}) {
        const std::string text = uuidText(name);
        ASSERT_EQ(text.size(), 36u);
        EXPECT_EQ(text[14], '5') << text;
        EXPECT_NE(std::string("89ab").find(text[19]), std::string::npos) << text;
    }
    // Fields are in host order: the text reads them as numbers.
    uUuid uuid;
    uUuidGenerateV5("hello", 5, &uuid);
    EXPECT_EQ(uuid.timeLow, 0x074171deu);
    EXPECT_EQ(uuid.timeHiAndVersion, 0x5ea4);
    EXPECT_EQ(uuid.clockSeqHiAndReserved, 0xb6);

    EXPECT_EQ(uUuidGenerateV5(nullptr, 5, &uuid), -1);
    EXPECT_EQ(uUuidGenerateV5("hello", 5, nullptr), -1);
    char text[40];
    EXPECT_EQ(uUuidToStr(nullptr, text, sizeof text), -1);
    EXPECT_EQ(uUuidToStr(&uuid, nullptr, 37), -1);
    // A short buffer cuts the text instead of running over.
    std::memset(text, '#', sizeof text);
    EXPECT_EQ(uUuidToStr(&uuid, text, 10), 0);
    EXPECT_STREQ(text, "074171de-");
    EXPECT_EQ(text[10], '#');
}

TEST(RandSeed, LeavesTheGeneratorSeeded) {
    EXPECT_EQ(uSslRandSeed(), 0);
    EXPECT_EQ(RAND_status(), 1);
    EXPECT_EQ(uSslRandSeed(), 0);
}

} // namespace
