// remedium-sim fleet ingest: bug reports told by explain into the database.
// Worker threads hash, read and tell reports; one writer (the calling thread)
// inserts each in a transaction of its own, so that an interrupted run keeps
// what it committed and a new run goes on from there. A bounded queue between
// them keeps memory to a few stories whatever the number of reports.
#include "sim/fleet/ingest.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <deque>
#include <filesystem>
#include <mutex>
#include <thread>

#include "explain/input.h"
#include "explain/story.h"
#include "sim/fleet/db.h"
#include "sim/fleet/fleet.h"
#include "sim/fleet/sha256.h"

namespace fleet {
namespace {

struct Found {
  std::string path;
  int64_t size = 0;
  int64_t mtimeNs = 0;
};

// A report as a worker leaves it for the writer.
struct Told {
  enum class Kind {
    kKnown,       // path, size and time as recorded: nothing to write
    kSeen,        // read and hashed, the hash already in the database: its file recorded
    kRejected,    // not a report explain can read: recorded with the reason
    kOk,          // told: every row written
    kUnreadable,  // the file's bytes could not be read: nothing to write, the reason on stderr
  };
  Kind kind = Kind::kKnown;
  const Found* file = nullptr;
  std::string hash;
  std::string reason;
  std::optional<std::string> reportTime;
  explain::Story story;
};

// The story's sink, also keeping the names of the inputs a report holds (a zip's members).
class TellingSink : public explain::StorySink {
 public:
  void BeginInput(std::string_view source, InputKind kind) override {
    if (!reportTime) reportTime = TimeFromName(source);
    StorySink::BeginInput(source, kind);
  }
  std::optional<std::string> reportTime;
};

bool IsReportName(const std::filesystem::path& path) {
  std::string extension = path.extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return extension == ".zip" || extension == ".txt";
}

// The files the arguments name: a folder's *.zip and *.txt, searched recursively, in name order.
bool FindReports(const std::vector<std::string>& paths, std::vector<Found>& found, std::string* error) {
  std::vector<std::string> names;
  for (const std::string& path : paths) {
    std::error_code code;
    const std::filesystem::file_status status = std::filesystem::status(path, code);
    if (code || !std::filesystem::exists(status)) {
      *error = explain::PrintableName(path) + ": no such file or folder";
      return false;
    }
    if (!std::filesystem::is_directory(status)) {
      names.push_back(path);
      continue;
    }
    std::vector<std::string> inFolder;
    for (auto it = std::filesystem::recursive_directory_iterator(
             path, std::filesystem::directory_options::skip_permission_denied, code);
         !code && it != std::filesystem::recursive_directory_iterator(); it.increment(code)) {
      if (IsReportName(it->path()) && it->is_regular_file(code)) inFolder.push_back(it->path().string());
    }
    if (code) {
      *error = explain::PrintableName(path) + ": " + code.message();
      return false;
    }
    std::sort(inFolder.begin(), inFolder.end());
    names.insert(names.end(), inFolder.begin(), inFolder.end());
  }
  for (const std::string& name : names) {
    struct stat info{};
    Found file{name};
    if (::stat(name.c_str(), &info) == 0) {
      file.size = info.st_size;
      file.mtimeNs = int64_t{info.st_mtim.tv_sec} * 1'000'000'000 + info.st_mtim.tv_nsec;
    }
    found.push_back(std::move(file));
  }
  return true;
}

// Workers' results on their way to the writer, at most `capacity` at once.
class Queue {
 public:
  explicit Queue(size_t capacity) : m_capacity(capacity) {}
  void Push(Told told) {
    std::unique_lock lock(m_mutex);
    m_notFull.wait(lock, [&] { return m_items.size() < m_capacity || m_stopped; });
    if (m_stopped) return;
    m_items.push_back(std::move(told));
    m_notEmpty.notify_one();
  }
  Told Pop() {
    std::unique_lock lock(m_mutex);
    m_notEmpty.wait(lock, [&] { return !m_items.empty(); });
    Told told = std::move(m_items.front());
    m_items.pop_front();
    m_notFull.notify_one();
    return told;
  }
  // The writer gave up: workers stop at their next report.
  void Stop() {
    std::lock_guard lock(m_mutex);
    m_stopped = true;
    m_items.clear();
    m_notFull.notify_all();
  }
  bool Stopped() {
    std::lock_guard lock(m_mutex);
    return m_stopped;
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_notFull, m_notEmpty;
  std::deque<Told> m_items;
  size_t m_capacity;
  bool m_stopped = false;
};

// One worker's reading of a report: the checks that spare reading it, then explain's story.
class Reader {
 public:
  explicit Reader(const std::string& db)
      : m_db(db, Db::Mode::kReadOnly),
        m_known(m_db.Prepare("SELECT 1 FROM files WHERE path = ? AND size = ? AND mtime_ns = ?")),
        m_hashed(m_db.Prepare("SELECT 1 FROM reports WHERE hash = ?")) {}

  Told Read(const Found& file) {
    Told told;
    told.file = &file;
    m_known.Bind(1, file.path).Bind(2, file.size).Bind(3, file.mtimeNs);
    const bool known = m_known.Step();
    m_known.Reset();
    if (known) return told;
    told.hash = HashFile(file.path, &told.reason);
    if (told.hash.empty()) {
      told.kind = Told::Kind::kUnreadable;
      return told;
    }
    m_hashed.Bind(1, told.hash);
    const bool seen = m_hashed.Step();
    m_hashed.Reset();
    if (seen) {
      told.kind = Told::Kind::kSeen;
      return told;
    }
    try {
      TellingSink sink;
      std::string error;
      if (!explain::ReadInput(file.path, sink, &error)) {
        told.kind = Told::Kind::kRejected;
        told.reason = error;
        return told;
      }
      told.story = sink.Finish();
      // The report's own "== dumpstate:" time, else the one its file or member name carries.
      for (const explain::BootStory& boot : told.story.boots) {
        if (!boot.previous && !boot.reportTime.empty()) told.reportTime = boot.reportTime;
      }
      if (!told.reportTime) told.reportTime = TimeFromName(std::filesystem::path(file.path).filename().string());
      if (!told.reportTime) told.reportTime = sink.reportTime;
      told.kind = Told::Kind::kOk;
    } catch (const std::exception& e) {
      told.kind = Told::Kind::kRejected;
      told.reason = explain::PrintableName(file.path) + ": " + e.what();
    }
    return told;
  }

 private:
  Db m_db;
  Statement m_known, m_hashed;
};

std::string UtcNow() {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}

// A property of the report's own boot (not the LAST LOGCAT's): the first of `keys` it holds.
std::optional<std::string> Property(const explain::Story& story, std::initializer_list<const char*> keys) {
  for (const bool previous : {false, true}) {
    for (const explain::BootStory& boot : story.boots) {
      if (boot.previous != previous) continue;
      for (const char* key : keys) {
        const auto found = boot.properties.find(key);
        if (found != boot.properties.end() && !found->second.empty()) return found->second;
      }
    }
  }
  return std::nullopt;
}

std::optional<std::string> LogLevelNote(const explain::BootStory& boot) {
  const auto level = boot.properties.find("persist.vendor.camera.remedium.loglevel");
  if (level == boot.properties.end() || std::atoll(level->second.c_str()) <= 4) return std::nullopt;
  return "persist.vendor.camera.remedium.loglevel is " + level->second +
         ": the library drops its INFO lines (most decisions); the recorded state is the record";
}

std::optional<std::string> Text(const std::string& text) {
  return text.empty() ? std::nullopt : std::optional<std::string>(text);
}

// The writer's statements, prepared once.
class Writer {
 public:
  explicit Writer(Db& db)
      : m_db(db),
        m_hashed(db.Prepare("SELECT 1 FROM reports WHERE hash = ?")),
        m_file(db.Prepare("INSERT OR REPLACE INTO files (path, size, mtime_ns, hash) VALUES (?, ?, ?, ?)")),
        m_report(db.Prepare("INSERT INTO reports (hash, path, status, reason, build, build_id, model, hw, "
                            "report_time, ingested_at) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)")),
        m_boot(db.Prepare(
            "INSERT INTO boots (report_id, ordinal, label, previous, log_level_note) VALUES (?, ?, ?, ?, ?)")),
        m_process(db.Prepare("INSERT INTO processes (boot_id, pid, first_time, last_time, ending, skipped_before) "
                             "VALUES (?, ?, ?, ?, ?, ?)")),
        m_camera(
            db.Prepare("INSERT INTO cameras (process_id, camera, slot, sensor, attempts, outcome, how, summary, "
                       "first_probe_failed, bypass_taken, kernel_retry, forced_eeprom, hidden_init, hidden_config, "
                       "lost, incomplete, signature) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)")),
        m_event(db.Prepare("INSERT INTO events (camera_id, ordinal, kind, attempt, time, micros, place, text) "
                           "VALUES (?, ?, ?, ?, ?, ?, ?, ?)")),
        m_note(db.Prepare("INSERT INTO notes (camera_id, note) VALUES (?, ?)")),
        m_state(db.Prepare("INSERT INTO recorded_state (boot_id, camera, line) VALUES (?, ?, ?)")),
        m_readingNote(db.Prepare("INSERT INTO reading_notes (report_id, note) VALUES (?, ?)")) {}

  // Writes one report in a transaction of its own; false when its hash was already there (the
  // same bytes found twice in this run).
  bool Write(const Told& told) {
    Transaction transaction(m_db);
    m_hashed.Bind(1, told.hash);
    const bool seen = m_hashed.Step();
    m_hashed.Reset();
    m_file.Bind(1, told.file->path).Bind(2, told.file->size).Bind(3, told.file->mtimeNs).Bind(4, told.hash).Run();
    if (!seen && told.kind == Told::Kind::kRejected) {
      m_report.Bind(1, told.hash).Bind(2, told.file->path).Bind(3, "rejected").Bind(4, told.reason);
      m_report.Bind(10, UtcNow()).Run();
    } else if (!seen && told.kind == Told::Kind::kOk) {
      Report(told);
    }
    transaction.Commit();
    return !seen && (told.kind == Told::Kind::kRejected || told.kind == Told::Kind::kOk);
  }

 private:
  void Report(const Told& told) {
    const explain::Story& story = told.story;
    m_report.Bind(1, told.hash).Bind(2, told.file->path).Bind(3, "ok").BindNull(4);
    m_report.Bind(5, Property(story, {"ro.build.fingerprint"}))
        .Bind(6, Property(story, {"ro.build.id", "ro.build.display.id"}))
        .Bind(7, Property(story, {"ro.product.model"}))
        .Bind(8, Property(story, {"ro.boot.hardware.revision", "ro.revision"}))
        .Bind(9, told.reportTime)
        .Bind(10, UtcNow())
        .Run();
    const int64_t reportId = m_db.LastInsertId();

    for (size_t b = 0; b < story.boots.size(); ++b) {
      const explain::BootStory& boot = story.boots[b];
      m_boot.Bind(1, reportId).Bind(2, static_cast<int64_t>(b + 1)).Bind(3, Text(boot.label));
      m_boot.Bind(4, int64_t{boot.previous}).Bind(5, LogLevelNote(boot)).Run();
      const int64_t bootId = m_db.LastInsertId();
      for (const explain::ProcessStory& process : boot.processes) {
        m_process.Bind(1, bootId).Bind(2, int64_t{process.pid}).Bind(3, Text(process.firstTime));
        m_process.Bind(4, Text(process.lastTime)).Bind(5, Text(process.ending));
        m_process.Bind(6, static_cast<int64_t>(process.skippedBefore)).Run();
        const int64_t processId = m_db.LastInsertId();
        for (const auto& [id, camera] : process.cameras) {
          // explain's summary line of the camera; the process-wide one without events has none.
          Camera(processId, camera,
                 id < 0 && camera.events.empty() ? std::nullopt : std::optional(explain::CameraSummary(camera)));
        }
      }
      for (const RecordedLine& line : RecordedState(boot)) {
        m_state.Bind(1, bootId).Bind(2, int64_t{line.camera}).Bind(3, line.line).Run();
      }
    }
    for (const std::string& note : story.readingNotes) m_readingNote.Bind(1, reportId).Bind(2, note).Run();
    if (story.readingNoteCount > story.readingNotes.size()) {
      m_readingNote.Bind(1, reportId)
          .Bind(2, "... and " + std::to_string(story.readingNoteCount - story.readingNotes.size()) + " more")
          .Run();
    }
    if (story.unrecognisedCount > 0) {
      m_readingNote.Bind(1, reportId)
          .Bind(2, std::to_string(story.unrecognisedCount) + " library line" +
                       (story.unrecognisedCount == 1 ? "" : "s") + " not recognised")
          .Run();
    }
  }

  void Camera(int64_t processId, const explain::CameraStory& camera, const std::optional<std::string>& summary) {
    const CameraFacts facts = FactsOf(camera);
    m_camera.Bind(1, processId);
    if (camera.id >= 0) m_camera.Bind(2, int64_t{camera.id});
    if (camera.slot) m_camera.Bind(3, int64_t{*camera.slot});
    m_camera.Bind(4, Text(camera.lastSensor)).Bind(5, camera.sensorAttempts).Bind(6, Text(camera.lastOutcome));
    m_camera.Bind(7, Text(camera.lastHow)).Bind(8, summary);
    int column = 9;
    for (const bool flag : {facts.firstProbeFailed, facts.bypassTaken, facts.kernelRetry, facts.forcedEeprom,
                            facts.hiddenInit, facts.hiddenConfig, facts.lost, facts.incomplete}) {
      m_camera.Bind(column++, int64_t{flag});
    }
    m_camera.Bind(17, facts.signature).Run();
    const int64_t cameraId = m_db.LastInsertId();
    int64_t ordinal = 0;
    for (const explain::Event& event : camera.events) {
      m_event.Bind(1, cameraId).Bind(2, ++ordinal).Bind(3, event.kind).Bind(4, int64_t{event.attempt});
      m_event.Bind(5, Text(event.time));
      if (event.micros >= 0) m_event.Bind(6, event.micros);
      m_event.Bind(7, Text(event.where)).Bind(8, event.text).Run();
    }
    for (const std::string& note : camera.notes) m_note.Bind(1, cameraId).Bind(2, note).Run();
    for (const auto& [kind, count] : camera.omitted) {
      m_note.Bind(1, cameraId)
          .Bind(2, std::to_string(count) + " " + kind + " event" + (count == 1 ? "" : "s") +
                       " more, not listed (the story keeps " + std::to_string(explain::kMaxEventsPerCamera) +
                       " a camera)")
          .Run();
    }
  }

  Db& m_db;
  Statement m_hashed, m_file, m_report, m_boot, m_process, m_camera, m_event, m_note, m_state, m_readingNote;
};

// Reports done of all, their rate and the time left, redrawn in place on a terminal.
class Progress {
 public:
  Progress(std::ostream& err, bool on, size_t total)
      : m_err(err), m_on(on), m_total(total), m_start(std::chrono::steady_clock::now()) {}
  void Update(size_t done, bool last = false) {
    if (!m_on) return;
    const auto now = std::chrono::steady_clock::now();
    if (!last && now - m_drawn < std::chrono::milliseconds(100)) return;
    m_drawn = now;
    const double seconds = std::chrono::duration<double>(now - m_start).count();
    const double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0;
    constexpr int kWidth = 30;
    const int filled = m_total == 0 ? kWidth : static_cast<int>(kWidth * done / m_total);
    char line[160];
    const long left = rate > 0 ? static_cast<long>(static_cast<double>(m_total - done) / rate) : 0;
    std::snprintf(line, sizeof line, "\r[%s%s] %zu/%zu reports, %.1f/s, %ld:%02ld left\x1b[K",
                  std::string(static_cast<size_t>(filled), '#').c_str(),
                  std::string(static_cast<size_t>(kWidth - filled), '.').c_str(), done, m_total, rate, left / 60,
                  left % 60);
    m_err << line << (last ? "\n" : "") << std::flush;
  }
  // A message between redraws: the bar's line cleared first.
  void Say(const std::string& message) {
    if (m_on) m_err << "\r\x1b[K";
    m_err << message << "\n";
    m_drawn = {};
  }

 private:
  std::ostream& m_err;
  bool m_on;
  size_t m_total;
  std::chrono::steady_clock::time_point m_start, m_drawn{};
};

}  // namespace

int RunIngest(const IngestOptions& options, std::ostream& out, std::ostream& err) {
  const std::string command = "remedium-sim fleet ingest: ";
  if (options.jobs < 0) {
    err << command << "--jobs " << options.jobs << ": not a number of threads (0: every core)\n";
    return 2;
  }
  std::vector<Found> files;
  std::string error;
  if (!FindReports(options.paths, files, &error)) {
    err << command << error << "\n";
    return 2;
  }
  std::optional<Db> db;
  try {
    db.emplace(options.db);
  } catch (const DbError& e) {
    err << command << e.what() << "\n";
    return 2;
  }

  const size_t jobs = std::max<size_t>(
      1, std::min<size_t>(options.jobs > 0 ? static_cast<size_t>(options.jobs) : std::thread::hardware_concurrency(),
                          std::max<size_t>(files.size(), 1)));
  Queue queue(jobs * 2);
  std::atomic<size_t> next{0};
  // libzip turns a zip's DOS times into time_t with mktime, which runs tzset. With TZ unset,
  // glibc's tzset frees and copies its zone's name on every call (under a lock ThreadSanitizer
  // cannot see); with TZ naming the same default zone it reads the zone once, here, and the
  // workers opening zips at once only compare the name.
  if (std::getenv("TZ") == nullptr) setenv("TZ", ":/etc/localtime", 0);
  tzset();
  std::vector<std::thread> workers;
  for (size_t i = 0; i < jobs; ++i) {
    workers.emplace_back([&] {
      std::optional<Reader> reader;
      std::string openError;
      try {
        reader.emplace(options.db);
      } catch (const DbError& e) {
        openError = e.what();
      }
      for (size_t index; (index = next++) < files.size() && !queue.Stopped();) {
        if (reader) {
          queue.Push(reader->Read(files[index]));
        } else {
          Told told;
          told.kind = Told::Kind::kUnreadable;
          told.file = &files[index];
          told.reason = openError;
          queue.Push(std::move(told));
        }
      }
    });
  }

  const bool bar = options.progress == "on" || (options.progress == "auto" && ::isatty(STDERR_FILENO));
  Progress progress(err, bar, files.size());
  size_t ingested = 0, already = 0, rejected = 0;
  int status = 0;
  try {
    Writer writer(*db);
    for (size_t done = 0; done < files.size(); ++done) {
      const Told told = queue.Pop();
      switch (told.kind) {
        case Told::Kind::kKnown:
          ++already;
          break;
        case Told::Kind::kUnreadable:
          ++rejected;
          progress.Say(command + explain::PrintableName(told.file->path) + ": cannot read: " + told.reason);
          break;
        case Told::Kind::kSeen:
          writer.Write(told);
          ++already;
          break;
        case Told::Kind::kRejected:
        case Told::Kind::kOk:
          if (!writer.Write(told)) {
            ++already;
          } else if (told.kind == Told::Kind::kOk) {
            ++ingested;
          } else {
            ++rejected;
          }
          break;
      }
      progress.Update(done + 1, done + 1 == files.size());
    }
  } catch (const DbError& e) {
    progress.Say(command + e.what());
    queue.Stop();
    status = 2;
  }
  for (std::thread& worker : workers) worker.join();
  if (status != 0) return status;
  out << files.size() << " report" << (files.size() == 1 ? "" : "s") << ": " << ingested << " ingested, " << already
      << " already in the database, " << rejected << " rejected\n";
  return 0;
}

}  // namespace fleet
