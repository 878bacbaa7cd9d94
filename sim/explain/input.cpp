// The explain command's reader: one input file (or bytes) in, its records out
// to a sink, line by line through one fixed buffer, whatever the input's size.
//
// Formats are told apart by content, from the first 64 KiB:
//   - a zip ("PK\3\4"): the archive `adb bugreport` writes; its bug report is
//     the member main_entry.txt names, else the first bugreport*.txt;
//   - a bug report: a "== dumpstate:" line among the first lines, or a first
//     line that is a section header ("------ NAME (command) ------"); only
//     the SYSTEM LOG and SYSTEM PROPERTIES sections are read;
//   - a getprop dump: a first line "[key]: [value]"; every line must be one;
//   - the kernel parameter's text: a single line of comma-separated numbers
//     (NUL padding after it is allowed, as the parameter is written padded);
//   - logcat text: a line in the threadtime, time or brief format among the
//     first 16 non-blank lines ("--------- beginning of" markers aside).
// Anything else, an empty or binary file, and text that is not UTF-8, is an
// error naming the file (and the line, where there is one). After an error
// the sink gets no EndInput for that input.
#include "sim/explain/input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <zip.h>

#include "sim/explain/logline.h"
#include "sim/records/records.h"

namespace explain {
namespace {

constexpr size_t kBufferSize = size_t{1} << 20;  // the one read buffer
constexpr size_t kMaxLine = size_t{256} << 10;   // longer lines are cut here; the rest is skipped
constexpr size_t kDetectBytes = size_t{64} << 10;
constexpr int kDetectLines = 16;
constexpr size_t kMaxMainEntry = 4096;  // main_entry.txt holds one member name

// Editors on Windows may put one before UTF-8 text.
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

constexpr char kNotRecognised[] = ": not a logcat, bug report, getprop dump or kernel parameter text";

// Where the bytes come from: a file, memory, or a zip member.
class ByteSource {
 public:
  virtual ~ByteSource() = default;
  // Up to `size` bytes into `to`; 0 at the end; -1 with `error` set on failure.
  virtual long Read(char* to, size_t size, std::string* error) = 0;
};

class FdSource final : public ByteSource {
 public:
  FdSource(int fd, std::string_view name) : fd_(fd), name_(name) {}
  ~FdSource() override { ::close(fd_); }
  FdSource(const FdSource&) = delete;
  FdSource& operator=(const FdSource&) = delete;
  long Read(char* to, size_t size, std::string* error) override {
    while (true) {
      const ssize_t got = ::read(fd_, to, size);
      if (got >= 0) return got;
      if (errno == EINTR) continue;
      *error = std::string(name_) + ": " + std::strerror(errno);
      return -1;
    }
  }

 private:
  int fd_;
  std::string_view name_;
};

class MemorySource final : public ByteSource {
 public:
  explicit MemorySource(std::string_view bytes) : bytes_(bytes) {}
  long Read(char* to, size_t size, std::string*) override {
    const size_t count = std::min(size, bytes_.size());
    std::memcpy(to, bytes_.data(), count);
    bytes_.remove_prefix(count);
    return static_cast<long>(count);
  }

 private:
  std::string_view bytes_;
};

class ZipMemberSource final : public ByteSource {
 public:
  ZipMemberSource(zip_file_t* file, std::string_view name) : file_(file), name_(name) {}
  ~ZipMemberSource() override { zip_fclose(file_); }
  ZipMemberSource(const ZipMemberSource&) = delete;
  ZipMemberSource& operator=(const ZipMemberSource&) = delete;
  long Read(char* to, size_t size, std::string* error) override {
    const zip_int64_t got = zip_fread(file_, to, size);
    if (got >= 0) return static_cast<long>(got);
    *error = std::string(name_) + ": truncated or damaged zip member (" + zip_file_strerror(file_) + ")";
    return -1;
  }

 private:
  zip_file_t* file_;
  std::string_view name_;
};

// Lines out of a source through one buffer. A line's view is valid until the
// next call. The first Fill() keeps the first 64 KiB in the buffer, so that
// the format can be told before any line is taken.
class LineReader {
 public:
  // `capacity`: the buffer's size, kBufferSize but for inputs known to be smaller.
  explicit LineReader(ByteSource& source, size_t capacity = kBufferSize)
      : source_(source), capacity_(capacity), maxLine_(std::min(kMaxLine, capacity - 1)), buffer_(new char[capacity]) {}

  bool Fill(std::string* error) {
    while (!eof_ && end_ < std::min(kDetectBytes, maxLine_)) {
      if (!ReadMore(error)) return false;
    }
    return true;
  }
  std::string_view Buffered() const { return {buffer_.get() + pos_, end_ - pos_}; }
  bool AtEnd() const { return eof_; }

  // 1 with a line (its end and a '\r' before it removed), 0 at the end, -1 on a read error.
  int Next(std::string_view& line, std::string* error) {
    while (true) {
      const char* const from = buffer_.get() + pos_;
      if (const void* newline = std::memchr(from, '\n', end_ - pos_)) {
        const size_t length = static_cast<const char*>(newline) - from;
        pos_ += length + 1;
        if (skipping_) {
          skipping_ = false;
          continue;
        }
        line = Cut(Strip({from, length}));
        if (lineNumber_++ == 0 && line.starts_with(kByteOrderMark)) line.remove_prefix(3);
        return 1;
      }
      if (eof_) {
        if (pos_ == end_) return 0;
        line = Cut(Strip({from, end_ - pos_}));
        pos_ = end_;
        if (skipping_) return 0;
        if (lineNumber_++ == 0 && line.starts_with(kByteOrderMark)) line.remove_prefix(3);
        return 1;
      }
      if (end_ - pos_ >= maxLine_) {
        // An over-long line: pass its first part (at a character boundary), skip the rest.
        const bool first = !skipping_;
        const std::string_view start(from, end_ - pos_);
        skipping_ = true;
        pos_ = end_;
        if (first) {
          line = Cut(start);
          ++lineNumber_;
          return 1;
        }
      }
      if (!ReadMore(error)) return -1;
    }
  }

  uint64_t LineNumber() const { return lineNumber_; }

 private:
  // A line longer than the limit loses its end, at a character boundary.
  std::string_view Cut(std::string_view line) const {
    if (line.size() <= maxLine_) return line;
    size_t length = maxLine_;
    while (length > 0 && (static_cast<unsigned char>(line[length]) & 0xC0) == 0x80) --length;
    return line.substr(0, length);
  }
  static std::string_view Strip(std::string_view line) {
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    return line;
  }

  bool ReadMore(std::string* error) {
    if (pos_ > 0) {
      std::memmove(buffer_.get(), buffer_.get() + pos_, end_ - pos_);
      end_ -= pos_;
      pos_ = 0;
    }
    const long got = source_.Read(buffer_.get() + end_, capacity_ - end_, error);
    if (got < 0) return false;
    if (got == 0) eof_ = true;
    end_ += static_cast<size_t>(got);
    return true;
  }

  ByteSource& source_;
  size_t capacity_;
  size_t maxLine_;  // below the capacity, so that a full buffer always holds an over-long line
  std::unique_ptr<char[]> buffer_;
  size_t pos_ = 0;
  size_t end_ = 0;
  bool eof_ = false;
  bool skipping_ = false;
  uint64_t lineNumber_ = 0;
};

enum class Format { kZip, kLogcat, kBugreport, kGetprop, kKernelText };

bool IsZip(std::string_view bytes) { return bytes.starts_with("PK\x03\x04") || bytes.starts_with("PK\x05\x06"); }

bool IsBlank(std::string_view line) { return line.find_first_not_of(" \t") == std::string_view::npos; }

// Blanks and line ends; form feeds and vertical tabs count as text.
std::string_view TrimSpace(std::string_view text) { return sim::records::Trim(text, " \t\r\n"); }

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
  return std::string(name) + ":" + std::to_string(lineNumber);
}

// Tells the format from the first bytes, or sets `error`.
bool Detect(std::string_view name, std::string_view prefix, bool wholeFile, Format& format, std::string* error) {
  if (prefix.empty()) {
    *error = std::string(name) + ": empty file";
    return false;
  }
  if (IsZip(prefix)) {
    format = Format::kZip;
    return true;
  }
  if (prefix.starts_with("\xFF\xFE") || prefix.starts_with("\xFE\xFF")) {
    *error = std::string(name) + ": UTF-16 text; save it as UTF-8";
    return false;
  }
  if (prefix.starts_with(kByteOrderMark)) prefix.remove_prefix(3);
  if (prefix.find('\0') != std::string_view::npos) {
    // Only the kernel parameter's text may carry NULs: the padding after its numbers.
    const size_t nul = prefix.find('\0');
    if (wholeFile && prefix.find_first_not_of('\0', nul) == std::string_view::npos &&
        IsNumberList(KernelTextOf(prefix))) {
      format = Format::kKernelText;
      return true;
    }
    *error = std::string(name) + ": binary file" + kNotRecognised;
    return false;
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
  uint64_t lineNumber = 0;
  int nonBlank = 0;
  bool first = true;
  LogLine parsed{};
  while (!rest.empty() && nonBlank < kDetectLines) {
    const size_t newline = rest.find('\n');
    std::string_view line = rest.substr(0, newline);
    rest = newline == std::string_view::npos ? std::string_view{} : rest.substr(newline + 1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    ++lineNumber;
    if (!sim::records::IsUtf8(line)) {
      *error = At(name, lineNumber) + ": invalid UTF-8";
      return false;
    }
    if (IsBlank(line)) continue;
    ++nonBlank;
    if (line.starts_with("== dumpstate:") || (first && !SectionName(line).empty())) {
      format = Format::kBugreport;
      return true;
    }
    std::string_view key;
    std::string_view value;
    if (first && ParsePropertyLine(line, key, value)) {
      format = Format::kGetprop;
      return true;
    }
    if (first && IsNumberList(TrimSpace(line))) {
      format = Format::kKernelText;
      return true;
    }
    if (ParseLogLine(line, parsed) != LogFormat::kNone) {
      format = Format::kLogcat;
      return true;
    }
    // A bug report's banner ("=====...") may come before its "== dumpstate:" line.
    if (!IsBufferMarker(line) && line.find_first_not_of('=') != std::string_view::npos) first = false;
  }
  if (nonBlank == 0 && rest.empty() && wholeFile) {
    *error = std::string(name) + ": empty file (blank lines only)";
    return false;
  }
  *error = std::string(name) + kNotRecognised;
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

// The text of a line the reader takes: UTF-8 and no NUL.
bool CheckText(std::string_view name, uint64_t lineNumber, std::string_view line, std::string* error) {
  if (line.find('\0') != std::string_view::npos) {
    *error = At(name, lineNumber) + ": binary data (a NUL byte)" + " in a text input";
    return false;
  }
  if (!sim::records::IsUtf8(line)) {
    *error = At(name, lineNumber) + ": invalid UTF-8";
    return false;
  }
  return true;
}

// Streams a text input whose format is known; the reader still holds its first bytes.
bool StreamText(std::string_view name, Format format, LineReader& reader, InputSink& sink, std::string* error) {
  sink.BeginInput(name, KindOf(format));
  enum class Section { kOther, kLog, kProperties };
  Section section = Section::kOther;
  std::string kernelText;
  bool haveKernelText = false;
  LogLine log{};
  log.source = name;
  std::string_view line;
  int got;
  while ((got = reader.Next(line, error)) == 1) {
    const uint64_t lineNumber = reader.LineNumber();
    switch (format) {
      case Format::kLogcat:
        if (!CheckText(name, lineNumber, line, error)) return false;
        if (ParseLogLine(line, log) != LogFormat::kNone) {
          log.lineNumber = lineNumber;
          sink.Log(log);
        }
        break;
      case Format::kBugreport: {
        if (line.starts_with("------ ")) {
          const std::string_view sectionName = SectionName(line);
          if (!sectionName.empty()) {
            section = Section::kOther;
            if (sectionName == "SYSTEM LOG") section = Section::kLog;
            if (sectionName == "SYSTEM PROPERTIES") section = Section::kProperties;
            break;
          }
        }
        // Other sections are not read, nor checked: dumps of all kinds live there.
        if (section == Section::kOther) break;
        if (!CheckText(name, lineNumber, line, error)) return false;
        if (section == Section::kLog) {
          if (ParseLogLine(line, log) != LogFormat::kNone) {
            log.lineNumber = lineNumber;
            sink.Log(log);
          }
        } else {
          std::string_view key;
          std::string_view value;
          if (ParsePropertyLine(line, key, value)) sink.Property(name, key, value);
        }
        break;
      }
      case Format::kGetprop: {
        if (!CheckText(name, lineNumber, line, error)) return false;
        if (IsBlank(line)) break;
        std::string_view key;
        std::string_view value;
        if (!ParsePropertyLine(line, key, value)) {
          *error = At(name, lineNumber) + ": not a \"[key]: [value]\" line in a getprop dump";
          return false;
        }
        sink.Property(name, key, value);
        break;
      }
      case Format::kKernelText: {
        const std::string_view text = KernelTextOf(line);
        if (text.empty() && line.find_first_not_of(std::string_view(" \t\0", 3)) == std::string_view::npos) break;
        if (haveKernelText) {
          *error = At(name, lineNumber) + ": a kernel parameter text is one line of numbers";
          return false;
        }
        if (!IsNumberList(text) || line.find_first_not_of('\0', line.find('\0')) != std::string_view::npos) {
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
  if (haveKernelText) sink.KernelText(name, kernelText);
  sink.EndInput(name);
  return true;
}

// A text input from a source: detect, then stream. A zip is not taken here
// (the caller opens zips); one inside a zip is an error.
bool ReadText(std::string_view name, ByteSource& source, InputSink& sink, std::string* error,
              Format* detected = nullptr, size_t capacity = kBufferSize) {
  LineReader reader(source, capacity);
  if (!reader.Fill(error)) return false;
  Format format;
  const std::string_view buffered = reader.Buffered();
  const bool wholeFile = reader.AtEnd() && buffered.size() <= kDetectBytes;
  if (!Detect(name, buffered.substr(0, kDetectBytes), wholeFile, format, error)) return false;
  if (detected != nullptr) *detected = format;
  if (format == Format::kZip) return true;
  return StreamText(name, format, reader, sink, error);
}

struct ZipCloser {
  void operator()(zip_t* archive) const { zip_discard(archive); }
};

// The bug report inside a zip `adb bugreport` wrote.
bool ReadZip(std::string_view name, zip_source_t* source, InputSink& sink, std::string* error) {
  zip_error_t zipError;
  zip_error_init(&zipError);
  std::unique_ptr<zip_t, ZipCloser> archive(zip_open_from_source(source, ZIP_RDONLY | ZIP_CHECKCONS, &zipError));
  if (!archive) {
    zip_source_free(source);
    *error = std::string(name) + ": truncated or damaged zip (" + zip_error_strerror(&zipError) + ")";
    zip_error_fini(&zipError);
    return false;
  }
  zip_error_fini(&zipError);

  zip_int64_t index = -1;
  std::string member;
  if (const zip_int64_t mainEntry = zip_name_locate(archive.get(), "main_entry.txt", 0); mainEntry >= 0) {
    zip_file_t* file = zip_fopen_index(archive.get(), static_cast<zip_uint64_t>(mainEntry), 0);
    if (file == nullptr) {
      *error = std::string(name) + ": truncated or damaged zip (" + zip_strerror(archive.get()) + ")";
      return false;
    }
    char text[kMaxMainEntry];
    const zip_int64_t got = zip_fread(file, text, sizeof text);
    if (got < 0) {
      *error = std::string(name) + ": truncated or damaged zip (" + zip_file_strerror(file) + ")";
      zip_fclose(file);
      return false;
    }
    zip_fclose(file);
    member = std::string(TrimSpace({text, static_cast<size_t>(got)}));
    index = member.empty() ? -1 : zip_name_locate(archive.get(), member.c_str(), 0);
    if (index < 0) {
      *error = std::string(name) + ": main_entry.txt names \"" + member.substr(0, 200) + "\", which is not in the zip";
      return false;
    }
  } else {
    const zip_int64_t entries = zip_get_num_entries(archive.get(), 0);
    for (zip_int64_t i = 0; i < entries && index < 0; ++i) {
      const char* entry = zip_get_name(archive.get(), static_cast<zip_uint64_t>(i), 0);
      if (entry == nullptr) continue;
      const std::string_view entryName(entry);
      if (entryName.starts_with("bugreport") && entryName.ends_with(".txt") &&
          entryName.find('/') == std::string_view::npos) {
        index = i;
        member = entryName;
      }
    }
    if (index < 0) {
      *error = std::string(name) + ": a zip without a bug report (no main_entry.txt, no bugreport*.txt in it)";
      return false;
    }
  }

  zip_file_t* file = zip_fopen_index(archive.get(), static_cast<zip_uint64_t>(index), 0);
  const std::string memberName = std::string(name) + "!" + member;
  if (file == nullptr) {
    *error = memberName + ": cannot read the zip member (" + zip_strerror(archive.get()) + ")";
    return false;
  }
  ZipMemberSource memberSource(file, memberName);
  // A small member gets a buffer its size (many small zips cost little).
  size_t capacity = kBufferSize;
  zip_stat_t stat;
  zip_stat_init(&stat);
  if (zip_stat_index(archive.get(), static_cast<zip_uint64_t>(index), 0, &stat) == 0 && (stat.valid & ZIP_STAT_SIZE)) {
    capacity =
        std::clamp(static_cast<size_t>(std::min<zip_uint64_t>(stat.size, kBufferSize)) + 1, size_t{4096}, kBufferSize);
  }
  Format format;
  if (!ReadText(memberName, memberSource, sink, error, &format, capacity)) return false;
  if (format == Format::kZip) {
    *error = memberName + ": a zip inside the zip, not a bug report";
    return false;
  }
  return true;
}

}  // namespace

bool ReadInput(const std::string& path, InputSink& sink, std::string* error) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    *error = path + ": " + std::strerror(errno);
    return false;
  }
  struct stat status{};
  if (::fstat(fd, &status) == 0 && S_ISDIR(status.st_mode)) {
    ::close(fd);
    *error = path + ": a directory, not a file";
    return false;
  }
  {
    FdSource source(fd, path);
    Format format;
    if (!ReadText(path, source, sink, error, &format)) return false;
    if (format != Format::kZip) return true;
  }
  // A zip: libzip reads it from the file itself (the central directory is at its end).
  zip_error_t zipError;
  zip_error_init(&zipError);
  zip_source_t* source = zip_source_file_create(path.c_str(), 0, -1, &zipError);
  if (source == nullptr) {
    *error = path + ": " + zip_error_strerror(&zipError);
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
      *error = std::string(name) + ": " + zip_error_strerror(&zipError);
      zip_error_fini(&zipError);
      return false;
    }
    zip_error_fini(&zipError);
    return ReadZip(name, source, sink, error);
  }
  // Bytes in memory that fit in less than the whole buffer get a buffer their size (plus the
  // one byte that shows the end), so that many small inputs cost little.
  MemorySource source(bytes);
  return ReadText(name, source, sink, error, nullptr, std::clamp(bytes.size() + 1, size_t{4096}, kBufferSize));
}

}  // namespace explain
