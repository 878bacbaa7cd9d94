// The library's log sites: every line it logs through RemediumLog is a row of
// a table of its layer (the client's below, the image sensor state record's
// in core/, the hooks' in hook/src/hooklogsites.h), with its level, the file
// and line its prefix reports, the function it names and its format. The
// maker's log tools match these prefixes and texts as they stand, so a site's
// reported file, line and function are fixed in its row and do not follow the
// code around: moving or reformatting code never changes what is logged.
// hook/src/logsites.h joins the tables for the tools that read the log.
//
// A site is logged with REMEDIUM_LOG(Name, args...), which passes the site's
// format as a string constant, so the compiler checks the arguments against
// it. Sites that differ only in line, level or function are separate rows.
#pragma once

#include <cstddef>

#include "client/interface/remediumlog.h"

struct LogSite {
  const char* name;
  int level;
  const char* reportedFile;  // the path the prefix's base name comes from (not where the code is)
  int reportedLine;          // the line number the prefix reports
  const char* function;
  const char* format;
};

// A table's rows as constants of namespace logsite: NameFormat, the format as
// an array (for the compiler's format checks), and kName, the row.
// SITE(Name, level, reportedFile, reportedLine, function, format)
#define REMEDIUM_LOG_SITE_FORMAT(Name, level, reportedFile, reportedLine, function, format) \
  inline constexpr char Name##Format[] = format;
#define REMEDIUM_LOG_SITE_RECORD(Name, level, reportedFile, reportedLine, function, format) \
  inline constexpr LogSite k##Name{#Name, level, reportedFile, reportedLine, function, Name##Format};
#define REMEDIUM_DEFINE_LOG_SITES(TABLE) \
  namespace logsite {                    \
  TABLE(REMEDIUM_LOG_SITE_FORMAT)        \
  TABLE(REMEDIUM_LOG_SITE_RECORD)        \
  }

// The path the core client's lines report.
inline constexpr char kRemediumClientReportedFile[] = "client/interface/remediumclient.h";

// clang-format off
#define REMEDIUM_CLIENT_LOG_SITES(SITE) \
  /* Core client: a missing core, per wrapper and at load. */ \
  SITE(LoadRemediumNullCore, kLogError, kRemediumClientReportedFile, 90, "LoadRemedium", "m_pRemediumCore is NULL") \
  SITE(NotifyHookMessageNullCore, kLogError, kRemediumClientReportedFile, 111, "NotifyHookMessage", "m_pRemediumCore is NULL") \
  SITE(GetHookArgumentsNullCore, kLogError, kRemediumClientReportedFile, 131, "GetHookArguments", "m_pRemediumCore is NULL") \
  SITE(ProtectionCallbackNullCore, kLogError, kRemediumClientReportedFile, 152, "ProtectionCallback", "m_pRemediumCore is NULL") \
  SITE(IsSwitchOpenedNullCore, kLogError, kRemediumClientReportedFile, 191, "IsSwitchOpened", "m_pRemediumCore is NULL") \
  SITE(RecordProbeMessageNullCore, kLogError, kRemediumClientReportedFile, 212, "RecordProbeMessage", "m_pRemediumCore is NULL")
// clang-format on

REMEDIUM_DEFINE_LOG_SITES(REMEDIUM_CLIENT_LOG_SITES)

namespace logsite {

// True when `format` converts exactly one argument, a "%s" (a "%%" converts
// none): the sites that LogSiteText logs take one string.
consteval bool TakesOneString(const char* format) {
  int strings = 0;
  for (const char* p = format; *p != '\0'; ++p) {
    if (*p != '%') continue;
    ++p;
    if (*p == '%') continue;
    if (*p != 's') return false;
    ++strings;
  }
  return strings == 1;
}

}  // namespace logsite

// Logs site `Name` of its layer's table with the format's arguments.
// A line below the level returns before its arguments are evaluated; no
// site's arguments have side effects.
#define REMEDIUM_LOG(Name, ...)                                                                               \
  do {                                                                                                        \
    if (!RemediumLogDropped(::logsite::k##Name.level)) {                                                      \
      RemediumLog(::logsite::k##Name.level, ::logsite::k##Name.reportedFile, ::logsite::k##Name.reportedLine, \
                  ::logsite::k##Name.function, ::logsite::Name##Format __VA_OPT__(, ) __VA_ARGS__);           \
    }                                                                                                         \
  } while (false)

// Logs a site chosen at run time whose format takes exactly one string;
// callers static_assert logsite::TakesOneString on every site they pass.
void LogSiteText(const LogSite& site, const char* text);
