// Every log site of the library, the tables of its layers joined: for the
// tools that read the library's log (remedium-sim explain) and the tests.
// LogSiteId names each row; a `switch` over it without `default:` makes the
// compiler name any site a reader does not handle.
#pragma once

#include <cstddef>
#include <cstdint>

#include "client/interface/logsites.h"
#include "core/model/monitor/interface/imagesensorstatelogsites.h"
#include "hook/src/hooklogsites.h"

#define REMEDIUM_LOG_SITES(SITE)              \
  REMEDIUM_CLIENT_LOG_SITES(SITE)             \
  REMEDIUM_IMAGE_SENSOR_STATE_LOG_SITES(SITE) \
  REMEDIUM_HOOK_LOG_SITES(SITE)

#define REMEDIUM_LOG_SITE_ID(Name, level, reportedFile, reportedLine, function, format) k##Name,
enum class LogSiteId : uint8_t { REMEDIUM_LOG_SITES(REMEDIUM_LOG_SITE_ID) };
#undef REMEDIUM_LOG_SITE_ID

namespace logsite {

// Every site, in LogSiteId order: kAll[static_cast<size_t>(id)] is the row of `id`.
#define REMEDIUM_LOG_SITE_ENTRY(Name, level, reportedFile, reportedLine, function, format) k##Name,
inline constexpr LogSite kAll[] = {REMEDIUM_LOG_SITES(REMEDIUM_LOG_SITE_ENTRY)};
#undef REMEDIUM_LOG_SITE_ENTRY

}  // namespace logsite
