// SPDX-License-Identifier: MIT
// uXmlParseFromBuf on arbitrary bytes, with handlers that suspend, resume or abort the parse at
// points chosen by the input. Every parse must end with its parser gone from the map.
#include <uxmlparser.h>

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace {

enum class Action { kNone, kPause, kStop };

struct Script {
    std::vector<uint8_t> choices;
    std::size_t next = 0;
    int events = 0;
    bool stopped = false;

    // One action per event, read from the input in turn.
    Action take() {
        ++events;
        const uint8_t choice = next < choices.size() ? choices[next++] : 0;
        if (choice < 200) {
            return Action::kNone;
        }
        return choice < 250 ? Action::kPause : Action::kStop;
    }
};

void act(void *user) {
    auto *script = static_cast<Script *>(user);
    switch (script->take()) {
    case Action::kPause:
        (void)uXmlParserPause(user, 1);
        break;
    case Action::kStop:
        uXmlParserStop(user);
        script->stopped = true;
        break;
    case Action::kNone:
        break;
    }
}

void onStart(void *user, const char *name, const char **attributes) {
    for (const char **a = attributes; *a != nullptr; ++a) {
        if (**a == '\x01') {
            std::abort(); // never produced; keeps the attribute walk from being optimised out
        }
    }
    (void)name;
    act(user);
}

void onText(void *user, const char *text, int length) {
    if (length <= 0 || text == nullptr) {
        std::abort();
    }
    act(user);
}

void onEnd(void *user, const char *) {
    act(user);
}

bool parseMapEmpty() {
    static int nobody;
    return uXmlParserPause(&nobody, 1) == -1;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    Script script;
    script.choices = input.ConsumeBytes<uint8_t>(input.ConsumeIntegralInRange<std::size_t>(0, 64));
    const std::string trailer = input.ConsumeRandomLengthString(8);
    const std::string text = input.ConsumeRemainingBytesAsString();

    const int32_t result =
        uXmlParseFromBuf(text.c_str(), trailer.c_str(), &script, onStart, onText, onEnd);
    if (result != 0 && result != -1) {
        std::abort();
    }
    // A suspended parse stays in the map until resumed to its end; each resume delivers at least
    // one more event or finishes, so this ends.
    for (int resumes = 0; !parseMapEmpty(); ++resumes) {
        if (resumes > 4 * static_cast<int>(text.size()) + 8 || result != 0) {
            std::abort();
        }
        (void)uXmlParserPause(&script, 0);
    }
    return 0;
}
