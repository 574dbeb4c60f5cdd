// SPDX-License-Identifier: MIT
// A quick proof of acceptance for common URL shapes; nothing here is exported.
#pragma once

#include <string_view>

namespace pu::url {

// True only when url certainly matches an accepting URL pattern (and is not refused as a name
// ending in an all-digit label). False means "ask the patterns", not "refused".
bool provablyAcceptableUrl(std::string_view url);

} // namespace pu::url
