// SPDX-License-Identifier: MIT
// uParaUrlCheck and uParaUrlDomainCheck against the same patterns compiled here the plain way
// (with sub-match recording, every pattern tried): the cached, shortcut validator must give the
// same answers. A host name is always an acceptable URL.
#include "url_fuzz_support.hpp"

#include "url/url_patterns.hpp"

#include <regex.h>

namespace {

struct Reference {
    Reference() {
        for (std::size_t i = 0; i < pu::url::kUrlPatterns.size(); ++i) {
            ok[i] =
                regcomp(&patterns[i], pu::url::kUrlPatterns[i], REG_EXTENDED | REG_NEWLINE) == 0;
        }
        digitsOk = regcomp(&allDigits, pu::url::kAllDigitsPattern, REG_EXTENDED | REG_NEWLINE) == 0;
    }
    bool matches(std::size_t i, const char *text) const {
        regmatch_t m[4];
        return ok[i] && regexec(&patterns[i], text, 4, m, 0) == 0;
    }
    bool digits(const char *text) const {
        regmatch_t m[4];
        return digitsOk && regexec(&allDigits, text, 4, m, 0) == 0;
    }
    int check(const char *url) const {
        for (std::size_t i = 0; i < pu::url::kUrlPatterns.size(); ++i) {
            if (matches(i, url) && (i < 4 || !digits(url))) {
                return 1;
            }
        }
        return 0;
    }
    regex_t patterns[7];
    bool ok[7] = {};
    regex_t allDigits;
    bool digitsOk = false;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 4096) {
        return 0; // the regular expressions dominate; longer texts find nothing new
    }
    static const Reference reference;
    const std::string url(reinterpret_cast<const char *>(data), size);
    const int32_t accepted = uParaUrlCheck(url.c_str());
    pu::fuzz::require(accepted == reference.check(url.c_str()), "differs from the plain check");
    const int32_t domain = uParaUrlDomainCheck(url.c_str());
    const int expectedDomain =
        reference.matches(pu::url::kHostNamePattern, url.c_str()) && !reference.digits(url.c_str());
    pu::fuzz::require(domain == expectedDomain, "domain check differs");
    pu::fuzz::require(domain == 0 || accepted == 1, "a host name that is no acceptable URL");
    return 0;
}
