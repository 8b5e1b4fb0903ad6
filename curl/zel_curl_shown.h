/// \file
/// What may leave the process in a message, a status line or a trace, and what may be part of a file name.
#pragma once

#include <string>
#include <string_view>

namespace transfer {

/// The text with "***" in place of the user information of URLs ("user:password@", with or without "://" before it)
/// and of the values of header lines that authenticate somebody, and with '?' in place of control characters. Tabs and
/// line ends stay. A text that was shown before does not change any more.
[[nodiscard]] std::string shown(std::string_view text);

/// The text with every control character replaced: C0, DEL, and C1 as a character of UTF-8 or as a lone byte.
/// \param kept control characters that stay
[[nodiscard]] std::string withoutControls(std::string_view text, char replacement, std::string_view kept = {});

} // namespace transfer
