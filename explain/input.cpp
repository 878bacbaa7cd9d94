// The explain command's reader: one input file (or bytes) in, its records out
// to a sink, line by line through one fixed buffer, whatever the input's size.
//
// Formats are told apart by content, from the first 64 KiB:
//   - a zip ("PK\3\4"): the archive `adb bugreport` writes; its bug report is
//     the member main_entry.txt names (at the top or in the one folder a
//     re-zipped report has), else the first bugreport*.txt; the persistent
//     logs (FS/data/misc/logd/logcat*, oldest first) and the tombstones
//     (FS/data/tombstones/m_tombstone*) in it are read with it;
//   - a bug report: a "== dumpstate:" line among the first lines, or a first
//     line that is a section header ("------ NAME (command) ------"); every
//     SYSTEM LOG section (a line the persistent logs or an earlier section
//     already gave is not passed twice), LAST LOGCAT (the boot before),
//     TOMBSTONE sections and SYSTEM PROPERTIES are read;
//   - a getprop dump: a first line "[key]: [value]"; a value may run over
//     several lines;
//   - the kernel parameter's text: a single line of comma-separated numbers
//     (NUL padding after it is allowed, as the parameter is written padded);
//   - logcat text in any -v format among the first 16 non-blank lines
//     (dividers aside); the tag and raw formats carry too little for a story
//     and are refused with a line that says so.
// UTF-16 with a byte order mark (PowerShell's ">") is read as UTF-8; line
// ends may be LF, CRLF or CR CR LF (adb shell through a pty). A line that is
// not UTF-8 or holds a NUL is passed with its bad bytes escaped ("\xNN"),
// never a reason to refuse the file. Anything else, an empty or binary file,
// is an error naming the file (and the line, where there is one). After an
// error the sink gets no EndInput for that input.
#include "explain/input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include <zip.h>

#include "explain/logline.h"
#include "sim/text/text.h"

namespace explain {
namespace {

constexpr size_t kBufferSize = size_t{1} << 20;  // the one read buffer
constexpr size_t kMaxLine = size_t{256} << 10;   // longer lines are cut here; the rest is skipped
constexpr size_t kDetectBytes = size_t{64} << 10;
constexpr int kDetectLines = 16;
constexpr size_t kMaxMainEntry = 4096;              // main_entry.txt holds one member name
constexpr size_t kMaxPropertyValue = 64 << 10;      // a getprop value over several lines
constexpr size_t kOverlapWindow = size_t{1} << 17;  // lines of earlier log sources remembered for de-duplication

// Editors on Windows may put one before UTF-8 text.
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

constexpr char kNotRecognised[] = ": not a logcat, bug report, getprop dump or kernel parameter text";

// Where the bytes come from: a file, memory, a zip member, or a decoder over one of them.
class ByteSource {
 public:
  virtual ~ByteSource() = default;
  // Up to `size` (at least 4) bytes into `to`; 0 at the end; -1 with `error` set on failure.
  virtual long Read(char* to, size_t size, std::string* error) = 0;
};

class FdSource final : public ByteSource {
 public:
  // `expected`: a regular file's size when it was opened (a file that ends sooner shrank), or -1.
  FdSource(int fd, std::string_view name, off_t expected) : m_fd(fd), m_name(name), m_expected(expected) {}
  ~FdSource() override { ::close(m_fd); }
  FdSource(const FdSource&) = delete;
  FdSource& operator=(const FdSource&) = delete;
  long Read(char* to, size_t size, std::string* error) override {
    while (true) {
      const ssize_t got = ::read(m_fd, to, size);
      if (got > 0) {
        m_total += got;
        return got;
      }
      if (got == 0) {
        // Shrunk: it ended early and says so now (sysfs files claim a page and end early
        // without shrinking).
        struct stat now{};
        if (m_expected >= 0 && m_total < m_expected && ::fstat(m_fd, &now) == 0 && now.st_size < m_expected) {
          *error = PrintableName(m_name) + ": the file shrank while being read (" + std::to_string(m_total) + " of " +
                   std::to_string(m_expected) + " bytes read)";
          return -1;
        }
        return 0;
      }
      if (errno == EINTR) continue;
      *error = PrintableName(m_name) + ": " + std::strerror(errno);
      return -1;
    }
  }

 private:
  int m_fd;
  std::string_view m_name;
  off_t m_expected;
  off_t m_total = 0;
};

class MemorySource final : public ByteSource {
 public:
  explicit MemorySource(std::string_view bytes) : m_bytes(bytes) {}
  long Read(char* to, size_t size, std::string*) override {
    const size_t count = std::min(size, m_bytes.size());
    std::memcpy(to, m_bytes.data(), count);
    m_bytes.remove_prefix(count);
    return static_cast<long>(count);
  }

 private:
  std::string_view m_bytes;
};

class ZipMemberSource final : public ByteSource {
 public:
  ZipMemberSource(zip_file_t* file, std::string_view name) : m_file(file), m_name(name) {}
  ~ZipMemberSource() override { zip_fclose(m_file); }
  ZipMemberSource(const ZipMemberSource&) = delete;
  ZipMemberSource& operator=(const ZipMemberSource&) = delete;
  long Read(char* to, size_t size, std::string* error) override {
    const zip_int64_t got = zip_fread(m_file, to, size);
    if (got >= 0) return static_cast<long>(got);
    *error = PrintableName(m_name) + ": truncated or damaged zip member (" + zip_file_strerror(m_file) + ")";
    return -1;
  }

 private:
  zip_file_t* m_file;
  std::string_view m_name;
};

// Reads its source on a thread of its own, a few chunks ahead: inflating a zip member takes
// about as long as telling its lines, and on a second core the two overlap. Only the thread
// reads the source; memory is the chunks, whatever the source's size.
class ReadAheadSource final : public ByteSource {
 public:
  explicit ReadAheadSource(ByteSource& inner) : m_inner(inner), m_worker([this] { Run(); }) {}
  ~ReadAheadSource() override {
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      m_stop = true;
    }
    m_changed.notify_all();
    m_worker.join();
  }
  ReadAheadSource(const ReadAheadSource&) = delete;
  ReadAheadSource& operator=(const ReadAheadSource&) = delete;

  long Read(char* to, size_t size, std::string* error) override {
    if (m_at == m_current.size) {
      std::unique_lock<std::mutex> lock(m_mutex);
      if (m_current.data) m_free.push_back(std::move(m_current.data));
      m_changed.notify_all();
      m_changed.wait(lock, [this] { return !m_ready.empty() || m_done; });
      if (m_ready.empty()) {
        if (!m_failed) return 0;
        *error = m_error;
        return -1;
      }
      m_current = std::move(m_ready.front());
      m_ready.pop_front();
      m_at = 0;
    }
    const size_t count = std::min(size, m_current.size - m_at);
    std::memcpy(to, m_current.data.get() + m_at, count);
    m_at += count;
    return static_cast<long>(count);
  }

 private:
  static constexpr size_t kChunk = 256 << 10;
  static constexpr size_t kChunks = 4;
  struct Chunk {
    std::unique_ptr<char[]> data;
    size_t size = 0;
  };

  void Run() {
    while (true) {
      std::unique_ptr<char[]> buffer;
      {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_stop || !m_free.empty() || m_allocated < kChunks; });
        if (m_stop) return;
        if (!m_free.empty()) {
          buffer = std::move(m_free.back());
          m_free.pop_back();
        } else {
          buffer.reset(new char[kChunk]);
          ++m_allocated;
        }
      }
      std::string error;
      const long got = m_inner.Read(buffer.get(), kChunk, &error);
      std::lock_guard<std::mutex> lock(m_mutex);
      if (got <= 0) {
        m_done = true;
        m_failed = got < 0;
        m_error = std::move(error);
        m_changed.notify_all();
        return;
      }
      m_ready.push_back({std::move(buffer), static_cast<size_t>(got)});
      m_changed.notify_all();
    }
  }

  ByteSource& m_inner;
  // Only the reading side touches these two.
  Chunk m_current;
  size_t m_at = 0;
  // Shared, under the mutex.
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::deque<Chunk> m_ready;
  std::vector<std::unique_ptr<char[]>> m_free;
  size_t m_allocated = 0;
  bool m_stop = false, m_done = false, m_failed = false;
  std::string m_error;
  std::thread m_worker;  // last: it starts once everything above exists
};

// The first bytes, already read to tell the encoding, then the rest of the source.
class PrefixSource final : public ByteSource {
 public:
  PrefixSource(std::string prefix, ByteSource& rest) : m_prefix(std::move(prefix)), m_rest(rest) {}
  long Read(char* to, size_t size, std::string* error) override {
    if (m_at < m_prefix.size()) {
      const size_t count = std::min(size, m_prefix.size() - m_at);
      std::memcpy(to, m_prefix.data() + m_at, count);
      m_at += count;
      return static_cast<long>(count);
    }
    return m_rest.Read(to, size, error);
  }

 private:
  std::string m_prefix;
  size_t m_at = 0;
  ByteSource& m_rest;
};

// UTF-16 (after its byte order mark) decoded to UTF-8; an unpaired surrogate becomes U+FFFD.
class Utf16Source final : public ByteSource {
 public:
  Utf16Source(ByteSource& inner, bool bigEndian) : m_inner(inner), m_bigEndian(bigEndian) {}
  long Read(char* to, size_t size, std::string* error) override {
    size_t out = 0;
    while (out + 4 <= size) {
      if (m_pos + 2 > m_end) {
        if (m_eof) break;
        std::memmove(m_raw.get(), m_raw.get() + m_pos, m_end - m_pos);
        m_end -= m_pos;
        m_pos = 0;
        const long got = m_inner.Read(m_raw.get() + m_end, kRawSize - m_end, error);
        if (got < 0) return -1;
        if (got == 0) m_eof = true;
        m_end += static_cast<size_t>(got);
        if (out > 0 && got == 0) break;
        continue;
      }
      const auto byte = [this](size_t i) { return static_cast<uint32_t>(static_cast<unsigned char>(m_raw[i])); };
      const uint32_t unit = m_bigEndian ? (byte(m_pos) << 8) | byte(m_pos + 1) : byte(m_pos) | (byte(m_pos + 1) << 8);
      m_pos += 2;
      uint32_t code = unit;
      if (m_high != 0) {
        if (unit >= 0xDC00 && unit <= 0xDFFF) {
          code = 0x10000 + ((m_high - 0xD800) << 10) + (unit - 0xDC00);
          m_high = 0;
        } else {
          out += Put(0xFFFD, to + out);
          m_high = 0;
        }
      }
      if (code >= 0xD800 && code <= 0xDBFF) {
        m_high = code;
        continue;
      }
      if (code >= 0xDC00 && code <= 0xDFFF) code = 0xFFFD;
      out += Put(code, to + out);
    }
    if (m_eof && m_pos + 2 > m_end && (m_high != 0 || m_pos < m_end) && out + 4 <= size) {
      out += Put(0xFFFD, to + out);  // a lone high surrogate or an odd last byte
      m_high = 0;
      m_pos = m_end;
    }
    return static_cast<long>(out);
  }

 private:
  static size_t Put(uint32_t code, char* to) {
    if (code < 0x80) {
      to[0] = static_cast<char>(code);
      return 1;
    }
    if (code < 0x800) {
      to[0] = static_cast<char>(0xC0 | (code >> 6));
      to[1] = static_cast<char>(0x80 | (code & 0x3F));
      return 2;
    }
    if (code < 0x10000) {
      to[0] = static_cast<char>(0xE0 | (code >> 12));
      to[1] = static_cast<char>(0x80 | ((code >> 6) & 0x3F));
      to[2] = static_cast<char>(0x80 | (code & 0x3F));
      return 3;
    }
    to[0] = static_cast<char>(0xF0 | (code >> 18));
    to[1] = static_cast<char>(0x80 | ((code >> 12) & 0x3F));
    to[2] = static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    to[3] = static_cast<char>(0x80 | (code & 0x3F));
    return 4;
  }

  ByteSource& m_inner;
  bool m_bigEndian;
  static constexpr size_t kRawSize = 64 << 10;
  std::unique_ptr<char[]> m_raw{new char[kRawSize]};
  size_t m_pos = 0, m_end = 0;
  bool m_eof = false;
  uint32_t m_high = 0;  // a high surrogate waiting for its pair
};

// Lines out of a source through one buffer. A line's view is valid until the
// next call. The first Fill() keeps the first 64 KiB in the buffer, so that
// the format can be told before any line is taken.
class LineReader {
 public:
  // `capacity`: the buffer's size, kBufferSize but for inputs known to be smaller.
  explicit LineReader(ByteSource& source, size_t capacity = kBufferSize)
      : m_source(source),
        m_capacity(capacity),
        m_maxLine(std::min(kMaxLine, capacity - 1)),
        m_buffer(new char[capacity]) {}

  bool Fill(std::string* error) {
    while (!m_eof && m_end < std::min(kDetectBytes, m_maxLine)) {
      if (!ReadMore(error)) return false;
    }
    return true;
  }
  std::string_view Buffered() const { return {m_buffer.get() + m_pos, m_end - m_pos}; }
  bool AtEnd() const { return m_eof; }

  // 1 with a line (its end and any '\r' before it removed), 0 at the end, -1 on a read error.
  int Next(std::string_view& line, std::string* error) {
    while (true) {
      const char* const from = m_buffer.get() + m_pos;
      if (const void* newline = std::memchr(from, '\n', m_end - m_pos)) {
        const size_t length = static_cast<const char*>(newline) - from;
        m_pos += length + 1;
        if (m_skipping) {
          m_skipping = false;
          continue;
        }
        line = Cut(Strip({from, length}));
        if (m_lineNumber++ == 0 && line.starts_with(kByteOrderMark)) line.remove_prefix(3);
        return 1;
      }
      if (m_eof) {
        if (m_pos == m_end) return 0;
        line = Cut(Strip({from, m_end - m_pos}));
        m_pos = m_end;
        if (m_skipping) return 0;
        if (m_lineNumber++ == 0 && line.starts_with(kByteOrderMark)) line.remove_prefix(3);
        return 1;
      }
      if (m_end - m_pos >= m_maxLine) {
        // An over-long line: pass its first part (at a character boundary), skip the rest.
        const bool first = !m_skipping;
        const std::string_view start(from, m_end - m_pos);
        m_skipping = true;
        m_pos = m_end;
        if (first) {
          line = Cut(start);
          ++m_lineNumber;
          return 1;
        }
      }
      if (!ReadMore(error)) return -1;
    }
  }

  uint64_t LineNumber() const { return m_lineNumber; }

 private:
  // A line longer than the limit loses its end, at a character boundary.
  std::string_view Cut(std::string_view line) const {
    if (line.size() <= m_maxLine) return line;
    size_t length = m_maxLine;
    while (length > 0 && (static_cast<unsigned char>(line[length]) & 0xC0) == 0x80) --length;
    return line.substr(0, length);
  }
  // CRLF, and CR CR LF from adb shell through a pty.
  static std::string_view Strip(std::string_view line) {
    while (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    return line;
  }

  bool ReadMore(std::string* error) {
    if (m_pos > 0) {
      std::memmove(m_buffer.get(), m_buffer.get() + m_pos, m_end - m_pos);
      m_end -= m_pos;
      m_pos = 0;
    }
    const long got = m_source.Read(m_buffer.get() + m_end, m_capacity - m_end, error);
    if (got < 0) return false;
    if (got == 0) m_eof = true;
    m_end += static_cast<size_t>(got);
    return true;
  }

  ByteSource& m_source;
  size_t m_capacity;
  size_t m_maxLine;  // below the capacity, so that a full buffer always holds an over-long line
  std::unique_ptr<char[]> m_buffer;
  size_t m_pos = 0;
  size_t m_end = 0;
  bool m_eof = false;
  bool m_skipping = false;
  uint64_t m_lineNumber = 0;
};

enum class Format { kZip, kLogcat, kBugreport, kGetprop, kKernelText };

bool IsZip(std::string_view bytes) { return bytes.starts_with("PK\x03\x04") || bytes.starts_with("PK\x05\x06"); }

bool IsBlank(std::string_view line) { return line.find_first_not_of(" \t") == std::string_view::npos; }

// Blanks and line ends; form feeds and vertical tabs count as text.
std::string_view TrimSpace(std::string_view text) { return sim::text::Trim(text, " \t\r\n"); }

// The kernel parameter's text with any NUL padding and white space around it removed.
std::string_view KernelTextOf(std::string_view text) {
  const size_t end = text.find('\0');
  return TrimSpace(text.substr(0, end));
}

// "------ NAME (command) ------" or "------ NAME ------": NAME, or empty.
std::string_view SectionName(std::string_view line) {
  if (!line.starts_with("------ ") || !line.ends_with(" ------") || line.size() < 14) return {};
  std::string_view name = line.substr(7, line.size() - 14);
  if (const size_t paren = name.find(" ("); paren != std::string_view::npos) name = name.substr(0, paren);
  return name;
}

std::string At(std::string_view name, uint64_t lineNumber) {
  return PrintableName(name) + ":" + std::to_string(lineNumber);
}

// A line as text: as it is when it is UTF-8 without a NUL; otherwise its bad bytes (and NULs)
// escaped into `scratch` as "\xNN", backslashes doubled.
std::string_view CleanText(std::string_view line, std::string& scratch) {
  if (line.find('\0') == std::string_view::npos && sim::text::IsUtf8(line)) return line;
  scratch = sim::text::EscapeUtf8(line);
  for (size_t at = scratch.find('\0'); at != std::string::npos; at = scratch.find('\0', at)) {
    scratch.replace(at, 1, "\\x00");
  }
  return scratch;
}

// "hook.cpp:17 GetStaticCapsHook() ": how every line of the library begins, whatever the log wrote around it.
bool LooksLikeLibraryMessage(std::string_view text) {
  size_t at = 0;
  while (at < text.size() && (std::isalnum(static_cast<unsigned char>(text[at])) || text[at] == '_' ||
                              text[at] == '.' || text[at] == '-')) {
    ++at;
  }
  const std::string_view file = text.substr(0, at);
  if (!file.ends_with(".cpp") && !file.ends_with(".h") && !file.ends_with(".cc")) return false;
  if (at >= text.size() || text[at] != ':') return false;
  const size_t digits = ++at;
  while (at < text.size() && std::isdigit(static_cast<unsigned char>(text[at]))) ++at;
  if (at == digits || at >= text.size() || text[at] != ' ') return false;
  const size_t close = text.find("() ", at);
  return close != std::string_view::npos && text.find(' ', at + 1) > close;
}

// Tells the format from the first bytes, or sets `error`.
bool Detect(std::string_view name, std::string_view prefix, bool wholeFile, Format& format, std::string* error) {
  if (prefix.empty()) {
    *error = PrintableName(name) + ": empty file";
    return false;
  }
  if (IsZip(prefix)) {
    format = Format::kZip;
    return true;
  }
  if (prefix.starts_with(kByteOrderMark)) prefix.remove_prefix(3);
  const size_t nul = prefix.find('\0');
  // Only the kernel parameter's text may end in NULs: the padding after its numbers.
  if (nul != std::string_view::npos && wholeFile && prefix.find_first_not_of('\0', nul) == std::string_view::npos &&
      IsNumberList(KernelTextOf(prefix))) {
    format = Format::kKernelText;
    return true;
  }
  // Complete lines only, unless the prefix is the whole file.
  std::string_view rest = prefix;
  if (!wholeFile) {
    const size_t lastNewline = rest.rfind('\n');
    if (lastNewline != std::string_view::npos) {
      rest = rest.substr(0, lastNewline + 1);
    } else {
      // One long first line: its start, at a character boundary, tells the format.
      size_t length = rest.size();
      while (length > 0 && (static_cast<unsigned char>(rest[length - 1]) & 0xC0) == 0x80) --length;
      if (length > 0 && static_cast<unsigned char>(rest[length - 1]) >= 0xC0) --length;
      rest = rest.substr(0, length);
    }
  }
  int nonBlank = 0;
  bool first = true;
  LogLine parsed{};
  LogLineParser parser;
  std::string scratch;
  LogFormat poor = LogFormat::kNone;  // a format that carries too little (tag, raw)
  int markers = 0;                    // logcat's dividers: all an empty buffer's dump holds
  while (!rest.empty() && nonBlank < kDetectLines) {
    const size_t newline = rest.find('\n');
    std::string_view line = rest.substr(0, newline);
    rest = newline == std::string_view::npos ? std::string_view{} : rest.substr(newline + 1);
    while (line.ends_with('\r')) line.remove_suffix(1);
    line = CleanText(line, scratch);
    if (IsBlank(line)) {
      parser.Parse(line, parsed);  // a blank line ends a long-format entry
      continue;
    }
    ++nonBlank;
    if (IsBufferMarker(line)) ++markers;
    if (line.starts_with("== dumpstate:") || (first && !SectionName(line).empty())) {
      format = Format::kBugreport;
      return true;
    }
    std::string_view key;
    std::string_view value;
    if (first && (ParsePropertyLine(line, key, value) || (line.starts_with('[') && line.find("]: [") != line.npos))) {
      format = Format::kGetprop;
      return true;
    }
    if (first && IsNumberList(TrimSpace(line))) {
      format = Format::kKernelText;
      return true;
    }
    const LogFormat lineFormat = parser.Parse(line, parsed);
    if (lineFormat == LogFormat::kTag) {
      poor = LogFormat::kTag;
    } else if (lineFormat != LogFormat::kNone) {
      format = Format::kLogcat;
      return true;
    } else if (poor == LogFormat::kNone && LooksLikeLibraryMessage(line)) {
      poor = LogFormat::kRaw;
    }
    // A bug report's banner ("=====...") may come before its "== dumpstate:" line.
    if (!IsBufferMarker(line) && line.find_first_not_of('=') != std::string_view::npos) first = false;
  }
  if (markers > 0 && markers == nonBlank && (rest.empty() || nonBlank == kDetectLines)) {
    format = Format::kLogcat;
    return true;
  }
  if (poor != LogFormat::kNone) {
    *error = PrintableName(name) + ": logcat -v " + std::string(FormatName(poor)) + " output: " +
             (poor == LogFormat::kTag ? "no process id, thread or time" : "no tag, process id, thread or time") +
             " on its lines, too little to tell the library's decisions apart; capture with -v threadtime";
    return false;
  }
  if (nonBlank == 0 && rest.empty() && wholeFile && nul == std::string_view::npos) {
    *error = PrintableName(name) + ": empty file (blank lines only)";
    return false;
  }
  *error = PrintableName(name) + (nul != std::string_view::npos ? ": binary file" : "") + kNotRecognised;
  return false;
}

InputSink::InputKind KindOf(Format format) {
  switch (format) {
    case Format::kBugreport:
      return InputSink::InputKind::kBugreport;
    case Format::kGetprop:
      return InputSink::InputKind::kGetprop;
    case Format::kKernelText:
      return InputSink::InputKind::kKernelText;
    case Format::kLogcat:
    case Format::kZip:
      break;
  }
  return InputSink::InputKind::kLogcat;
}

// The lines earlier log sources of one boot gave (a bug report's persistent logs, its first
// SYSTEM LOG section), so that a later source passes only what is new: Android 12 and later
// write a second SYSTEM LOG section (logcat -T) that repeats the end of the first. Each
// earlier copy of a line stands for one later copy; identical lines logged in the same
// millisecond stay as many as they were. Bounded: the last kOverlapWindow lines are kept.
class Overlap {
 public:
  // True when the line is a copy of one an earlier source gave.
  bool Repeated(const LogLine& line) {
    const uint64_t hash = Hash(line);
    if (const auto it = m_earlier.find(hash); it != m_earlier.end()) {
      uint32_t& used = m_used[hash];
      if (used < it->second) {
        ++used;
        return true;
      }
    }
    m_pending.push_back(hash);
    if (m_pending.size() > kOverlapWindow) m_pending.pop_front();
    return false;
  }
  void EndSource() {
    for (const uint64_t hash : m_pending) {
      ++m_earlier[hash];
      m_order.push_back(hash);
    }
    m_pending.clear();
    m_used.clear();
    while (m_order.size() > kOverlapWindow) {
      const auto it = m_earlier.find(m_order.front());
      if (--it->second == 0) m_earlier.erase(it);
      m_order.pop_front();
    }
  }

 private:
  // The line's millisecond, ids, level, tag and message: what two captures with other
  // modifiers (-v usec, -v uid) still share.
  static uint64_t Hash(const LogLine& line) {
    uint64_t hash = 1469598103934665603ULL;
    const auto mix = [&hash](std::string_view bytes) {
      for (const char c : bytes) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
      hash = (hash ^ 0xFF) * 1099511628211ULL;
    };
    const int64_t micros = TimeMicros(line.time, 2000);
    const int64_t head[] = {micros < 0 ? -1 : micros / 1000, line.pid, line.tid, line.level};
    mix({reinterpret_cast<const char*>(head), sizeof head});
    mix(line.tag);
    mix(line.message);
    return hash;
  }

  std::unordered_map<uint64_t, uint32_t> m_earlier, m_used;
  std::deque<uint64_t> m_order, m_pending;
};

// What one input has going across its parts (a zip's members, a bug report's sections).
struct InputState {
  explicit InputState(InputSink& to) : sink(to) {}
  InputSink& sink;
  Overlap overlap;
  bool begun = false;  // BeginInput given
};

// What a text part of an input is.
enum class Part { kWhole, kPersistentLog, kTombstone };

// A getprop value over several lines ("[key]: [first" ... "last]"), kept until its end.
struct PendingProperty {
  bool open = false;
  uint64_t lineNumber = 0;
  std::string key, value;
};

// One property line, or a line of a value over several lines. False: not a property line.
bool PropertyLine(std::string_view source, std::string_view line, uint64_t lineNumber, PendingProperty& pending,
                  InputSink& sink) {
  if (pending.open) {
    if (pending.value.size() < kMaxPropertyValue) pending.value.append("\n").append(line);
    if (line.ends_with(']')) {
      pending.value.pop_back();
      sink.Property(source, pending.key, pending.value);
      pending.open = false;
    }
    return true;
  }
  std::string_view key;
  std::string_view value;
  if (ParsePropertyLine(line, key, value)) {
    sink.Property(source, key, value);
    return true;
  }
  const size_t separator = line.find("]: [");
  if (!line.starts_with('[') || separator == std::string_view::npos || separator < 2) return false;
  pending = {true, lineNumber, std::string(line.substr(1, separator - 1)), std::string(line.substr(separator + 4))};
  return true;
}

// Streams a text part whose format is known; the reader still holds its first bytes.
bool StreamText(std::string_view name, Format format, Part part, LineReader& reader, InputState& state,
                std::string* error) {
  InputSink& sink = state.sink;
  if (!state.begun) {
    sink.BeginInput(name, KindOf(format));
    state.begun = true;
  }
  enum class Section { kOther, kLog, kPreviousBoot, kProperties, kTombstone };
  Section section = format == Format::kBugreport ? Section::kOther : Section::kLog;
  std::string kernelText;
  bool haveKernelText = false;
  PendingProperty pending;
  LogLine log{};
  log.source = name;
  LogLineParser parser;
  std::string scratch;
  std::string_view raw;
  int got;
  const bool dedupe = format == Format::kBugreport || part == Part::kPersistentLog;
  const auto endSection = [&] {
    if (dedupe && section == Section::kLog) state.overlap.EndSource();
    if (section == Section::kPreviousBoot) sink.PreviousBoot(false);
  };
  while (!sink.Enough() && (got = reader.Next(raw, error)) == 1) {
    const uint64_t lineNumber = reader.LineNumber();
    if (part == Part::kTombstone) {
      sink.Tombstone(name, lineNumber, CleanText(raw, scratch));
      continue;
    }
    if (format == Format::kBugreport && section == Section::kOther && raw.starts_with("== dumpstate: ")) {
      sink.ReportTime(name, TrimSpace(raw.substr(14)));
      continue;
    }
    if (format == Format::kBugreport && raw.starts_with("------ ")) {
      const std::string_view sectionName = SectionName(raw);
      if (!sectionName.empty()) {
        endSection();
        section = Section::kOther;
        parser = LogLineParser();
        if (sectionName == "SYSTEM LOG") section = Section::kLog;
        if (sectionName == "LAST LOGCAT") {
          section = Section::kPreviousBoot;
          sink.PreviousBoot(true);
        }
        if (sectionName == "SYSTEM PROPERTIES") section = Section::kProperties;
        if (sectionName.starts_with("TOMBSTONE")) section = Section::kTombstone;
        continue;
      }
    }
    // Other sections of a bug report are not read, nor checked: dumps of all kinds live there.
    if (section == Section::kOther) continue;
    // Log lines pass as they are (a sink escapes what it shows); the others are made text here.
    const bool logLine = section == Section::kLog || section == Section::kPreviousBoot;
    const std::string_view line = logLine ? raw : CleanText(raw, scratch);
    switch (format) {
      case Format::kLogcat:
      case Format::kBugreport:
        if (section == Section::kLog || section == Section::kPreviousBoot) {
          // A tag-format line among others has no process to tell it by: not passed.
          const LogFormat lineFormat = parser.Parse(line, log);
          if (lineFormat != LogFormat::kNone && lineFormat != LogFormat::kTag) {
            log.lineNumber = lineNumber;
            // A later source of the same boot repeats what an earlier one gave: pass it once.
            if (dedupe && section == Section::kLog && state.overlap.Repeated(log)) break;
            sink.Log(log);
          }
        } else if (section == Section::kProperties) {
          PropertyLine(name, line, lineNumber, pending, sink);
        } else {
          sink.Tombstone(name, lineNumber, line);
        }
        break;
      case Format::kGetprop:
        if (!pending.open && IsBlank(line)) break;
        if (!PropertyLine(name, line, lineNumber, pending, sink)) {
          *error = At(name, lineNumber) + ": not a \"[key]: [value]\" line in a getprop dump";
          return false;
        }
        break;
      case Format::kKernelText: {
        const std::string_view text = KernelTextOf(raw);
        if (text.empty() && raw.find_first_not_of(std::string_view(" \t\0", 3)) == std::string_view::npos) break;
        if (haveKernelText) {
          *error = At(name, lineNumber) + ": a kernel parameter text is one line of numbers";
          return false;
        }
        if (!IsNumberList(text) || raw.find_first_not_of('\0', raw.find('\0')) != std::string_view::npos) {
          *error = At(name, lineNumber) + ": not a kernel parameter text (comma-separated numbers)";
          return false;
        }
        kernelText.assign(text);
        haveKernelText = true;
        break;
      }
      case Format::kZip:
        break;
    }
  }
  if (got < 0) return false;
  if (pending.open) {
    *error = At(name, pending.lineNumber) + ": not a \"[key]: [value]\" line in a getprop dump (its value never ends)";
    return false;
  }
  endSection();
  if (haveKernelText) sink.KernelText(name, kernelText);
  return true;
}

// A text part from a source: detect (UTF-16 decoded first), then stream. A zip is not taken
// here (the caller opens zips); one inside a zip is an error.
bool ReadText(std::string_view name, ByteSource& source, Part part, InputState& state, std::string* error,
              Format* detected = nullptr, size_t capacity = kBufferSize) {
  // The byte order mark, or the NULs of UTF-16LE text without one.
  char head[4];
  size_t headSize = 0;
  while (headSize < sizeof head) {
    const long got = source.Read(head + headSize, sizeof head - headSize, error);
    if (got < 0) return false;
    if (got == 0) break;
    headSize += static_cast<size_t>(got);
  }
  const std::string_view first(head, headSize);
  const bool bigEndian = first.starts_with("\xFE\xFF");
  const bool littleEndian = first.starts_with("\xFF\xFE") ||
                            (headSize == 4 && head[0] != '\0' && head[1] == '\0' && head[2] != '\0' && head[3] == '\0');
  PrefixSource rest(std::string(first.substr(bigEndian || first.starts_with("\xFF\xFE") ? 2 : 0)), source);
  Utf16Source decoded(rest, bigEndian);
  PrefixSource plain(std::string(first), source);
  ByteSource& text = bigEndian || littleEndian ? static_cast<ByteSource&>(decoded) : plain;
  LineReader reader(text, capacity);
  if (!reader.Fill(error)) return false;
  Format format;
  const std::string_view buffered = reader.Buffered();
  const bool wholeFile = reader.AtEnd() && buffered.size() <= kDetectBytes;
  if (part == Part::kTombstone) {
    format = Format::kLogcat;
  } else if (!Detect(name, buffered.substr(0, kDetectBytes), wholeFile, format, error)) {
    // A persistent log with no line in it yet (dividers only) has nothing to merge.
    if (part == Part::kPersistentLog) error->clear();
    return part == Part::kPersistentLog;
  }
  if (detected != nullptr) *detected = format;
  if (format == Format::kZip) return true;
  if (part == Part::kPersistentLog && format != Format::kLogcat) return true;  // not a log: nothing to merge
  return StreamText(name, format, part, reader, state, error);
}

struct ZipCloser {
  void operator()(zip_t* archive) const { zip_discard(archive); }
};

// The folder a re-zipped report keeps its members in ("bugreport-x/"), or empty.
std::string_view FolderOf(std::string_view entry) {
  const size_t slash = entry.find('/');
  return slash == std::string_view::npos ? std::string_view{} : entry.substr(0, slash + 1);
}

// A persistent log's age: "logcat" is the newest, "logcat.NNN" older the higher NNN.
int PersistentAge(std::string_view file) {
  if (file == "logcat") return 0;
  int age = 0;
  for (const char c : file.substr(7)) {
    if (c < '0' || c > '9' || age > 100000) return -1;
    age = age * 10 + (c - '0');
  }
  return age;
}

bool ReadMember(zip_t* archive, zip_int64_t index, const std::string& memberName, Part part, InputState& state,
                std::string* error, Format* format) {
  zip_file_t* file = zip_fopen_index(archive, static_cast<zip_uint64_t>(index), 0);
  if (file == nullptr) {
    *error = PrintableName(memberName) + ": cannot read the zip member (" + zip_strerror(archive) + ")";
    return false;
  }
  ZipMemberSource memberSource(file, memberName);
  ReadAheadSource ahead(memberSource);
  // A small member gets a buffer its size (many small zips cost little).
  size_t capacity = kBufferSize;
  zip_stat_t stat;
  zip_stat_init(&stat);
  if (zip_stat_index(archive, static_cast<zip_uint64_t>(index), 0, &stat) == 0 && (stat.valid & ZIP_STAT_SIZE)) {
    capacity =
        std::clamp(static_cast<size_t>(std::min<zip_uint64_t>(stat.size, kBufferSize)) + 1, size_t{4096}, kBufferSize);
  }
  return ReadText(memberName, ahead, part, state, error, format, capacity);
}

// The bug report inside a zip `adb bugreport` wrote (or a zip of its folder), with the
// persistent logs and tombstones it holds.
bool ReadZip(std::string_view name, zip_source_t* source, InputSink& sink, std::string* error) {
  zip_error_t zipError;
  zip_error_init(&zipError);
  // No consistency check: a zip streamed to a pipe has data descriptors instead of sizes in
  // its local headers, which libzip's check takes for damage.
  std::unique_ptr<zip_t, ZipCloser> archive(zip_open_from_source(source, ZIP_RDONLY, &zipError));
  if (!archive) {
    zip_source_free(source);
    *error = PrintableName(name) + ": truncated or damaged zip (" + zip_error_strerror(&zipError) + ")";
    zip_error_fini(&zipError);
    return false;
  }
  zip_error_fini(&zipError);

  zip_int64_t index = -1;
  std::string member;
  std::vector<std::pair<int, zip_int64_t>> persistent;  // (age, index)
  std::vector<zip_int64_t> tombstones;
  zip_int64_t mainEntry = -1, firstReport = -1;
  std::string folder;
  const zip_int64_t entries = zip_get_num_entries(archive.get(), 0);
  for (zip_int64_t i = 0; i < entries; ++i) {
    const char* entry = zip_get_name(archive.get(), static_cast<zip_uint64_t>(i), 0);
    if (entry == nullptr) continue;
    const std::string_view entryName(entry);
    const std::string_view inFolder = entryName.substr(FolderOf(entryName).size());
    const bool topOrFolder = inFolder.find('/') == std::string_view::npos;
    if (inFolder == "main_entry.txt" && mainEntry < 0) {
      mainEntry = i;
      folder = std::string(FolderOf(entryName));
    }
    if (topOrFolder && inFolder.starts_with("bugreport") && inFolder.ends_with(".txt") && firstReport < 0) {
      firstReport = i;
    }
    // Inside the report's own folder, or at the top.
    const size_t fs = entryName.find("FS/data/");
    if (fs != std::string_view::npos && (fs == 0 || fs == FolderOf(entryName).size())) {
      const std::string_view path = entryName.substr(fs + 8);
      if (path.starts_with("misc/logd/logcat") && path.find('/', 10) == std::string_view::npos) {
        const int age = PersistentAge(path.substr(10));
        if (age >= 0) persistent.emplace_back(age, i);
      }
      if (path.starts_with("tombstones/tombstone_") && !path.ends_with(".pb")) tombstones.push_back(i);
    }
  }
  if (mainEntry >= 0) {
    zip_file_t* file = zip_fopen_index(archive.get(), static_cast<zip_uint64_t>(mainEntry), 0);
    if (file == nullptr) {
      *error = PrintableName(name) + ": truncated or damaged zip (" + zip_strerror(archive.get()) + ")";
      return false;
    }
    char text[kMaxMainEntry];
    const zip_int64_t got = zip_fread(file, text, sizeof text);
    if (got < 0) {
      *error = PrintableName(name) + ": truncated or damaged zip (" + zip_file_strerror(file) + ")";
      zip_fclose(file);
      return false;
    }
    zip_fclose(file);
    member = std::string(TrimSpace({text, static_cast<size_t>(got)}));
    index = member.empty() ? -1 : zip_name_locate(archive.get(), (folder + member).c_str(), 0);
    if (index < 0 && !member.empty()) index = zip_name_locate(archive.get(), member.c_str(), 0);
    if (index < 0) {
      *error = PrintableName(name) + ": main_entry.txt names \"" + PrintableName(member.substr(0, 200)) +
               "\", which is not in the zip";
      return false;
    }
    member = zip_get_name(archive.get(), static_cast<zip_uint64_t>(index), 0);
  } else if (firstReport >= 0) {
    index = firstReport;
    member = zip_get_name(archive.get(), static_cast<zip_uint64_t>(index), 0);
  } else {
    *error = PrintableName(name) + ": a zip without a bug report (no main_entry.txt, no bugreport*.txt in it)";
    return false;
  }

  InputState state(sink);
  const std::string prefix = std::string(name) + "!";
  sink.BeginInput(prefix + member, InputSink::InputKind::kBugreport);
  state.begun = true;
  // The report's time first: the persistent logs read before it need its year too.
  if (zip_file_t* head = zip_fopen_index(archive.get(), static_cast<zip_uint64_t>(index), 0); head != nullptr) {
    char text[kMaxMainEntry];
    const zip_int64_t got = zip_fread(head, text, sizeof text);
    zip_fclose(head);
    const std::string_view start(text, got > 0 ? static_cast<size_t>(got) : 0);
    if (const size_t at = start.find("== dumpstate: "); at != std::string_view::npos && at < 512) {
      const size_t end = start.find('\n', at);
      if (end != std::string_view::npos)
        sink.ReportTime(prefix + member, TrimSpace(start.substr(at + 14, end - at - 14)));
    }
  }
  // The persistent logs first, oldest first: the report's SYSTEM LOG repeats their end.
  std::sort(persistent.begin(), persistent.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
  for (const auto& [age, entry] : persistent) {
    const std::string entryName = prefix + zip_get_name(archive.get(), static_cast<zip_uint64_t>(entry), 0);
    std::string partError;
    if (!ReadMember(archive.get(), entry, entryName, Part::kPersistentLog, state, &partError, nullptr)) {
      sink.Notice(entryName, "persistent log not read: " + partError);
    }
  }
  Format format;
  const std::string memberName = prefix + member;
  if (!ReadMember(archive.get(), index, memberName, Part::kWhole, state, error, &format)) return false;
  if (format == Format::kZip) {
    *error = PrintableName(memberName) + ": a zip inside the zip, not a bug report";
    return false;
  }
  for (const zip_int64_t entry : tombstones) {
    const std::string entryName = prefix + zip_get_name(archive.get(), static_cast<zip_uint64_t>(entry), 0);
    if (!ReadMember(archive.get(), entry, entryName, Part::kTombstone, state, error, nullptr)) return false;
  }
  sink.EndInput(memberName);
  return true;
}

}  // namespace

std::string PrintableName(std::string_view name) {
  std::string text = sim::text::IsUtf8(name) ? std::string(name) : sim::text::EscapeUtf8(name);
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned char>(c));
      out += escaped;
    } else {
      out += c;
    }
  }
  return out;
}

bool ReadInput(const std::string& path, InputSink& sink, std::string* error) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) {
    *error = PrintableName(path) + ": " + std::strerror(errno);
    return false;
  }
  struct stat status{};
  if (::fstat(fd, &status) != 0) {
    *error = PrintableName(path) + ": " + std::strerror(errno);
    ::close(fd);
    return false;
  }
  if (S_ISDIR(status.st_mode)) {
    ::close(fd);
    *error = PrintableName(path) + ": a directory, not a file";
    return false;
  }
  // A FIFO, socket or device could block or never end: save the log to a file first.
  if (!S_ISREG(status.st_mode)) {
    ::close(fd);
    *error = PrintableName(path) + ": not a regular file (a pipe, socket or device); save it to a file first";
    return false;
  }
  ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  {
    FdSource source(fd, path, status.st_size);
    Format format;
    InputState state(sink);
    if (!ReadText(path, source, Part::kWhole, state, error, &format)) return false;
    if (format != Format::kZip) {
      sink.EndInput(path);
      return true;
    }
  }
  // A zip: libzip reads it from the file itself (the central directory is at its end).
  zip_error_t zipError;
  zip_error_init(&zipError);
  zip_source_t* source = zip_source_file_create(path.c_str(), 0, -1, &zipError);
  if (source == nullptr) {
    *error = PrintableName(path) + ": " + zip_error_strerror(&zipError);
    zip_error_fini(&zipError);
    return false;
  }
  zip_error_fini(&zipError);
  return ReadZip(path, source, sink, error);
}

bool ReadInputBytes(std::string_view name, std::string_view bytes, InputSink& sink, std::string* error) {
  if (IsZip(bytes)) {
    zip_error_t zipError;
    zip_error_init(&zipError);
    zip_source_t* source = zip_source_buffer_create(bytes.data(), bytes.size(), 0, &zipError);
    if (source == nullptr) {
      *error = PrintableName(name) + ": " + zip_error_strerror(&zipError);
      zip_error_fini(&zipError);
      return false;
    }
    zip_error_fini(&zipError);
    return ReadZip(name, source, sink, error);
  }
  // Bytes in memory that fit in less than the whole buffer get a buffer their size (plus the
  // one byte that shows the end), so that many small inputs cost little.
  MemorySource source(bytes);
  InputState state(sink);
  if (!ReadText(name, source, Part::kWhole, state, error, nullptr,
                std::clamp(bytes.size() + 1, size_t{4096}, kBufferSize))) {
    return false;
  }
  sink.EndInput(name);
  return true;
}

}  // namespace explain
