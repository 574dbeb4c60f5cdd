// A quick proof of acceptance for common URL shapes; nothing here is exported.
#pragma once

#include <string_view>

namespace pu::para {

// True only when url certainly matches an accepting URL pattern (and is not refused as a name
// ending in an all-digit label). False means "ask the patterns", not "refused".
bool provablyAcceptableUrl(std::string_view url);

} // namespace pu::para
