// remedium-sim fleet report: one page of the fleet that opens anywhere,
// offline: the summary by build, a chart per rate with each build's 95%
// interval, and the top failure signatures with links to example reports.
// Everything is inline (CSS, SVG; no script, font or image fetched), and every
// text from the database is escaped.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "sim/fleet/query.h"

namespace fleet {

namespace {

std::string Escape(const std::string& text) {
  std::string html;
  html.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '&':
        html += "&amp;";
        break;
      case '<':
        html += "&lt;";
        break;
      case '>':
        html += "&gt;";
        break;
      case '"':
        html += "&quot;";
        break;
      case '\'':
        html += "&#39;";
        break;
      default:
        html += c;
    }
  }
  return html;
}

// A report's path as a file:// URL: made absolute (from the current folder
// when the database holds it relative) and percent-encoded.
std::string FileUrl(const std::string& path) {
  std::error_code ec;
  std::filesystem::path absolute = std::filesystem::absolute(path, ec);
  const std::string text = ec ? path : absolute.lexically_normal().string();
  std::string url = "file://";
  for (unsigned char c : text) {
    if (std::isalnum(c) || c == '/' || c == '-' || c == '.' || c == '_' || c == '~') {
      url += static_cast<char>(c);
    } else {
      char escaped[4];
      std::snprintf(escaped, sizeof escaped, "%%%02X", c);
      url += escaped;
    }
  }
  return url;
}

std::string Number(double x) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", x);
  return text;
}

// The smallest of 1, 2, 5 times a power of ten (as a fraction) at or above x.
double AxisEnd(double x) {
  if (!(x > 0)) return 0.01;
  const double power = std::pow(10.0, std::floor(std::log10(x)));
  for (double step : {1.0, 2.0, 5.0, 10.0})
    if (step * power >= x * (1 - 1e-9)) return std::min(1.0, step * power);
  return 1;
}

// A build's short name: its build id, else its fingerprint.
std::string ShortName(const Group& group) { return group.label.empty() ? GroupName(group) : group.label; }

constexpr const char kStyle[] = R"css(
:root { color-scheme: light; --ink: #1d2330; --muted: #5d6678; --line: #d9dde5; --accent: #2f6fdf; --fill: #dbe6fb; }
* { box-sizing: border-box; }
body { margin: 0 auto; max-width: 1160px; padding: 24px; font: 14px/1.45 system-ui, -apple-system, "Segoe UI", Roboto, sans-serif; color: var(--ink); background: #fff; }
h1 { font-size: 22px; margin: 0 0 4px; }
h2 { font-size: 18px; margin: 32px 0 8px; border-bottom: 1px solid var(--line); padding-bottom: 4px; }
h3 { font-size: 14px; margin: 16px 0 4px; }
p.meta, .muted { color: var(--muted); }
nav a { margin-right: 16px; }
a { color: var(--accent); }
table { border-collapse: collapse; width: 100%; }
th, td { padding: 6px 8px; border-bottom: 1px solid var(--line); text-align: left; vertical-align: top; }
th { font-weight: 600; background: #f4f6f9; }
td.num { text-align: right; font-variant-numeric: tabular-nums; }
td.rate { white-space: nowrap; font-variant-numeric: tabular-nums; }
td.rate .ci, td.rate .k { display: block; color: var(--muted); font-size: 12px; }
.build { font-weight: 600; }
.fingerprint { display: block; color: var(--muted); font-size: 11px; word-break: break-all; }
code { font: 12px/1.4 ui-monospace, "DejaVu Sans Mono", monospace; word-break: break-all; }
.charts { display: grid; grid-template-columns: 1fr; gap: 12px; }
figure { margin: 0; border: 1px solid var(--line); border-radius: 6px; padding: 8px 12px; }
figcaption { font-weight: 600; margin-bottom: 4px; }
svg text { font: 12px system-ui, sans-serif; fill: var(--ink); }
svg .axis text { fill: var(--muted); font-size: 11px; }
svg .grid { stroke: var(--line); }
svg .bar { fill: var(--fill); }
svg .whisker { stroke: var(--ink); stroke-width: 1.5; }
svg .point { fill: var(--accent); }
ol.examples { margin: 4px 0 12px; }
:target { background: #fff7d6; }
)css";

// Chart geometry, in the SVG's own units (it scales with the page).
constexpr double kChartWidth = 1080, kLabelWidth = 230, kValueWidth = 200, kRowHeight = 26, kAxisHeight = 22;

void Chart(std::ostream& html, size_t rate, const std::vector<Group>& builds) {
  double highest = 0;
  for (const Group& build : builds)
    if (build.cameras > 0) highest = std::max(highest, stats::Wilson(build.counts[rate], build.cameras).high);
  const double end = AxisEnd(highest);
  const double plotLeft = kLabelWidth, plotRight = kChartWidth - kValueWidth;
  auto x = [&](double fraction) { return plotLeft + (plotRight - plotLeft) * std::min(fraction, end) / end; };
  const double height = kAxisHeight + kRowHeight * static_cast<double>(builds.size()) + 6;
  html << "<figure id=\"chart-" << kRates[rate].column << "\"><figcaption>" << Escape(kRates[rate].title)
       << " by build, with 95% intervals</figcaption>\n"
       << "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " << kChartWidth << ' ' << Number(height)
       << "\" width=\"100%\" role=\"img\" aria-label=\"" << Escape(kRates[rate].title)
       << " by build\">\n<g class=\"axis\">";
  // Ticks at round figures: fifths of 1 or 5 times a power of ten, quarters of 2.
  const double leading = end / std::pow(10.0, std::floor(std::log10(end) + 1e-9));
  const int divisions = std::lround(leading) == 2 ? 4 : 5;
  const double step = end / divisions * 100;  // in percent
  const int tickDecimals = std::clamp(static_cast<int>(std::ceil(-std::log10(step) - 1e-9)), 0, 3);
  for (int tick = 0; tick <= divisions; ++tick) {
    const double fraction = end * tick / divisions;
    html << "<line class=\"grid\" x1=\"" << Number(x(fraction)) << "\" x2=\"" << Number(x(fraction)) << "\" y1=\""
         << kAxisHeight - 4 << "\" y2=\"" << Number(height - 4) << "\"/><text x=\"" << Number(x(fraction))
         << "\" y=\"12\" text-anchor=\"middle\">" << Percent(fraction, tickDecimals) << "</text>";
  }
  html << "</g>\n";
  for (size_t i = 0; i < builds.size(); ++i) {
    const Group& build = builds[i];
    const double y = kAxisHeight + kRowHeight * static_cast<double>(i) + kRowHeight / 2;
    const int64_t k = build.counts[rate], n = build.cameras;
    const RateText text = FormatRate(k, n);
    html << "<g class=\"row\" data-build=\"" << Escape(GroupName(build)) << "\"><title>" << Escape(GroupName(build))
         << ": " << k << " of " << n << " cameras, " << text.rate << ' ' << text.interval << "</title>";
    std::string name = ShortName(build);
    if (name.size() > 34) name = "\u2026" + name.substr(name.size() - 33);
    html << "<text x=\"" << kLabelWidth - 10 << "\" y=\"" << Number(y + 4) << "\" text-anchor=\"end\">" << Escape(name)
         << "</text>";
    if (n > 0) {
      const stats::Interval interval = stats::Wilson(k, n);
      const double share = static_cast<double>(k) / static_cast<double>(n);
      html << "<rect class=\"bar\" x=\"" << Number(x(0)) << "\" y=\"" << Number(y - 7) << "\" width=\""
           << Number(x(share) - x(0)) << "\" height=\"14\"/>"
           << "<path class=\"whisker\" d=\"M" << Number(x(interval.low)) << ' ' << Number(y) << 'H'
           << Number(x(interval.high)) << "M" << Number(x(interval.low)) << ' ' << Number(y - 6) << "v12M"
           << Number(x(interval.high)) << ' ' << Number(y - 6) << "v12\"/>"
           << "<circle class=\"point\" cx=\"" << Number(x(share)) << "\" cy=\"" << Number(y) << "\" r=\"4\"/>";
    }
    html << "<text class=\"value\" x=\"" << Number(plotRight + 12) << "\" y=\"" << Number(y + 4) << "\">"
         << (n > 0 ? text.rate + ' ' + text.interval : std::string("no camera")) << "</text></g>\n";
  }
  html << "</svg></figure>\n";
}

std::string Page(const std::string& dbPath, const Totals& totals, const std::vector<Group>& builds,
                 const std::vector<Signature>& signatures) {
  std::ostringstream html;
  html << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
       << "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
       << "<title>Camera fleet: " << Escape(std::filesystem::path(dbPath).filename().string()) << "</title>\n"
       << "<style>" << kStyle << "</style>\n</head>\n<body>\n"
       << "<h1>Camera fleet</h1>\n<p class=\"meta\">" << Escape(dbPath) << ": <span id=\"total-reports\">"
       << totals.reports << "</span> reports";
  if (totals.rejected > 0) html << " (and " << totals.rejected << " rejected, not counted)";
  html << ", " << totals.boots << " boots, <span id=\"total-cameras\">" << totals.cameras
       << "</span> cameras. Each rate is the share of cameras with the flag, with its 95% interval "
          "(Wilson score).</p>\n";
  if (totals.reports == 0) {
    html << "<p id=\"empty\">No report to show: the database is empty.</p>\n</body>\n</html>\n";
    return html.str();
  }
  html << "<nav><a href=\"#summary\">Summary by build</a><a href=\"#charts\">Rates by build</a>"
          "<a href=\"#signatures\">Top failure signatures</a><a href=\"#examples\">Example reports</a></nav>\n";

  html << "<h2 id=\"summary\">Summary by build</h2>\n<table class=\"summary\">\n<thead><tr><th>Build</th>"
          "<th>Reports</th><th>Boots</th><th>Cameras</th>";
  for (const Rate& rate : kRates) html << "<th>" << Escape(rate.title) << "</th>";
  html << "</tr></thead>\n<tbody>\n";
  for (const Group& build : builds) {
    html << "<tr data-build=\"" << Escape(GroupName(build)) << "\"><td><span class=\"build\">"
         << Escape(ShortName(build)) << "</span>";
    if (!build.label.empty()) html << "<span class=\"fingerprint\">" << Escape(GroupName(build)) << "</span>";
    html << "</td><td class=\"num\">" << build.reports << "</td><td class=\"num\">" << build.boots
         << "</td><td class=\"num\">" << build.cameras << "</td>";
    for (size_t i = 0; i < kRateCount; ++i) {
      const RateText text = FormatRate(build.counts[i], build.cameras);
      html << "<td class=\"rate\" data-rate=\"" << kRates[i].column << "\"><span class=\"value\">" << text.rate
           << "</span>";
      if (build.cameras > 0)
        html << " <span class=\"ci\">" << text.interval << "</span><span class=\"k\">" << build.counts[i] << " of "
             << build.cameras << "</span>";
      html << "</td>";
    }
    html << "</tr>\n";
  }
  html << "</tbody>\n</table>\n";

  html << "<h2 id=\"charts\">Rates by build</h2>\n<p class=\"muted\">Bar and dot: the rate; whiskers: its 95% "
          "interval. Builds whose whiskers do not overlap differ by more than chance (the converse does not "
          "hold: <code>remedium-sim fleet compare</code> tests a pair).</p>\n<div class=\"charts\">\n";
  for (size_t i = 0; i < kRateCount; ++i) Chart(html, i, builds);
  html << "</div>\n";

  html << "<h2 id=\"signatures\">Top failure signatures</h2>\n";
  if (signatures.empty()) {
    html << "<p>No camera with a failure.</p>\n</body>\n</html>\n";
    return html.str();
  }
  html << "<p class=\"muted\">Cameras with any of the rates' flags, by the way their probes went, most frequent "
          "first.</p>\n<table class=\"signatures\">\n<thead><tr><th>#</th><th>Cameras</th><th>Reports</th>"
          "<th>Signature</th><th>Examples</th></tr></thead>\n<tbody>\n";
  for (size_t i = 0; i < signatures.size(); ++i) {
    const Signature& signature = signatures[i];
    html << "<tr><td class=\"num\">" << i + 1 << "</td><td class=\"num\">" << signature.cameras
         << "</td><td class=\"num\">" << signature.reports << "</td><td><code>" << Escape(signature.text)
         << "</code></td><td><a href=\"#examples-" << i + 1 << "\">" << signature.examples.size()
         << (signature.examples.size() == 1 ? " report" : " reports") << "</a></td></tr>\n";
  }
  html << "</tbody>\n</table>\n<h2 id=\"examples\">Example reports</h2>\n";
  for (size_t i = 0; i < signatures.size(); ++i) {
    const Signature& signature = signatures[i];
    html << "<section id=\"examples-" << i + 1 << "\"><h3>" << i + 1 << ". <code>" << Escape(signature.text)
         << "</code></h3>\n<ol class=\"examples\">\n";
    for (const std::string& path : signature.examples)
      html << "<li><a href=\"" << Escape(FileUrl(path)) << "\">" << Escape(path) << "</a></li>\n";
    html << "</ol></section>\n";
  }
  html << "</body>\n</html>\n";
  return html.str();
}

}  // namespace

int RunReport(const std::string& dbPath, const std::string& htmlPath, std::ostream& err) {
  std::string error;
  std::unique_ptr<FleetDb> db = FleetDb::Open(dbPath, &error);
  if (!db) {
    err << "remedium-sim fleet report: " << dbPath << ": " << error << '\n';
    return 2;
  }
  std::string page;
  try {
    page = Page(dbPath, LoadTotals(*db), LoadGroups(*db, "build"), LoadSignatures(*db));
  } catch (const std::exception& e) {
    err << "remedium-sim fleet report: " << dbPath << ": cannot read: " << e.what() << '\n';
    return 2;
  }
  std::ofstream file(htmlPath, std::ios::binary | std::ios::trunc);
  file << page;
  file.close();
  if (!file) {
    err << "remedium-sim fleet report: " << htmlPath << ": cannot write\n";
    return 2;
  }
  return 0;
}

}  // namespace fleet
