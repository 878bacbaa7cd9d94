#include "explain/sites.h"

#include <algorithm>
#include <bit>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <unordered_map>
#include <utility>

namespace explain {
namespace {

// A format split into literal text and conversions.
struct Piece {
  std::string literal;  // when conversion is 0
  char conversion = 0;  // d x s p
};

struct Matcher {
  const LogSite* site;
  LogSiteId id;
  std::string prefix;  // "hook.cpp:17 GetStaticCapsHook() "
  std::vector<Piece> pieces;
};

std::vector<Piece> Compile(std::string_view format) {
  std::vector<Piece> pieces;
  std::string literal;
  for (size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%') {
      literal += format[i];
      continue;
    }
    ++i;
    if (i < format.size() && format[i] == '%') {
      literal += '%';
      continue;
    }
    while (i < format.size() && (format[i] == 'l' || format[i] == 'h' || format[i] == 'z')) ++i;
    if (!literal.empty()) pieces.push_back({literal, 0});
    literal.clear();
    const char letter = i < format.size() ? format[i] : 's';
    pieces.push_back({"", letter == 'i' || letter == 'u' ? 'd' : letter});
  }
  if (!literal.empty()) pieces.push_back({literal, 0});
  return pieces;
}

// The length of a number of `conversion` at the start of `text` (0: none).
size_t NumberLength(std::string_view text, char conversion) {
  size_t at = 0;
  if (conversion == 'p') {
    if (text.starts_with("(nil)")) return 5;
    if (!text.starts_with("0x")) return 0;
    at = 2;
  } else if (conversion == 'd' && text.starts_with('-')) {
    at = 1;
  }
  const size_t digits = at;
  while (at < text.size() && (conversion == 'd' ? std::isdigit(static_cast<unsigned char>(text[at]))
                                                : std::isxdigit(static_cast<unsigned char>(text[at])))) {
    ++at;
  }
  return at == digits ? 0 : at;
}

// The maximal runs [begin, end) of decimal or hex digits of a text. A number
// starting anywhere inside a run ends where the run ends.
std::vector<std::pair<size_t, size_t>> DigitRuns(std::string_view text, bool hexDigits) {
  std::vector<std::pair<size_t, size_t>> runs;
  const auto digit = [&](size_t at) {
    const auto c = static_cast<unsigned char>(text[at]);
    return static_cast<unsigned>(c - '0') < 10 || (hexDigits && static_cast<unsigned>((c | 0x20) - 'a') < 6);
  };
  for (size_t at = 0; at < text.size();) {
    if (!digit(at)) {
      ++at;
      continue;
    }
    const size_t begin = at;
    while (at < text.size() && digit(at)) ++at;
    runs.emplace_back(begin, at);
  }
  return runs;
}

// A flat array of bits with the word-at-a-time operations the matcher needs.
class Bits {
 public:
  static constexpr size_t kNone = SIZE_MAX;

  explicit Bits(size_t size) : m_words((size + 63) / 64) {}
  bool Test(size_t bit) const { return ((m_words[bit / 64] >> (bit % 64)) & 1) != 0; }
  void Set(size_t bit) { m_words[bit / 64] |= uint64_t{1} << (bit % 64); }
  // Sets [from, to).
  void SetRange(size_t from, size_t to) {
    for (; from < to && from % 64 != 0; ++from) Set(from);
    for (; to - from >= 64; from += 64) m_words[from / 64] = ~uint64_t{0};
    for (; from < to; ++from) Set(from);
  }
  // The first set bit of [from, to), or kNone.
  size_t First(size_t from, size_t to) const {
    while (from < to) {
      const uint64_t word = m_words[from / 64] >> (from % 64);
      if (word != 0) {
        const size_t bit = from + static_cast<size_t>(std::countr_zero(word));
        return bit < to ? bit : kNone;
      }
      from += 64 - from % 64;
    }
    return kNone;
  }
  // The last set bit of [from, to), or kNone.
  size_t Last(size_t from, size_t to) const {
    while (to > from) {
      const size_t last = to - 1;
      const uint64_t word = m_words[last / 64] & (~uint64_t{0} >> (63 - last % 64));
      if (word != 0) {
        const size_t bit = last / 64 * 64 + 63 - static_cast<size_t>(std::countl_zero(word));
        return bit >= from ? bit : kNone;
      }
      to = last / 64 * 64;
    }
    return kNone;
  }

 private:
  std::vector<uint64_t> m_words;
};

// Matches `pieces` against all of `text`; with `mayEnd` (a cut line) the text
// may stop anywhere in the format, even inside a literal or a number. A
// number takes all its digits; a string takes the shortest text that lets the
// rest match, and a final string takes all that is left.
//
// In time and memory linear in the text, for any text (a backtracking search
// over the strings' lengths takes minutes on a long line of near-matches):
// a backward pass marks, piece by piece from the last, the positions from
// which the rest of the format matches (`can`, one row of bits per piece);
// a forward walk then follows the marks, each string stopping at the first
// position from which the next piece goes on.
bool MatchPieces(const std::vector<Piece>& pieces, std::string_view text, bool mayEnd,
                 std::vector<std::string_view>* fields) {
  const size_t n = text.size();
  const size_t width = n + 1;  // positions 0..n
  const size_t count = pieces.size();
  Bits can((count + 1) * width);
  const auto bit = [width](size_t piece, size_t position) { return piece * width + position; };
  can.Set(bit(count, n));
  // The digit runs, each kind found when a piece first needs it.
  std::vector<std::pair<size_t, size_t>> decimalRuns, hexRuns;
  bool haveDecimal = false, haveHex = false;
  for (size_t i = count; i-- > 0;) {
    const Piece& piece = pieces[i];
    // A cut line may end before any piece.
    if (mayEnd) can.Set(bit(i, n));
    if (piece.conversion == 0) {
      const std::string_view literal = piece.literal;
      for (size_t from = 0;;) {
        const size_t at = text.find(literal, from);
        if (at == std::string_view::npos) break;
        if (can.Test(bit(i + 1, at + literal.size()))) can.Set(bit(i, at));
        from = at + 1;
      }
      // A cut line may end inside the literal.
      for (size_t p = n - std::min(n, literal.size() - 1); mayEnd && p < n; ++p) {
        if (literal.starts_with(text.substr(p))) can.Set(bit(i, p));
      }
    } else if (piece.conversion == 's' && i + 1 == count) {
      can.SetRange(bit(i, 0), bit(i, width));  // a final string takes all
    } else if (piece.conversion == 's') {
      // Some length fits from every position up to the last one the rest
      // matches from.
      const size_t last = can.Last(bit(i + 1, 0), bit(i + 1, width));
      if (last != Bits::kNone) can.SetRange(bit(i, 0), bit(i, last - bit(i + 1, 0)) + 1);
    } else {
      if (piece.conversion == 'd' && !haveDecimal) {
        decimalRuns = DigitRuns(text, false);
        haveDecimal = true;
      } else if (piece.conversion != 'd' && !haveHex) {
        hexRuns = DigitRuns(text, true);
        haveHex = true;
      }
      if (piece.conversion == 'd') {
        for (const auto& [begin, end] : decimalRuns) {
          if (!can.Test(bit(i + 1, end))) continue;
          can.SetRange(bit(i, begin), bit(i, end));
          if (begin > 0 && text[begin - 1] == '-') can.Set(bit(i, begin - 1));
        }
      } else if (piece.conversion == 'p') {
        for (const auto& [begin, end] : hexRuns) {
          if (begin >= 2 && text.substr(begin - 2, 2) == "0x" && can.Test(bit(i + 1, end))) can.Set(bit(i, begin - 2));
        }
        for (size_t from = 0;;) {
          const size_t at = text.find("(nil)", from);
          if (at == std::string_view::npos) break;
          if (can.Test(bit(i + 1, at + 5))) can.Set(bit(i, at));
          from = at + 1;
        }
      } else {
        for (const auto& [begin, end] : hexRuns) {
          if (can.Test(bit(i + 1, end))) can.SetRange(bit(i, begin), bit(i, end));
        }
      }
    }
  }
  if (!can.Test(bit(0, 0))) return false;
  // The walk: every step lands on a marked (piece, position).
  size_t p = 0;
  for (size_t i = 0; i < count && !(p == n && mayEnd); ++i) {
    const Piece& piece = pieces[i];
    const std::string_view rest = text.substr(p);
    if (piece.conversion == 0) {
      if (!rest.starts_with(piece.literal)) break;  // a cut line ends inside it
      p += piece.literal.size();
    } else if (piece.conversion == 's') {
      const size_t end = i + 1 == count ? n : can.First(bit(i + 1, p), bit(i + 1, width)) - bit(i + 1, 0);
      fields->push_back(text.substr(p, end - p));
      p = end;
    } else {
      const size_t length = NumberLength(rest, piece.conversion);
      fields->push_back(rest.substr(0, length));
      p += length;
    }
  }
  return true;
}

const char* BaseName(const char* file) {
  const char* slash = std::strrchr(file, '/');
  return slash != nullptr ? slash + 1 : file;
}

const std::vector<Matcher>& Matchers() {
  static const std::vector<Matcher> matchers = [] {
    std::vector<Matcher> all;
    for (const LogSite& site : logsite::kAll) {
      all.push_back({&site, static_cast<LogSiteId>(&site - logsite::kAll),
                     std::string(BaseName(site.reportedFile)) + ":" + std::to_string(site.reportedLine) + " " +
                         site.function + "() ",
                     Compile(site.format)});
    }
    return all;
  }();
  return matchers;
}

}  // namespace

std::string Conversions(std::string_view format) {
  std::string letters;
  for (const Piece& piece : Compile(format)) {
    if (piece.conversion != 0) letters += piece.conversion;
  }
  return letters;
}

bool MatchFormat(std::string_view format, std::string_view text, bool mayEnd, std::vector<std::string_view>* fields) {
  return MatchPieces(Compile(format), text, mayEnd, fields);
}

// The matchers by prefix: a message's prefix ends at its first "() " (no file or function name
// holds one), so one look-up finds the sites it can be.
const std::unordered_map<std::string_view, std::vector<const Matcher*>>& MatchersByPrefix() {
  static const auto byPrefix = [] {
    std::unordered_map<std::string_view, std::vector<const Matcher*>> all;
    for (const Matcher& matcher : Matchers()) all[matcher.prefix].push_back(&matcher);
    return all;
  }();
  return byPrefix;
}

bool MatchSite(std::string_view message, SiteMatch* match) {
  const bool mayEnd = message.size() >= kCutLength;
  const size_t close = message.find("() ");
  if (close == std::string_view::npos) return false;
  const auto candidates = MatchersByPrefix().find(message.substr(0, close + 3));
  if (candidates == MatchersByPrefix().end()) return false;
  for (const Matcher* const candidate : candidates->second) {
    const Matcher& matcher = *candidate;
    std::vector<std::string_view> fields;
    const std::string_view text = message.substr(matcher.prefix.size());
    // A whole match first; only a line at the cut length may end early.
    bool cut = false;
    if (!MatchPieces(matcher.pieces, text, false, &fields)) {
      fields.clear();
      if (!mayEnd || !MatchPieces(matcher.pieces, text, true, &fields)) continue;
      cut = true;
    }
    match->site = matcher.site;
    match->id = matcher.id;
    match->fields = std::move(fields);
    match->cut = cut;
    return true;
  }
  return false;
}

}  // namespace explain
