#include "sim/fleet/fleet.h"

namespace fleet {

// One row per report, boot, camera process, camera and event, as explain tells
// them; the camera's flags and failure signature are computed at ingest so that
// a summary over 100,000 reports is a few GROUP BY queries.
const char kSchema[] = R"sql(
PRAGMA foreign_keys = ON;
CREATE TABLE IF NOT EXISTS reports (
  id INTEGER PRIMARY KEY,
  hash TEXT NOT NULL UNIQUE,          -- SHA-256 of the file's bytes: a report ingested once
  path TEXT NOT NULL,                 -- where it was found (the first time)
  status TEXT NOT NULL CHECK (status IN ('ok', 'rejected')),
  reason TEXT,                        -- rejected: explain's one-line reason
  build TEXT,                         -- ro.build.fingerprint
  build_id TEXT,                      -- ro.build.id (or ro.build.display.id)
  model TEXT,                         -- ro.product.model
  hw TEXT,                            -- ro.boot.hardware.revision (or ro.revision)
  report_time TEXT,                   -- the "== dumpstate: " time
  ingested_at TEXT NOT NULL
);
CREATE TABLE IF NOT EXISTS boots (
  id INTEGER PRIMARY KEY,
  report_id INTEGER NOT NULL REFERENCES reports(id) ON DELETE CASCADE,
  ordinal INTEGER NOT NULL,           -- 1-based, in the story's order
  label TEXT,                         -- how it is known to be a boot ("the boot before, ...")
  previous INTEGER NOT NULL,          -- 1: a LAST LOGCAT boot
  log_level_note TEXT
);
CREATE TABLE IF NOT EXISTS processes (
  id INTEGER PRIMARY KEY,
  boot_id INTEGER NOT NULL REFERENCES boots(id) ON DELETE CASCADE,
  pid INTEGER NOT NULL,
  first_time TEXT,
  last_time TEXT,
  ending TEXT,                        -- "signal 6 (SIGABRT)" when the log shows it
  skipped_before INTEGER NOT NULL DEFAULT 0
);
CREATE TABLE IF NOT EXISTS cameras (
  id INTEGER PRIMARY KEY,
  process_id INTEGER NOT NULL REFERENCES processes(id) ON DELETE CASCADE,
  camera INTEGER,                     -- NULL: lines that name no camera
  slot INTEGER,
  sensor TEXT,                        -- the last attempt's module
  attempts INTEGER NOT NULL,          -- sensor probe attempts in the log
  outcome TEXT,                       -- "kept", "failed", ... of the last attempt
  how TEXT,                           -- "by bypass", ...
  summary TEXT,                       -- explain's summary line
  first_probe_failed INTEGER NOT NULL,
  bypass_taken INTEGER NOT NULL,
  kernel_retry INTEGER NOT NULL,
  forced_eeprom INTEGER NOT NULL,
  hidden_init INTEGER NOT NULL,
  hidden_config INTEGER NOT NULL,
  lost INTEGER NOT NULL,              -- the last attempt failed
  incomplete INTEGER NOT NULL,        -- a gap, a late start or an undetermined decision
  signature TEXT                      -- "slot 0: imx582_rear -19 > s5kgm2_rear -110 x3 > s5kgm2_rear bypass"
);
CREATE TABLE IF NOT EXISTS events (
  id INTEGER PRIMARY KEY,
  camera_id INTEGER NOT NULL REFERENCES cameras(id) ON DELETE CASCADE,
  ordinal INTEGER NOT NULL,
  kind TEXT NOT NULL,                 -- explain's event kinds
  attempt INTEGER NOT NULL,
  time TEXT,
  micros INTEGER,
  place TEXT,                         -- "FILE:LINE"
  text TEXT NOT NULL
);
CREATE TABLE IF NOT EXISTS notes (
  camera_id INTEGER NOT NULL REFERENCES cameras(id) ON DELETE CASCADE,
  note TEXT NOT NULL
);
CREATE TABLE IF NOT EXISTS recorded_state (
  boot_id INTEGER NOT NULL REFERENCES boots(id) ON DELETE CASCADE,
  camera INTEGER NOT NULL,
  line TEXT NOT NULL
);
CREATE TABLE IF NOT EXISTS reading_notes (
  report_id INTEGER NOT NULL REFERENCES reports(id) ON DELETE CASCADE,
  note TEXT NOT NULL
);
CREATE INDEX IF NOT EXISTS boots_report ON boots(report_id);
CREATE INDEX IF NOT EXISTS processes_boot ON processes(boot_id);
CREATE INDEX IF NOT EXISTS cameras_process ON cameras(process_id);
CREATE INDEX IF NOT EXISTS events_camera ON events(camera_id);
)sql";

}  // namespace fleet
