// The story as a trace for ui.perfetto.dev and chrome://tracing: the Trace
// Event Format's JSON object form ({"traceEvents": [...], ...}).
//
// Each camera process of each boot is a trace process ("boot 1 camera process
// 4321"), each camera of it a thread ("camera 0 (slot 0)", "no camera named").
// Each event of the story is an instant on its camera's thread, named by its
// kind, with its text, place and attempt as arguments; each sensor or EEPROM
// probe attempt is a slice around its events ("sensor probe attempt 2").
// Times are microseconds from the story's first known time.
#pragma once

#include <iosfwd>

#include "explain/story.h"

namespace explain {

// Writes the trace to `out` event by event, never the whole document at once.
// Texts that are not valid UTF-8 have their bad bytes replaced (U+FFFD).
void WriteTrace(const Story& story, std::ostream& out);

}  // namespace explain
