// Recognising the library's log lines from its own table of log sites
// (hook/src/logsites.h): each site's prefix "<file>:<line> <function>() "
// and format become a matcher at start-up, and each site has one role in the
// story. Every site of the table must have a role here; the build checks it.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "hook/src/logsites.h"

namespace explain {

// What a site's line means to the story.
enum class SiteRole {
  kDecision,  // the library decided something (or shows the outcome of a probe)
  kContext,   // values the story uses to explain the decisions around it
};

struct SiteTeaching {
  const char* name;  // the site's name in REMEDIUM_LOG_SITES
  SiteRole role;
  const char* conversions;  // the format's conversions in order, one letter each: d x s p
};

// The role of every site, in table order; the teaching of one site, or null.
std::span<const SiteTeaching> SiteTeachings();
const SiteTeaching* TeachingOf(std::string_view name);

// The conversion letters of a printf format ("%d, %s" gives "ds"; "%lld" gives "d").
std::string Conversions(std::string_view format);

// One recognised line: the site and its fields as text, in format order.
struct SiteMatch {
  const LogSite* site = nullptr;
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
