// SPDX-License-Identifier: MIT
// URL and host-name validation, RESTful templates and variables.
#include <platform_utils.h>

#include <gtest/gtest.h>

#include "url/url_patterns.hpp"

#include <atomic>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

Pairs variables(const char *url, const char *templ, int32_t expectedResult = 0) {
    uList *list = reinterpret_cast<uList *>(1); // must be overwritten
    EXPECT_EQ(expectedResult, uParaUrlGetVariablesFromRestfulUrl(url, templ, &list));
    Pairs out;
    if (expectedResult != 0) {
        return out;
    }
    if (list == nullptr) {
        return out;
    }
    for (uListNode *node = list->head; node != nullptr; node = node->next) {
        const auto *pair = static_cast<const UParaUrlPair *>(node->data);
        out.emplace_back(pair->key, pair->value);
    }
    EXPECT_FALSE(out.empty()); // an empty list is never handed out
    uParaUrlQueryListDestroy(list);
    return out;
}

// Every text over the alphabet up to maxLength characters, the empty one included.
std::vector<std::string> allTexts(const std::string &alphabet, std::size_t maxLength) {
    std::vector<std::string> out = {""};
    for (std::size_t from = 0, length = 0; length < maxLength; ++length) {
        const std::size_t to = out.size();
        for (std::size_t i = from; i < to; ++i) {
            for (const char c : alphabet) {
                out.push_back(out[i] + c);
            }
        }
        from = to;
    }
    return out;
}

bool templateMatches(const char *templ, const char *path) {
    regex_t preg;
    EXPECT_EQ(0, uParaUrlGetComparableRegex(templ, &preg)) << templ;
    const bool matched = regexec(&preg, path, 0, nullptr, 0) == 0;
    regfree(&preg);
    return matched;
}

} // namespace

TEST(UrlCheck, AcceptedUrls) {
    for (const char *url :
         {"http://192.168.1.10:8080/a/b", "a-1.b2.c3", "192.168.1.10", "HTTPS://h.com",
          "rtsp://admin:pw@10.0.0.2:554/live", "mcast://10.0.0.1", "http://[fe80::1]:80/x", "[::1]",
          "[1:2:3:4:5:6:7:8]", "ftp://u@h.com:21/", "h.com:65535", "file:///etc/passwd",
          "file://h.com/x y", "/any thing", "h.com/p?q=1&r=%20", "host.123abc", "10.0.0.1:1/",
          // The file pattern is not anchored at its end: after a host and a '/' anything goes.
          "h.com/a b", "h.com/\xc3\xa9"}) {
        EXPECT_EQ(1, uParaUrlCheck(url)) << url;
    }
}

TEST(UrlCheck, RefusedUrls) {
    for (const char *url :
         {"host.123", "a.b.1/x", "h.com:65536", "10.0.0.1:65536", "10.0.0.1:0", "http://h.123:80",
          "mcast://h.com", "Http://h.com", "http://h_c.com", "http://10.0.0.0", "0.1.2.3",
          "http://[fe80::1", "http://[::g]", "http://h.com/a b", "", "-h.com"}) {
        EXPECT_EQ(0, uParaUrlCheck(url)) << url;
    }
    EXPECT_EQ(0, uParaUrlCheck(nullptr));
    EXPECT_EQ(0, uParaUrlCheck(std::string(100000, 'a').append(".1").c_str()));
}

TEST(UrlCheck, DomainNames) {
    EXPECT_EQ(1, uParaUrlDomainCheck("a.b.c"));
    EXPECT_EQ(1, uParaUrlDomainCheck("localhost"));
    EXPECT_EQ(1, uParaUrlDomainCheck("h.com:8080"));
    EXPECT_EQ(0, uParaUrlDomainCheck("a.b.1"));
    EXPECT_EQ(0, uParaUrlDomainCheck("a.b.1:80"));
    EXPECT_EQ(0, uParaUrlDomainCheck("h.com/x"));
    EXPECT_EQ(0, uParaUrlDomainCheck(std::string(64, 'a').c_str())); // label over 63
    EXPECT_EQ(1, uParaUrlDomainCheck(std::string(63, 'a').c_str()));
    EXPECT_EQ(0, uParaUrlDomainCheck("a..b"));
    EXPECT_EQ(0, uParaUrlDomainCheck(""));
    EXPECT_EQ(0, uParaUrlDomainCheck(nullptr));
}

// The host-name check answers plain names without running the patterns; every short name over
// letters, digits, '-' and '.' must get the answer the patterns give.
TEST(UrlCheck, PlainHostNamesAgreeWithThePatterns) {
    regex_t hostName;
    regex_t allDigits;
    ASSERT_EQ(0, regcomp(&hostName, pu::url::kUrlPatterns[pu::url::kHostNamePattern],
                         REG_EXTENDED | REG_NEWLINE));
    ASSERT_EQ(0, regcomp(&allDigits, pu::url::kAllDigitsPattern, REG_EXTENDED | REG_NEWLINE));
    auto expected = [&](const std::string &name) {
        return regexec(&hostName, name.c_str(), 0, nullptr, 0) == 0 &&
               regexec(&allDigits, name.c_str(), 0, nullptr, 0) != 0;
    };
    std::vector<std::string> names = allTexts("a1-.", 6);
    for (const std::string &label :
         {std::string(62, 'x'), std::string(63, '9'), std::string(64, 'y')}) {
        names.push_back(label);
        names.push_back("a." + label);
        names.push_back(label + ".b");
    }
    int disagreements = 0;
    for (const std::string &name : names) {
        if ((uParaUrlDomainCheck(name.c_str()) == 1) != expected(name)) {
            ADD_FAILURE() << "'" << name << "'";
            if (++disagreements > 10) {
                break;
            }
        }
    }
    regfree(&hostName);
    regfree(&allDigits);
}

// The validator answers common URL shapes without running the patterns; every short text over
// the characters that shape a URL, alone and behind each kind of scheme, must get the answer
// the patterns give when tried one by one.
TEST(UrlCheck, QuickAnswersAgreeWithThePatterns) {
    std::vector<regex_t> patterns(pu::url::kUrlPatterns.size() + 1);
    for (std::size_t i = 0; i < patterns.size(); ++i) {
        const char *source = i < pu::url::kUrlPatterns.size() ? pu::url::kUrlPatterns[i]
                                                               : pu::url::kAllDigitsPattern;
        ASSERT_EQ(0, regcomp(&patterns[i], source, REG_EXTENDED | REG_NEWLINE));
    }
    auto expected = [&](const std::string &url) {
        const bool allDigits = regexec(&patterns.back(), url.c_str(), 0, nullptr, 0) == 0;
        for (std::size_t i = 0; i < pu::url::kUrlPatterns.size(); ++i) {
            if (regexec(&patterns[i], url.c_str(), 0, nullptr, 0) == 0 && (i < 4 || !allDigits)) {
                return 1;
            }
        }
        return 0;
    };
    std::vector<std::string> urls = allTexts("a1.:/@", 6);
    for (const char *prefix : {"http://", "FILE://", "mcast://", "u@", "1.2.3.4", "a.b"}) {
        for (const std::string &tail : allTexts("a0.:/@-)# \n", 4)) {
            urls.push_back(prefix + tail);
        }
    }
    for (const char *url :
         {"http://u:p@10.0.0.1:65535/x", "rtsp://255.255.255.255:1/", "http://1.0.0.1/",
          "http://01.0.0.1/", "http://1.0.0.256/", "a-b.c-d.e1:8080/p?q=1&r=(2)", "x.y.123",
          "x.y.123/", "x.123a", "HTTPS://u)@h.com/"}) {
        urls.emplace_back(url);
    }
    int disagreements = 0;
    for (const std::string &url : urls) {
        if (uParaUrlCheck(url.c_str()) != expected(url)) {
            ADD_FAILURE() << "'" << url << "'";
            if (++disagreements > 10) {
                break;
            }
        }
    }
    for (regex_t &preg : patterns) {
        regfree(&preg);
    }
}

TEST(UrlCheck, ConcurrentFirstUseAgreesWithSerialAnswers) {
    const std::vector<std::pair<const char *, int>> cases = {{"http://192.168.1.10:8080/a/b", 1},
                                                             {"host.123", 0},
                                                             {"http://[::1]/", 1},
                                                             {"h.com:65536", 0},
                                                             {"a-1.b2.c3", 1}};
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&] {
            for (int round = 0; round < 50; ++round) {
                for (const auto &[url, expected] : cases) {
                    if (uParaUrlCheck(url) != expected) {
                        ++wrong;
                    }
                }
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, wrong.load());
}

TEST(RestfulTemplate, ComparableRegex) {
    EXPECT_TRUE(templateMatches("/api/@id", "/api/42"));
    EXPECT_TRUE(templateMatches("/api/@id", "//api/42"));
    EXPECT_TRUE(templateMatches("/api/@id", "/api/42?x=1&y=2"));
    EXPECT_TRUE(templateMatches("/api/@id", "/api/a-b_c.d~e"));
    EXPECT_FALSE(templateMatches("/api/@id", "/api/42/more"));
    EXPECT_FALSE(templateMatches("/api/@id", "/api/"));
    EXPECT_FALSE(templateMatches("/api/@id", "/api/42?x"));
    EXPECT_FALSE(templateMatches("/api/@id", "/other/42"));
    EXPECT_TRUE(templateMatches("/dev/:d/ch/@c", "/dev/1/ch/2"));
    // Literal segments are expressions themselves: a '.' matches any character.
    EXPECT_TRUE(templateMatches("/a.b/@x", "/aXb/1"));
    // Without variables the template is used as it stands.
    EXPECT_TRUE(templateMatches("/plain/path", "/plain/path?k=v"));
    EXPECT_FALSE(templateMatches("/plain/path", "/plain/path/x"));
    // "@\x" is a literal segment, not a variable.
    EXPECT_FALSE(templateMatches("/x/@\\y", "/x/42"));

    regex_t preg;
    EXPECT_EQ(-1, uParaUrlGetComparableRegex(nullptr, &preg));
    EXPECT_EQ(-1, uParaUrlGetComparableRegex("", &preg));
    EXPECT_EQ(-1, uParaUrlGetComparableRegex("/a/@b", nullptr));
    EXPECT_EQ(-1, uParaUrlGetComparableRegex("/a(/@b", &preg)); // does not compile
    // Nested or stacked repetitions would take the compiler exponential time; refused at once.
    EXPECT_EQ(-1, uParaUrlGetComparableRegex("/x\\+++++++++/@a", &preg));
    EXPECT_EQ(-1, uParaUrlGetComparableRegex("/((((a+)+)+)+)+((((a+)+)+)+)+/@b", &preg));
    EXPECT_EQ(-1, uParaUrlGetComparableRegex("/(a{255}){255}/@b", &preg));
    EXPECT_EQ(-1, uParaUrlGetComparableRegex("+++++++\\@,/@b", &preg)); // stacks on "^/*"
    EXPECT_EQ(-1, uParaUrlGetComparableRegex("/a+*/@b", &preg));
    EXPECT_EQ(-1, uParaUrlGetComparableRegex("/(((((((((a)))))))))/@b", &preg));
    EXPECT_TRUE(templateMatches("/c+/(x|y)*/@v", "/cc/xy/1")); // single ones are taken as they are
}

TEST(RestfulTemplate, Variables) {
    EXPECT_EQ((Pairs{{"id", "3"}, {"ch", "5"}}), variables("/dev/3/ch/5", "/dev/@id/ch/:ch"));
    EXPECT_EQ((Pairs{{"v", "1,2"}}), variables("/x/1/y/2", "/x/@v/y/@v"));
    EXPECT_EQ((Pairs{{"v", "1,2,3"}}), variables("/1/2/3", "/@v/@v/@v"));
    EXPECT_EQ(Pairs{}, variables("/a/b", "/a/b"));
    // Literal segments are not compared; the query and empty segments do not count.
    EXPECT_EQ((Pairs{{"id", "7"}}), variables("//other//7?id=9", "/dev/@id"));
    // The URL may be shorter or longer than the template.
    EXPECT_EQ((Pairs{{"a", "1"}}), variables("/1", "/@a/@b"));
    EXPECT_EQ((Pairs{{"a", "1"}}), variables("/1/2/3", "/@a"));
    EXPECT_EQ(Pairs{}, variables("/x", "/x/@a"));
    EXPECT_EQ(Pairs{}, variables("/x/1", "/x/@\\y"));
    EXPECT_EQ((Pairs{{":", "1"}}), variables("/1", "/@:"));
    EXPECT_EQ(Pairs{}, variables("/1", "/@"));

    variables("/", "/@a", -1);
    variables("?q", "/@a", -1);
    variables("/1", "///", -1);
    variables(nullptr, "/@a", -1);
    variables("/1", nullptr, -1);
    EXPECT_EQ(-1, uParaUrlGetVariablesFromRestfulUrl("/1", "/@a", nullptr));
}
