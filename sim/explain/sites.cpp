#include "sim/explain/sites.h"

#include <cctype>
#include <cstring>

namespace explain {
namespace {

constexpr SiteRole D = SiteRole::kDecision;
constexpr SiteRole C = SiteRole::kContext;

// Each site's role and the conversions its handler reads. A new site, a
// renamed one, or a format whose conversions change stops the build below
// until this table (and the story's handler for the site) follows.
constexpr SiteTeaching kTeaching[] = {
    {"LoadRemediumNullCore", D, ""},
    {"NotifyHookMessageNullCore", D, ""},
    {"GetHookArgumentsNullCore", D, ""},
    {"ProtectionCallbackNullCore", D, ""},
    {"IsSwitchOpenedNullCore", D, ""},
    {"RecordProbeMessageNullCore", D, ""},
    {"StateUpdateRead", C, "dsss"},
    {"StateUpdateWrite", C, "s"},
    {"StateGetValue", C, "ss"},
    {"StateGetMatch", C, "ssss"},
    {"SettingsOpenFailure", D, "s"},
    {"StaticCapsSlot", C, "dd"},
    {"LastRetryVerdict", C, "sddd"},
    {"EepromLastRetryVerdict", C, "sddd"},
    {"EepromBypassProbeCount", C, "d"},
    {"EepromBypassVerdict", C, "sdddd"},
    {"SetProbeResultOpenFailure", D, "s"},
    {"SetProbeResultReadText", C, "s"},
    {"SetProbeResultWrite", D, "sd"},
    {"ReadProbeResultOpenFailure", D, "s"},
    {"ReadProbeResultReadText", C, "s"},
    {"ResetProbeResultOpenFailure", D, "s"},
    {"ResetProbeResultReadText", C, "s"},
    {"ResetProbeResultWrite", C, "s"},
    {"InitResultOpenFailure", D, "s"},
    {"InitResultReadText", C, "s"},
    {"ProbeLastResult", C, "sd"},
    {"ProbeProtectionArgument", C, "s"},
    {"ProbeProtectionSensorName", D, "s"},
    {"ProbeSettings", C, "dd"},
    {"ProbeSettingsMissing", D, "dd"},
    {"ProbeSensorUsage", C, "ssdd"},
    {"ProbeMostProbed", C, "sd"},
    {"ProbeCount", C, "sd"},
    {"ProbeOutcome", D, "sddd"},
    {"InitDeviceChanged", D, "dddd"},
    {"InitDeviceSkip", D, "d"},
    {"InitConfigChanged", D, "dddd"},
    {"ConfigCmdsSkip", D, "d"},
    {"ConfigCmdsChanged", D, "ddd"},
    {"SubmitInitialConfigCode", C, "d"},
    {"SubmitInitialConfigChanged", D, "ddp"},
    {"SubmitConfigCode", C, "d"},
    {"SubmitConfigChanged", D, "ddp"},
    {"SensorI2CSlaveAddress", D, "x"},
    {"EepromProbeRecorded", C, "sd"},
    {"EepromDataSettings", C, "ddd"},
    {"EepromDataSensorUsage", C, "ddssddsd"},
    {"EepromDataOutcome", D, "dsd"},
    {"ProbeEepromArgument", C, "s"},
    {"ProbeEepromOutcome", D, "sd"},
    {"ReadEepromArgument", C, "s"},
    {"ReadEepromSensorName", D, "s"},
    {"ActuatorNames", C, "ss"},
    {"ActuatorAddressChanged", D, "x"},
    {"ActuatorAddress", C, "x"},
    {"OisProviderResult", D, "d"},
    {"OisI2CSlaveAddress", D, "x"},
    {"GyroTimestampModified", D, "d"},
    {"GyroSampleTimestamp", C, "dd"},
};

constexpr bool Same(const char* a, const char* b) {
  while (*a != '\0' && *a == *b) ++a, ++b;
  return *a == *b;
}

// The conversion letters of a format, as Conversions() gives them.
constexpr bool ConversionsAre(const char* format, const char* letters) {
  for (const char* p = format; *p != '\0'; ++p) {
    if (*p != '%') continue;
    ++p;
    if (*p == '%') continue;
    while (*p == 'l' || *p == 'h' || *p == 'z') ++p;
    const char letter = (*p == 'i' || *p == 'u') ? 'd' : *p;
    if (*letters != letter) return false;
    ++letters;
  }
  return *letters == '\0';
}

constexpr bool EverySiteTaught() {
  if (std::size(kTeaching) != std::size(logsite::kAll)) return false;
  for (const LogSite& site : logsite::kAll) {
    bool found = false;
    for (const SiteTeaching& teaching : kTeaching) {
      if (Same(site.name, teaching.name)) {
        if (!ConversionsAre(site.format, teaching.conversions)) return false;
        found = true;
      }
    }
    if (!found) return false;
  }
  return true;
}
static_assert(EverySiteTaught(),
              "a log site was added, renamed or changed its conversions: teach sim/explain (kTeaching and the story's "
              "handler for the site)");

// A format split into literal text and conversions.
struct Piece {
  std::string literal;  // when conversion is 0
  char conversion = 0;  // d x s p
};

struct Matcher {
  const LogSite* site;
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
    if (text.substr(0, 5) == "(nil)") return 5;
    if (text.substr(0, 2) != "0x") return 0;
    at = 2;
  } else if (conversion == 'd' && !text.empty() && text[0] == '-') {
    at = 1;
  }
  const size_t digits = at;
  while (at < text.size() && (conversion == 'd' ? std::isdigit(static_cast<unsigned char>(text[at]))
                                                : std::isxdigit(static_cast<unsigned char>(text[at])))) {
    ++at;
  }
  return at == digits ? 0 : at;
}

// Matches pieces[index...] against `text`; a cut line may end anywhere.
bool MatchFrom(const std::vector<Piece>& pieces, size_t index, std::string_view text, bool mayEnd,
               std::vector<std::string_view>* fields) {
  if (index == pieces.size()) return text.empty();
  if (text.empty() && mayEnd) return true;
  const Piece& piece = pieces[index];
  if (piece.conversion == 0) {
    if (text.substr(0, piece.literal.size()) == piece.literal) {
      return MatchFrom(pieces, index + 1, text.substr(piece.literal.size()), mayEnd, fields);
    }
    return mayEnd && std::string_view(piece.literal).substr(0, text.size()) == text;
  }
  if (piece.conversion != 's') {
    const size_t length = NumberLength(text, piece.conversion);
    if (length == 0) return false;
    fields->push_back(text.substr(0, length));
    if (MatchFrom(pieces, index + 1, text.substr(length), mayEnd, fields)) return true;
    fields->pop_back();
    return false;
  }
  // A string: the shortest text that lets the rest match (the last takes all).
  for (size_t length = index + 1 == pieces.size() ? text.size() : 0; length <= text.size(); ++length) {
    fields->push_back(text.substr(0, length));
    if (MatchFrom(pieces, index + 1, text.substr(length), mayEnd, fields)) return true;
    fields->pop_back();
  }
  return false;
}

const char* BaseName(const char* file) {
  const char* slash = std::strrchr(file, '/');
  return slash != nullptr ? slash + 1 : file;
}

const std::vector<Matcher>& Matchers() {
  static const std::vector<Matcher> matchers = [] {
    std::vector<Matcher> all;
    for (const LogSite& site : logsite::kAll) {
      all.push_back({&site,
                     std::string(BaseName(site.file)) + ":" + std::to_string(site.line) + " " + site.function + "() ",
                     Compile(site.format)});
    }
    return all;
  }();
  return matchers;
}

}  // namespace

std::span<const SiteTeaching> SiteTeachings() { return kTeaching; }

const SiteTeaching* TeachingOf(std::string_view name) {
  for (const SiteTeaching& teaching : kTeaching) {
    if (name == teaching.name) return &teaching;
  }
  return nullptr;
}

std::string Conversions(std::string_view format) {
  std::string letters;
  for (const Piece& piece : Compile(format)) {
    if (piece.conversion != 0) letters += piece.conversion;
  }
  return letters;
}

bool MatchSite(std::string_view message, SiteMatch* match) {
  const bool mayEnd = message.size() >= kCutLength;
  for (const Matcher& matcher : Matchers()) {
    if (message.substr(0, matcher.prefix.size()) != matcher.prefix) continue;
    std::vector<std::string_view> fields;
    const std::string_view text = message.substr(matcher.prefix.size());
    // A whole match first; only a line at the cut length may end early.
    bool cut = false;
    if (!MatchFrom(matcher.pieces, 0, text, false, &fields)) {
      fields.clear();
      if (!mayEnd || !MatchFrom(matcher.pieces, 0, text, true, &fields)) continue;
      cut = true;
    }
    match->site = matcher.site;
    match->fields = std::move(fields);
    match->cut = cut;
    return true;
  }
  return false;
}

}  // namespace explain
