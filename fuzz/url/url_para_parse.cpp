// SPDX-License-Identifier: MIT
// uParaUrlParse, uParaUrlCompose and uParaUrlFree: only validated URLs parse, a composed text
// stays inside its buffer, and credential removal and path replacement never overrun.
#include "url_fuzz_support.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    const auto outSize = input.ConsumeIntegralInRange<std::size_t>(0, 400);
    const std::string newPath = pu::fuzz::consumeText(input, 40);
    const std::string url = pu::fuzz::remainingText(input);
    UParaUrlInfo *rec = nullptr;
    const bool parsed = uParaUrlParse(url.c_str(), &rec) == 1;
    if (!parsed) {
        pu::fuzz::require(rec == nullptr, "failed parse left a record");
    } else {
        pu::fuzz::require(rec->transport != nullptr || uParaUrlCheck(url.c_str()) == 1,
                          "parsed a URL the validator refuses");
        pu::fuzz::ExactBuffer out(outSize);
        if (uParaUrlCompose(rec, out.data(), static_cast<int32_t>(outSize)) == 0) {
            out.requireTerminated("composed text not terminated");
        }
        uParaUrlFree(rec);
    }
    pu::fuzz::ExactBuffer dst(outSize);
    if (uParaUrlRemoveUserAndPasswd(url.c_str(), dst.data(), static_cast<uint32_t>(outSize)) == 0) {
        pu::fuzz::require(parsed, "credentials removed from an unparsable URL");
    }
    std::vector<char> inPlace(url.size() + 1 + outSize % 64);
    std::memcpy(inPlace.data(), url.c_str(), url.size() + 1);
    uParaUrlReplaceUrlPath(inPlace.data(), static_cast<uint32_t>(inPlace.size()), newPath.c_str());
    pu::fuzz::requireTerminated(inPlace.data(), inPlace.size(), "replaced path not terminated");
    return 0;
}
