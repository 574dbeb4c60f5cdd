// SPDX-License-Identifier: MIT
// The URL acceptance patterns, shared by the validators and by the benchmark that measures them
// against compiling per call. POSIX extended syntax; inside brackets a backslash is an ordinary
// member, and the stray ")?" after the user part of the host-name patterns is an optional
// literal ')' under the extended syntax. Both are intended: they decide which URLs pass, and
// applications depend on exactly that set.
#pragma once

#include <array>

namespace pu::url {

// Tried in this order by uParaUrlCheck.
inline constexpr std::array<const char *, 7>
    kUrlPatterns =
        {
            // IPv4 host, with a path.
            R"re(^((tftp|http|https|ftp|ldap|rtsp|mcast|file|TFTP|HTTP|HTTPS|FTP|LDAP|RTSP|MCAST|FILE)://)?([a-zA-Z0-9!_~=;,:&'%`{}\*\?\^\.\(\)\|\-]+(:([a-zA-Z0-9!_~=;,:&'%`{}\*\?\^\.\(\)\|\-]+))?@)?((25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[1-9])\.(25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[0-9])\.(25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[0-9])\.(25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[1-9]))(:6553[0-5]|:655[0-2][0-9]|:65[0-4][0-9][0-9]|:6[0-4][0-9]{3}|:[1-5][0-9]{4}|:[1-9][0-9]{1,3}|:[1-9])?/[a-zA-Z0-9\.\,\?\'\/\+&%$_=~@!()*;:-]*$)re",
            // IPv4 host, without a path.
            R"re(^((tftp|http|https|ftp|ldap|rtsp|mcast|file|TFTP|HTTP|HTTPS|FTP|LDAP|RTSP|MCAST|FILE)://)?([a-zA-Z0-9!_~=;,:&'%`{}\*\?\^\.\(\)\|\-]+(:([a-zA-Z0-9!_~=;,:&'%`{}\*\?\^\.\(\)\|\-]+))?@)?((25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[1-9])\.(25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[0-9])\.(25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[0-9])\.(25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9][0-9]|[1-9]))(:6553[0-5]|:655[0-2][0-9]|:65[0-4][0-9][0-9]|:6[0-4][0-9]{3}|:[1-5][0-9]{4}|:[1-9][0-9]{1,3}|:[1-9])?$)re",
            // bracketed IPv6 host, with a path.
            R"re(^((tftp|http|https|ftp|ldap|rtsp|mcast|file|TFTP|HTTP|HTTPS|FTP|LDAP|RTSP|MCAST|FILE)://)?([a-zA-Z0-9!_~=;,:&'%`{}\*\?\^\.\(\)\|\-]+(:([a-zA-Z0-9!_~=;,:&'%`{}\*\?\^\.\(\)\|\-]+))?@)?([[]([0-9a-fA-F]{1,4}:){7}[0-9a-fA-F]{1,4}[]]|[[]:((:[0-9a-fA-F]{1,4}){1,6}|:)[]]|[[][0-9a-fA-F]{1,4}:((:[0-9a-fA-F]{1,4}){1,6}|:)[]]|[[]([0-9a-fA-F]{1,4}:){2}((:[0-9a-fA-F]{1,4}){1,5}|:)[]]|[[]([0-9a-fA-F]{1,4}:){3}((:[0-9a-fA-F]{1,4}){1,4}|:)[]]|[[]([0-9a-fA-F]{1,4}:){4}((:[0-9a-fA-F]{1,4}){1,3}|:)[]]|[[]([0-9a-fA-F]{1,4}:){5}((:[0-9a-fA-F]{1,4}){1,2}|:)[]]|[[]([0-9a-fA-F]{1,4}:){6}((:[0-9a-fA-F]{1,4})|:)[]])(:6553[0-5]|:655[0-2][0-9]|:65[0-4][0-9][0-9]|:6[0-4][0-9]{3}|:[1-5][0-9]{4}|:[1-9][0-9]{1,3}|:[1-9])?/[a-zA-Z0-9\.\,\?\'\/\+&%$_=~@!()*;:-]*$)re",
            // bracketed IPv6 host, without a path.
            R"re(^((tftp|http|https|ftp|ldap|rtsp|mcast|file|TFTP|HTTP|HTTPS|FTP|LDAP|RTSP|MCAST|FILE)://)?([a-zA-Z0-9!_~=;,:&'%`{}\*\?\^\.\(\)\|\-]+(:([a-zA-Z0-9!_~=;,:&'%`{}\*\?\^\.\(\)\|\-]+))?@)?([[]([0-9a-fA-F]{1,4}:){7}[0-9a-fA-F]{1,4}[]]|[[]:((:[0-9a-fA-F]{1,4}){1,6}|:)[]]|[[][0-9a-fA-F]{1,4}:((:[0-9a-fA-F]{1,4}){1,6}|:)[]]|[[]([0-9a-fA-F]{1,4}:){2}((:[0-9a-fA-F]{1,4}){1,5}|:)[]]|[[]([0-9a-fA-F]{1,4}:){3}((:[0-9a-fA-F]{1,4}){1,4}|:)[]]|[[]([0-9a-fA-F]{1,4}:){4}((:[0-9a-fA-F]{1,4}){1,3}|:)[]]|[[]([0-9a-fA-F]{1,4}:){5}((:[0-9a-fA-F]{1,4}){1,2}|:)[]]|[[]([0-9a-fA-F]{1,4}:){6}((:[0-9a-fA-F]{1,4})|:)[]])(:6553[0-5]|:655[0-2][0-9]|:65[0-4][0-9][0-9]|:6[0-4][0-9]{3}|:[1-5][0-9]{4}|:[1-9][0-9]{1,3}|:[1-9])?$)re",
            // host name, with a path.
            R"re(^((tftp|http|https|ftp|ldap|rtsp|TFTP|HTTP|HTTPS|FTP|LDAP|RTSP)://)?([a-zA-Z0-9!_~=;,:&'%`{}\*\?\^\.\(\)\|\-]+(:([a-zA-Z0-9!_~=;,:&'%`{}\*\?\^\.\(\)\|\-]+))?@)?)?([a-zA-Z0-9]([a-zA-Z0-9\-]{0,61}[a-zA-Z0-9])?)(\.[a-zA-Z0-9]([a-zA-Z0-9\-]{0,61}[a-zA-Z0-9])?)*(:6553[0-5]|:655[0-2][0-9]|:65[0-4][0-9][0-9]|:6[0-4][0-9]{3}|:[1-5][0-9]{4}|:[1-9][0-9]{1,3}|:[1-9])?/[a-zA-Z0-9\.\,\?\'\/\+&%$_=~@!()*;:-]*$)re",
            // host name, without a path.
            R"re(^((tftp|http|https|ftp|ldap|rtsp|TFTP|HTTP|HTTPS|FTP|LDAP|RTSP)://)?([a-zA-Z0-9!_~=;,:&'%`{}\*\?\^\.\(\)\|\-]+(:([a-zA-Z0-9!_~=;,:&'%`{}\*\?\^\.\(\)\|\-]+))?@)?)?([a-zA-Z0-9]([a-zA-Z0-9\-]{0,61}[a-zA-Z0-9])?)(\.[a-zA-Z0-9]([a-zA-Z0-9\-]{0,61}[a-zA-Z0-9])?)*(:6553[0-5]|:655[0-2][0-9]|:65[0-4][0-9][0-9]|:6[0-4][0-9]{3}|:[1-5][0-9]{4}|:[1-9][0-9]{1,3}|:[1-9])?$)re",
            // host name or no host, scheme file only, with a path; deliberately not anchored at the
            // end.
            R"re(^((file)://)?([a-zA-Z0-9!_~=;,:&'%`{}\*\?\^\.\(\)\|\-]+(:([a-zA-Z0-9!_~=;,:&'%`{}\*\?\^\.\(\)\|\-]+))?@)?(([a-zA-Z0-9]([a-zA-Z0-9\-]{0,61}[a-zA-Z0-9])?\.)+([a-zA-Z0-9]([a-zA-Z0-9\-]{0,61}[a-zA-Z0-9])?))?(:6553[0-5]|:655[0-2][0-9]|:65[0-4][0-9][0-9]|:6[0-4][0-9]{3}|:[1-5][0-9]{4}|:[1-9][0-9]{1,3}|:[1-9])?/[a-zA-Z0-9\.\,\?\'\/\+&%$_=~@]*)re",
};

// The host name pattern (without a path) on its own: uParaUrlDomainCheck.
inline constexpr std::size_t kHostNamePattern = 5;

// Matches a host name whose last label is all digits; such names are refused.
inline constexpr const char *kAllDigitsPattern =
    R"re(^((tftp|http|https|ftp|ldap|rtsp|TFTP|HTTP|HTTPS|FTP|LDAP|RTSP)://)?([a-zA-Z0-9!_~=;,:&'%`{}\*\?\^\.\(\)\|\-]+(:([a-zA-Z0-9!_~=;,:&'%`{}\*\?\^\.\(\)\|\-]+))?@)?)?([a-zA-Z0-9]([a-zA-Z0-9\-]{0,61}[a-zA-Z0-9])?\.)+(([0-9]{1,63})$|(([0-9]{1,63})([:/])(.)*)))re";

} // namespace pu::url
