// SPDX-License-Identifier: MIT
// URL and host-name validation against the acceptance patterns run exhaustively, percent-encoding
// per component against the RFC 3986 character sets, URLs taken apart and rebuilt, URL records,
// query parameter lists and values, and RESTful templates and their variables.
#include "call_table.hpp"
#include "fail_alloc.hpp"
#include "test_support.hpp"

#include <gtest/gtest.h>

#include "url/url_patterns.hpp"

#include <atomic>
#include <string>
#include <utility>
#include <vector>

namespace {

using pu::test::take;
using Pairs = std::vector<std::pair<std::string, std::string>>;

std::string part(const char *text) {
    return text != nullptr ? text : "-";
}

// The eight components joined with '|' (absent ones as "-"), and " => " the rebuild when it
// differs from the URL.
std::string parsed(const std::string &url) {
    UStrUrlPara *rec = nullptr;
    if (uStrUrlParse(url.c_str(), &rec) != 0) {
        return "refused";
    }
    std::string out = part(rec->scheme);
    for (const char *text :
         {rec->user, rec->password, rec->host, rec->port, rec->path, rec->query, rec->fragment}) {
        out += "|" + part(text);
    }
    char text[256];
    EXPECT_EQ(0, uStrUrlParaToStr(rec, text, sizeof(text)));
    char small[10]; // too short: the pieces that fit stay, the call fails
    EXPECT_EQ(-2, uStrUrlParaToStr(rec, nullptr, sizeof(text)) +
                      uStrUrlParaToStr(rec, small, sizeof(small)));
    uStrUrlParaFree(rec);
    return url == text ? out : out + " => " + text;
}

TEST(UrlParse, ComponentsAndRebuild) {
    const std::pair<std::string, std::string> rows[] = {
        {"http://u:p@192.168.1.10:8080/a/b?x=1#top", "http|u|p|192.168.1.10|8080|a/b|x=1|top"},
        {"http://h.com?q=1#f", "http|-|-|h.com|-|-|q=1|f"},
        {"http://[::1]x/p", "refused"},
        {"user@host.com#f?x", "-|user|-|host.com|-|-|-|f?x"}, // the fragment holds the '?'
        // The last '@' ends the user part; each part splits at its last ':'.
        {"http://a:b:c@d@h.com:8/", "http|a:b|c@d|h.com|8||-|- => http://a:b:c%40d@h.com:8/"},
        // An invalid host swallows delimiters until one behind a further '@' is valid.
        {"http://a_b/c?d#e@h.com/p",
         "http|a_b/c?d#e|-|h.com|-|p|-|- => http://a_b%2Fc%3Fd%23e@h.com/p"},
        // An invalid URL is encoded first; the rebuild keeps existing escapes.
        {"http://h.com/a b/\xc3\xa9?q=a b+c#f g", "http|-|-|h.com|-|a%20b/%C3%A9|q=a%20b%2Bc|f%20g "
                                                  "=> http://h.com/a%20b/%C3%A9?q=a%20b%2Bc#f%20g"},
        {"http://a_b" + std::string(200000, '/'), "refused"}}; // without trying each prefix
    for (const auto &[url, expected] : rows) {
        EXPECT_EQ(parsed(url), expected) << url.substr(0, 60);
    }
}

// scheme|user|password|host|port|path|transport, and " => " the composed text when it differs.
std::string record(const std::string &url) {
    UParaUrlInfo *rec = nullptr;
    if (uParaUrlParse(url.c_str(), &rec) != 1) {
        return rec == nullptr ? "refused" : "refused but set";
    }
    char text[64];
    const int32_t composed = uParaUrlCompose(rec, text, sizeof(text));
    std::string out = part(rec->scheme) + "|" + part(rec->user) + "|" + part(rec->password) + "|" +
                      part(rec->host) + "|" + std::to_string(rec->port) + "|" + part(rec->path) +
                      "|" + part(rec->transport) + (url == text ? "" : std::string(" => ") + text);
    uParaUrlFree(rec);
    return composed == 0 ? out : out + " (compose failed)";
}

TEST(UrlRecord, ParseAndCompose) {
    pu::test::checkRows(
        {PU_ROW(record("rtsp://u:p@10.0.0.2:554/live;TCP"),
                "rtsp|u|p|10.0.0.2|554|live|;TCP => rtsp://u:p@10.0.0.2:554/live"),
         PU_ROW(record("http://10.0.0.2/a;tcp"), "http|-|-|10.0.0.2|0|a;tcp|-"), // RTSP only
         PU_ROW(record("gopher://h.com/"), "refused")});
    char url[64] = "http://u:p@10.0.0.2/x", host[16] = "keep";
    uint32_t port = 99;
    pu::test::checkRows(
        {PU_ROW(uParaUrlReplaceUrlPath(url, sizeof(url), "new/path"), 0),
         PU_ROW(url, "http://u:p@10.0.0.2/new/path"),
         PU_ROW(uParaUrlReplaceUrlPath(url, 24, "a-rather-long-path"), 0), // too long: kept
         PU_ROW(url, "http://u:p@10.0.0.2/new/path"),
         PU_ROW(uParaUrlReplaceUrlPath(nullptr, 24, "p"), -1),
         PU_ROW((uStrParseHostAndPort("http://a-very-long-host.example:8554/x", host, 8, &port),
                 std::string(host) + ":" + std::to_string(port)),
                "a-very-:8554"),
         PU_ROW(uStrIsValidIPOrDomain("10.0.0.1") + uStrIsValidIPOrDomain("cam.example.com"), 2),
         PU_ROW(uStrIsValidIPOrDomain("u@h.com") + uStrIsValidIPOrDomain("h.com:1"), 0)});
}

Pairs pairsOf(const uList *list) {
    Pairs out;
    for (uListNode *node = list->head; node != nullptr; node = node->next) {
        const auto *pair = static_cast<const UParaUrlPair *>(node->data);
        out.emplace_back(pu::test::orNull(pair->key), pu::test::orNull(pair->value));
    }
    return out;
}

TEST(UrlQuery, ListsUpdateInPlaceAndJoinWithinTheLimit) {
    uList *list = uParaUrlInit();
    ASSERT_EQ(0, uParaUrlAddString(list, "a b", "x y#1&2=3")); // query rules keep '&' and '='
    // The same key updates in place; only 1 is true for AddBool, any non-zero for the other.
    ASSERT_EQ(0, uParaUrlAddInt(list, "i", -5) + uParaUrlAddLong(list, "i", 9000000000LL));
    ASSERT_EQ(0, uParaUrlAddBool(list, "f", 2) + uParaUrlAddBoolUnencoded(list, "u", 2));
    ASSERT_EQ(0, uParaUrlAddBoolUnencoded(list, "z", 0));
    ASSERT_EQ(-2, uParaUrlAddString(list, nullptr, "v") + uParaUrlAddString(list, "", "v"));
    ASSERT_EQ(0, uParaUrlAddStringUnencoded(list, "a+b", "raw #")); // the stored key is encoded
    EXPECT_EQ(take(uParaUrlStringPtrCreate(list)), "a+b=raw #&i=9000000000&f=FALSE&u=TRUE&z=FALSE");
    // Keys are cut at 60 and values at 508 encoded characters.
    ASSERT_EQ(
        0, uParaUrlAddString(list, std::string(100, 'k').c_str(), std::string(2000, ' ').c_str()));
    EXPECT_EQ(pairsOf(list), (Pairs{{std::string(61, 'k'), std::string(170, '+')}}));
    uParaUrlDelete(list);
    // A pair too long for the joined text is dropped.
    ASSERT_EQ(0, uParaUrlAddStringUnencoded(list, "big", std::string(3000, 'x').c_str()));
    EXPECT_EQ(take(uParaUrlStringPtrCreate(list)), "");
    uParaUrlUnInit(list);
}

TEST(UrlQuery, ValuesReadFromQueries) {
    const std::string longKey(200, 'k'); // searched for cut, never read beyond
    uList *list = uParaUrlQuery("k+1=v%20w=x&&c=&%zz=%4&b&=3");
    ASSERT_NE(nullptr, list);
    char value[8];
    pu::test::checkRows(
        {PU_ROW(uParaUrlGetInt("x=1&ax=5&a=7", "a", -1), 7),
         PU_ROW(uParaUrlGetInt("a&b=1", "a", -1) + uParaUrlGetInt("b=a=5", "a", -1), -2),
         PU_ROW(uParaUrlGetInt(("x=1&" + longKey).c_str(), longKey.c_str(), -1), -1),
         PU_ROW(uParaUrlGetBool("on=TRUEISH", "on", 5) + uParaUrlGetBool("on=fals", "on", 5), 6),
         PU_ROW(take(uParaUrlGetString("n=a+b%21", "n", nullptr)), "a b!"),
         PU_ROW(uParaQueryValueGet(list, "K 1", value, 3), 0), PU_ROW(value, "v "),
         PU_ROW(uParaQueryValueGet(list, "c", value, sizeof(value)), -1)}); // no value
    uParaUrlQueryListDestroy(list);
}

// The variables as pairs, or a lone pair holding the failure.
Pairs variables(const char *url, const char *templ) {
    uList *list = nullptr;
    if (uParaUrlGetVariablesFromRestfulUrl(url, templ, &list) != 0) {
        return {{"failed", list == nullptr ? "" : "list set"}};
    }
    Pairs out = pairsOf(list);
    uParaUrlQueryListDestroy(list);
    return out;
}

TEST(RestfulTemplate, ComparableRegexAndVariables) {
    regex_t preg;
    ASSERT_EQ(0, uParaUrlGetComparableRegex("/a.b/@x", &preg)); // literal segments are expressions
    EXPECT_EQ(regexec(&preg, "//aXb/42?x=1&y=2", 0, nullptr, 0), 0);
    regfree(&preg);
    // Nested or stacked repetitions would take the compiler exponential time: refused at once.
    for (const char *refused : {"", "/((((a+)+)+)+)+((((a+)+)+)+)+/@b", "/(a{255}){255}/@b"}) {
        EXPECT_EQ(-1, uParaUrlGetComparableRegex(refused, &preg)) << refused;
    }
    // Literal segments are not compared; the query and empty segments do not count; a name met
    // again collects its values.
    EXPECT_EQ(variables("/dev/3/ch/5", "/dev/@id/ch/:ch"), (Pairs{{"id", "3"}, {"ch", "5"}}));
    EXPECT_EQ(variables("/1/2/3", "/@v/@v/@v"), (Pairs{{"v", "1,2,3"}}));
    EXPECT_EQ(variables("//other//7?id=9", "/dev/@id"), (Pairs{{"id", "7"}}));
}

// Every text over the alphabet up to maxLength characters, shortest first, the empty one included.
std::vector<std::string> allTexts(const std::string &alphabet, std::size_t maxLength) {
    std::vector<std::string> out = {""};
    for (std::size_t i = 0; out[i].size() < maxLength; ++i) {
        for (const char c : alphabet) {
            out.push_back(out[i] + c);
        }
    }
    return out;
}

// The validators answer common shapes without running the patterns; every short text over the
// characters that shape a URL, alone and behind each kind of scheme, gets the answers the patterns
// give when compiled the plain way and tried one by one.
TEST(UrlCheck, QuickAnswersAgreeWithThePatternsExhaustively) {
    const std::size_t digits = pu::url::kUrlPatterns.size();
    std::vector<std::string> urls = allTexts("a1.:/@-", 6);
    urls.insert(urls.end(), {"0.1.2.3", "1.0.0.1", "1.2.3.0", "1.02.3.4", "1.2.3.04"});
    for (const char *prefix : {"http://", "FILE://", "mcast://", "u@", "1.2.3.4", "a.b"}) {
        for (const std::string &tail : allTexts("a0.:/@-)# \n", 4)) {
            urls.push_back(prefix + tail);
        }
    }
    // Four threads share the texts, so the validators' patterns are also compiled under contention
    // when this runs first.
    std::atomic<int> disagreements = 0;
    pu::test::fanOut(4, [&](int thread) {
        // The oracle's patterns, compiled by each thread for itself: a compiled pattern keeps a
        // cache that regexec fills, so threads sharing one would race in it.
        std::vector<regex_t> patterns(digits + 1);
        for (std::size_t i = 0; i <= digits; ++i) {
            const char *pattern =
                i < digits ? pu::url::kUrlPatterns[i] : pu::url::kAllDigitsPattern;
            EXPECT_EQ(0, regcomp(&patterns[i], pattern, REG_EXTENDED | REG_NEWLINE));
        }
        const auto matches = [&](std::size_t i, const std::string &text) {
            return regexec(&patterns[i], text.c_str(), 0, nullptr, 0) == 0;
        };
        for (std::size_t n = thread; n < urls.size(); n += 4) {
            const bool allDigits = matches(digits, urls[n]);
            int expected = 0;
            for (std::size_t i = 0; i < digits && expected == 0; ++i) {
                expected = matches(i, urls[n]) && (i < 4 || !allDigits);
            }
            const int domain = matches(pu::url::kHostNamePattern, urls[n]) && !allDigits;
            if ((uParaUrlCheck(urls[n].c_str()) != expected ||
                 uParaUrlDomainCheck(urls[n].c_str()) != domain) &&
                ++disagreements <= 10) {
                ADD_FAILURE() << "'" << urls[n] << "'";
            }
        }
        for (regex_t &preg : patterns) {
            regfree(&preg);
        }
    });
    // A numeric last label, found without trying each start.
    EXPECT_EQ(0, uParaUrlCheck(std::string(100000, 'a').append(".1").c_str()));
}

std::string encodeComponent(int component, const std::string &src, int size = 512) {
    std::vector<char> dst(static_cast<std::size_t>(size) + 1, 'Z');
    uStrUrlEncodeComponent(component, src.c_str(), dst.data(), size);
    EXPECT_EQ(dst.back(), 'Z') << "written beyond size";
    return size > 0 ? dst.data() : "";
}

TEST(UrlEncodeComponent, EveryByteAgainstTheComponentSets) {
    const std::string alnum = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    const std::string unreserved = alnum + "-._~";
    const std::string pathSet = unreserved + "!$&'()*,;=:@/";
    const std::string allowed[] = {alnum + "+-.",
                                   unreserved + "!&'()*,;=:",
                                   unreserved + "!$&'()*,;=:[]",
                                   "0123456789",
                                   pathSet,
                                   pathSet + "?",
                                   pathSet + "?"};
    for (int component = 1; component <= 7; ++component) {
        for (int c = 1; c < 256; ++c) {
            const std::string input(1, static_cast<char>(c));
            const std::string escape = {'%', "0123456789ABCDEF"[c >> 4],
                                        "0123456789ABCDEF"[c & 15]};
            const bool kept = c != '%' && allowed[component - 1].find(input) != std::string::npos;
            ASSERT_EQ(encodeComponent(component, input), kept ? input : escape)
                << "component " << component << " byte " << c;
        }
    }
}

std::string decoded(std::string text) {
    uStrUrlDecode(text.data());
    return text.c_str();
}

TEST(UrlEncode, PercentEscapesSizesModesAndDecoding) {
    char same[32] = "a b";
    pu::test::checkRows(
        {// A '%' before two hex digits is kept, except in the scheme and the port.
         PU_ROW(encodeComponent(5, "%41"), "%41"), PU_ROW(encodeComponent(6, "%4"), "%254"),
         PU_ROW(encodeComponent(1, "%41"), "%2541"), PU_ROW(encodeComponent(4, "%41"), "%2541"),
         // It stops once size-3 characters are held: an escape is never cut.
         PU_ROW(encodeComponent(5, "abc", 3), ""), PU_ROW(encodeComponent(5, "abc", 4), "a"),
         PU_ROW(encodeComponent(5, "ab c", 6), "ab%20"),
         // In place: the source is read before the destination is cleared.
         PU_ROW((uStrUrlEncodeComponent(5, same, same, sizeof(same)), same), "a%20b"),
         // A decoded '%' is never read again; a NUL ends the text.
         PU_ROW(decoded("%%2541"), "%%41"), PU_ROW(decoded("%61%00b"), "a"),
         PU_ROW(decoded("x%41"), "xA")}); // an escape that ends the text
}

TEST(FileNameAndAddress, SuffixesAndIpPortSplits) {
    // "<ip>|<port>", or "-" when refused with ip and port untouched.
    const auto split = [](const char *text) {
        char ip[64] = "keep";
        uint16_t port = 7;
        const int32_t result = uStrGetIpAndPort(text, ip, sizeof(ip), &port);
        return result == 0 ? std::string(ip) + "|" + std::to_string(port)
                           : (std::string(ip) == "keep" && port == 7 ? "-" : "- but written");
    };
    char name[16], ext[16];
    pu::test::checkRows(
        {// The first character of the suffix is never compared; the name must be longer.
         PU_ROW(uStrFileNameMatchSpecialSuffix("xytar.gz", ".tar.gz"), 0),
         PU_ROW(uStrFileNameMatchSpecialSuffix("x.tar.gZ", ".tar.gz"), -1),
         PU_ROW(split("[fe80::1]:8080"), "fe80::1|8080"),
         PU_ROW(split("fe80::1:80"), "fe80::1:80|0"),   // a whole IPv6 address has no port
         PU_ROW(split("10.0.0.1:65537"), "10.0.0.1|1"), // low 16 bits
         PU_ROW(split("10.0.0.1:80:90"), "-"),
         PU_ROW(
             (uStrParseFileName("d.x/a.TAR.gz", name, 16, ext, 16), std::string(name) + "|" + ext),
             "d.x/a|.TAR.gz")});
}

// URL parsing and query parameter lists with each of their uMalloc calls failing in turn: the
// documented failure value, nothing leaked, the list still usable, and never a wrong split or a
// record or pair missing a part in place of a failure.
const pu::test::AllocCase kCases[] = {
    {"ParseEscapeQueryAndJoin", [](const pu::test::FailAlloc &fault) {
         pu::test::AllocSteps steps(fault);
         UStrUrlPara *rec = reinterpret_cast<UStrUrlPara *>(1);
         const bool failed = steps.failed(uStrUrlParse("http://u:p@host:81/p?q=1#f", &rec) != 0);
         EXPECT_TRUE(failed ? rec == nullptr
                            : std::string(rec->host) + rec->port + rec->path + rec->fragment ==
                                  "host81pf");
         uStrUrlParaFree(failed ? nullptr : rec);
         char *out = nullptr;
         EXPECT_TRUE(steps.failed(uStrFileNameEscape("a:b", &out) != 0) ||
                     std::string(out) == "a%3Ab");
         uFree(out);
         UParaUrlInfo *info = nullptr;
         EXPECT_TRUE(steps.failed(uParaUrlParse("rtsp://cam.example:554/live;tcp", &info) != 1) ||
                     std::string(info->host) + info->transport == "cam.example;tcp");
         uParaUrlFree(info);
         uList *list = uParaUrlInit();
         if (steps.failed(list == nullptr)) {
             return;
         }
         // A refused step leaves the list as it was: the same step then succeeds.
         if (steps.failed(uParaUrlAddString(list, "k", "a b") != 0)) {
             ASSERT_EQ(uParaUrlAddString(list, "k", "a b"), 0);
         }
         steps.failed(uParaUrlAddString(list, "k", "a b") != 0); // an update allocates too
         char *joined = uParaUrlStringPtrCreate(list);
         if (steps.failed(joined == nullptr)) {
             joined = uParaUrlStringPtrCreate(list);
         }
         uList *pairs = uParaUrlQuery(joined);
         char value[8] = {};
         EXPECT_TRUE(steps.failed(pairs == nullptr) ||
                     (uParaQueryValueGet(pairs, "K", value, sizeof value) == 0 &&
                      std::string(value) == "a b"));
         uParaUrlQueryListDestroy(pairs);
         char *got = uParaUrlGetString(joined, "k", "d");
         EXPECT_TRUE(steps.failed(got == nullptr) || std::string(got) == "a b");
         uFree(got);
         uFree(joined);
         uParaUrlUnInit(list);
     }}};

class UrlAllocFailure : public testing::TestWithParam<pu::test::AllocCase> {};

PU_ALLOC_FAILURE_SWEEP(UrlAllocFailure, kCases);

} // namespace
