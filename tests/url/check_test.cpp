// SPDX-License-Identifier: MIT
// URL and host-name validation against the acceptance patterns run exhaustively, and RESTful
// templates and their variables.
#include "call_table.hpp"
#include "test_support.hpp"

#include <gtest/gtest.h>

#include "url/url_patterns.hpp"

#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace {

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

// The validators answer common shapes without running the patterns; every short text over the
// characters that shape a URL, alone and behind each kind of scheme, gets the answers the patterns
// give when compiled the plain way and tried one by one.
TEST(UrlCheck, QuickAnswersAgreeWithThePatternsExhaustively) {
    const std::size_t digits = pu::url::kUrlPatterns.size();
    regex_t patterns[digits + 1];
    for (std::size_t i = 0; i <= digits; ++i) {
        ASSERT_EQ(0, regcomp(&patterns[i],
                             i < digits ? pu::url::kUrlPatterns[i] : pu::url::kAllDigitsPattern,
                             REG_EXTENDED | REG_NEWLINE));
    }
    auto matches = [&](std::size_t i, const std::string &text) {
        return regexec(&patterns[i], text.c_str(), 0, nullptr, 0) == 0;
    };
    std::vector<std::string> urls = allTexts("a1.:/@", 6);
    const std::vector<std::string> names = allTexts("a1-.", 6);
    urls.insert(urls.end(), names.begin(), names.end());
    for (const std::string &label :
         {std::string(62, 'x'), std::string(63, '9'), std::string(64, 'y')}) {
        urls.insert(urls.end(), {label, "a." + label, label + ".b"});
    }
    for (const char *prefix : {"http://", "FILE://", "mcast://", "u@", "1.2.3.4", "a.b"}) {
        for (const std::string &tail : allTexts("a0.:/@-)# \n", 4)) {
            urls.push_back(prefix + tail);
        }
    }
    urls.insert(urls.end(),
                {"http://u:p@10.0.0.1:65535/x", "http://01.0.0.1/", "http://1.0.0.256/",
                 "a-b.c-d.e1:8080/p?q=1&r=(2)", "HTTPS://u)@h.com/", "http://[fe80::1]:80/x",
                 "[1:2:3:4:5:6:7:8]", "h.com:65536", "10.0.0.1:0", "Http://h.com"});
    int disagreements = 0;
    for (const std::string &url : urls) {
        const bool allDigits = matches(digits, url);
        int expected = 0;
        for (std::size_t i = 0; i < digits && expected == 0; ++i) {
            expected = matches(i, url) && (i < 4 || !allDigits);
        }
        const int domain = matches(pu::url::kHostNamePattern, url) && !allDigits;
        if ((uParaUrlCheck(url.c_str()) != expected ||
             uParaUrlDomainCheck(url.c_str()) != domain) &&
            ++disagreements <= 10) {
            ADD_FAILURE() << "'" << url << "'";
        }
    }
    for (regex_t &preg : patterns) {
        regfree(&preg);
    }
}

TEST(UrlCheck, KnownAnswersFromManyThreadsAtFirstUse) {
    pu::test::fanOut(8, [&](int) {
        EXPECT_EQ(uParaUrlCheck("rtsp://admin:pw@10.0.0.2:554/live"), 1);
        EXPECT_EQ(uParaUrlCheck("file:///etc/passwd"), 1);
        EXPECT_EQ(uParaUrlCheck("mcast://h.com"), 0);
        EXPECT_EQ(uParaUrlCheck("http://[::g]"), 0);
    });
    EXPECT_EQ(0, uParaUrlCheck(nullptr) + uParaUrlDomainCheck(nullptr));
    EXPECT_EQ(0, uParaUrlCheck(std::string(100000, 'a').append(".1").c_str()));
}

TEST(RestfulTemplate, ComparableRegex) {
    // "<template> <path>" and whether the path matches.
    const std::pair<const char *, int> rows[] = {
        {"/api/@id //api/42?x=1&y=2", 1},
        {"/api/@id /api/42/more", 0},
        {"/api/@id /api/42?x", 0},
        {"/dev/:d/ch/@c /dev/1/ch/2", 1},
        {"/a.b/@x /aXb/1", 1}, // literal segments are expressions themselves
        {"/x/@\\y /x/42", 0},  // "@\" starts no variable
        {"/plain/path /plain/path?k=v", 1}};
    for (const auto &[text, matches] : rows) {
        const std::string templ = std::string(text).substr(0, std::strchr(text, ' ') - text);
        regex_t preg;
        ASSERT_EQ(0, uParaUrlGetComparableRegex(templ.c_str(), &preg)) << text;
        EXPECT_EQ(regexec(&preg, std::strchr(text, ' ') + 1, 0, nullptr, 0) == 0, matches) << text;
        regfree(&preg);
    }
    // Nested or stacked repetitions would take the compiler exponential time: refused at once.
    for (const char *refused : {"", "/a(/@b", "/((((a+)+)+)+)+((((a+)+)+)+)+/@b",
                                "/(a{255}){255}/@b", "+++++++\\@,/@b", "/(((((((((a)))))))))/@b"}) {
        regex_t preg;
        EXPECT_EQ(-1, uParaUrlGetComparableRegex(refused, &preg)) << refused;
    }
}

// "<result>:" and each pair as " key=value".
std::string variables(const char *url, const char *templ) {
    uList *list = reinterpret_cast<uList *>(1);
    const int32_t result = uParaUrlGetVariablesFromRestfulUrl(url, templ, &list);
    std::string out = std::to_string(result) + ":";
    for (uListNode *node = result == 0 && list != nullptr ? list->head : nullptr; node != nullptr;
         node = node->next) {
        const auto *pair = static_cast<const UParaUrlPair *>(node->data);
        out += std::string(" ") + pair->key + "=" + pair->value;
    }
    if (result == 0) {
        uParaUrlQueryListDestroy(list);
    }
    return out;
}

TEST(RestfulTemplate, Variables) {
    pu::test::checkRows({
        // Literal segments are not compared; the query and empty segments do not count; a name
        // met again collects its values.
        PU_ROW(variables("/dev/3/ch/5", "/dev/@id/ch/:ch"), "0: id=3 ch=5"),
        PU_ROW(variables("/1/2/3", "/@v/@v/@v"), "0: v=1,2,3"),
        PU_ROW(variables("//other//7?id=9", "/dev/@id"), "0: id=7"),
        PU_ROW(variables("/1", "/@a/@b"), "0: a=1"),
        PU_ROW(variables("/1", "/@:"), "0: :=1"),
        PU_ROW(variables("/", "/@a") + variables("/1", "///"), "-1:-1:"),
        PU_ROW(uParaUrlGetVariablesFromRestfulUrl("/1", "/@a", nullptr), -1),
    });
}

} // namespace
