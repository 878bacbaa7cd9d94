// Recognising the library's log lines from its own table of log sites
// (hook/src/logsites.h): each site's prefix "<file>:<line> <function>() "
// and format become a matcher at start-up; a match names its LogSiteId.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "hook/src/logsites.h"

namespace explain {

// The conversion letters of a printf format ("%d, %s" gives "ds"; "%lld" gives "d").
std::string Conversions(std::string_view format);

// One recognised line: the site and its fields as text, in format order.
struct SiteMatch {
  const LogSite* site = nullptr;
  LogSiteId id{};                        // the story handles each in a switch: the compiler names a site it misses
  std::vector<std::string_view> fields;  // views into the message
  bool cut = false;                      // the line ended early (the library's 1023-character limit)
};

// Matches a message of the library's tag against every site. The message is
// the text after "TAG: " ("hook.cpp:17 GetStaticCapsHook() camera id: 0, ...").
// Returns false when no site matches.
bool MatchSite(std::string_view message, SiteMatch* match);

// Matches `text` against one printf format alone (no site prefix), as
// MatchSite matches a site's format; with `mayEnd` the text may stop anywhere
// in the format (a cut line). Fields as in SiteMatch.
bool MatchFormat(std::string_view format, std::string_view text, bool mayEnd, std::vector<std::string_view>* fields);

// The length a library line reaches when the library cut it.
inline constexpr size_t kCutLength = 1023;

}  // namespace explain
