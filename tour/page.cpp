// HTML. Text from outside (file names, the processor's name) goes through escaped(); folders and files have names of
// the tour's own, letters, digits and hyphens only.
#include "page.h"

#include <cstdio>
#include <fstream>
#include <sstream>

namespace tour {

static const char style[] = R"css(
:root {
  color-scheme: light dark;
  --ground: #f6f6f3; --card: #ffffff; --text: #1d2328; --quiet: #5b656d; --line: #dcdedb; --accent: #0b6b6b;
  --code: #eef1f0; --before: #f1ede1;
}
@media (prefers-color-scheme: dark) {
  :root {
    --ground: #14181b; --card: #1d2327; --text: #e4e8ea; --quiet: #9da8af; --line: #323a40; --accent: #5cc4bd;
    --code: #13181b; --before: #28271f;
  }
}
* { box-sizing: border-box; }
html { scroll-behavior: smooth; }
body {
  margin: 0; background: var(--ground); color: var(--text);
  font: 16px/1.5 system-ui, -apple-system, "Segoe UI", Roboto, "Liberation Sans", "DejaVu Sans", sans-serif;
}
header, main, footer { max-width: 1240px; margin: 0 auto; padding: 0 20px; }
header { padding-top: 36px; }
h1 { margin: 0; font-size: clamp(1.7rem, 4vw, 2.4rem); line-height: 1.15; letter-spacing: -0.02em; }
.lead { margin: 10px 0 0; max-width: 46em; font-size: 1.1rem; color: var(--quiet); }
.facts { display: flex; flex-wrap: wrap; gap: 6px 28px; margin: 22px 0 0; padding: 14px 0;
  border: solid var(--line); border-width: 1px 0; }
.facts div { display: flex; flex-direction: column; }
.facts dt { font-size: 0.75rem; letter-spacing: 0.05em; text-transform: uppercase; color: var(--quiet); }
.facts dd { margin: 0; }
.note { margin: 14px 0 0; max-width: 60em; font-size: 0.92rem; color: var(--quiet); }
a { color: var(--accent); }
nav { display: grid; grid-template-columns: repeat(auto-fill, minmax(min(46%, 180px), 1fr)); gap: 14px;
  margin: 24px 0 0; padding: 0; }
nav a { display: block; overflow: hidden; border: 1px solid var(--line); border-radius: 10px; background: var(--card);
  text-decoration: none; }
nav img { display: block; width: 100%; height: 130px; object-fit: cover; }
nav span { display: block; padding: 6px 12px 8px; overflow-wrap: anywhere; }
section.picture { margin-top: 56px; }
h2 { margin: 0; padding-bottom: 8px; border-bottom: 3px solid var(--accent); font-size: 1.6rem; line-height: 1.2;
  overflow-wrap: anywhere; }
h2 small { font-size: 0.95rem; font-weight: 400; color: var(--quiet); white-space: nowrap; }
h3 { margin: 34px 0 0; font-size: 1.25rem; }
.about { margin: 2px 0 14px; max-width: 56em; color: var(--quiet); }
.stops { margin: 12px 0 0; padding: 0; display: flex; flex-wrap: wrap; gap: 4px 18px; list-style: none; }
.wall { display: grid; grid-template-columns: repeat(auto-fill, minmax(min(100%, 340px), 1fr)); gap: 18px; }
figure { display: flex; flex-direction: column; min-width: 0; margin: 0; overflow: hidden; border: 1px solid var(--line);
  border-radius: 10px; background: var(--card); }
figure.wide { grid-column: 1 / -1; }
.scroll { overflow-x: auto; padding: 10px 14px 0; }
table { border-collapse: collapse; font-size: 0.93rem; font-variant-numeric: tabular-nums; }
th, td { padding: 4px 14px 4px 0; border-bottom: 1px solid var(--line); text-align: right; white-space: nowrap; }
th:first-child { text-align: left; font-weight: 400; color: var(--quiet); }
figure.before { background: var(--before); }
figure img { display: block; width: 100%; max-width: 100%; height: auto; }
figcaption { display: flex; flex: 1; flex-direction: column; gap: 8px; padding: 12px 14px 14px; }
h4 { margin: 0; font-size: 1.02rem; line-height: 1.3; }
figcaption p { margin: 0; font-size: 0.93rem; }
figcaption .scale { font-size: 0.83rem; color: var(--quiet); }
pre { margin: 0; padding: 8px 10px; border-radius: 6px; background: var(--code); white-space: pre-wrap;
  overflow-wrap: anywhere; font: 0.76rem/1.45 ui-monospace, "SF Mono", Menlo, Consolas, "Liberation Mono", monospace; }
pre code { display: block; padding-left: 2ch; text-indent: -2ch; font: inherit; }
.times { display: flex; flex-wrap: wrap; gap: 2px 18px; margin: auto 0 0; font-size: 0.88rem; color: var(--quiet); }
.times b { color: var(--text); font-variant-numeric: tabular-nums; }
footer { margin-top: 56px; padding-top: 16px; padding-bottom: 40px; color: var(--quiet); font-size: 0.9rem; }
)css";

static std::string escaped(const std::string& text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '&': result += "&amp;"; break;
      case '<': result += "&lt;"; break;
      case '>': result += "&gt;"; break;
      case '"': result += "&quot;"; break;
      default: result += c;
    }
  }
  return result;
}

static std::string timeText(double microseconds) {
  char text[64];
  if (microseconds < 10) {
    std::snprintf(text, sizeof text, "%.1f µs", microseconds);
  } else if (microseconds < 1000) {
    std::snprintf(text, sizeof text, "%.0f µs", microseconds);
  } else {
    std::snprintf(text, sizeof text, "%.2f ms", microseconds / 1000);
  }
  return text;
}

static std::string processorName() {
  std::ifstream file("/proc/cpuinfo");
  for (std::string line; std::getline(file, line);) {
    if (line.rfind("model name", 0) == 0 && line.find(": ") != std::string::npos)
      return line.substr(line.find(": ") + 2);
  }
  return "unknown";
}

static std::string imageTag(const Section& section, const std::string& file, const std::string& alt) {
  return "<img src=\"" + file + "\" width=\"" + std::to_string(section.width) + "\" height=\"" +
         std::to_string(section.height) + "\" loading=\"lazy\" alt=\"" + escaped(alt) + "\">";
}

static std::string counted(int32_t count, const char* noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

static std::string fact(const char* name, const std::string& value) {
  return std::string("<div><dt>") + name + "</dt><dd>" + escaped(value) + "</dd></div>\n";
}

static std::string header(const std::vector<Section>& sections) {
  const QorLibraryVersion& version = *qorcvGetLibVersion();
  int32_t cacheSize = 0;
  qorGetMaxCacheSizeB(&cacheSize);
  std::string html;
  html += "<header>\n<h1>A tour of libqorcvmx</h1>\n";
  html +=
      "<p class=\"lead\">libqorcvmx is a shared library of computer-vision primitives for images in the caller's own "
      "memory: plain C functions, exact to the last bit, and fast. Here is what they do to "
      "real pictures.</p>\n";
  html += "<dl class=\"facts\">\n";
  html += fact("Library", std::string(version.libraryName) + " " + version.versionText);
  html += fact("Processor", processorName());
  html += fact("Cores on the die", std::to_string(qorGetNumCoresOnDie()));
  html += fact("Threads", allThreads() == 1 ? "1, which is all" : "1, and all " + std::to_string(allThreads()));
  html += fact("Largest cache", std::to_string(cacheSize / 1024) + " KiB");
  html += "</dl>\n";
  html +=
      "<p class=\"note\">Under each picture stands the C call that made it, with the time of that call alone: the best "
      "of several runs, first with one thread, then with all. Both results were compared and are the same to the last "
      "byte, but for the few functions that do not promise it and for models that learn from each call. Small pictures "
      "and a few functions stay on one thread in any case; while other programs keep the "
      "processor busy, several threads wait for each other and the second time says little. Every filter continues the "
      "picture "
      "beyond its edges by its edge pixels. A click shows a picture in its own size.</p>\n";
  html += "<nav aria-label=\"Pictures\">\n";
  for (const Section& section : sections) {
    html += "<a href=\"#" + section.folder + "\">" + imageTag(section, section.file, "") + "<span>" +
            escaped(section.name) + "</span></a>\n";
  }
  html += "</nav>\n</header>\n";
  return html;
}

// A line each, which may be broken behind its bracket: names are long and phones are narrow.
static std::string codeHtml(const std::string& statement) {
  std::string html;
  std::istringstream lines(statement);
  for (std::string line; std::getline(lines, line);) {
    line = escaped(line);
    const size_t bracket = line.find("R(");
    if (bracket != std::string::npos) line.insert(bracket + 2, "<wbr>");
    html += "<code>" + line + "</code>";
  }
  return html;
}

static std::string tableHtml(const Table& table) {
  std::string html = "<div class=\"scroll\"><table>\n";
  for (size_t y = 0; y < table.size(); ++y) {
    html += "<tr>";
    for (size_t x = 0; x < table[y].size(); ++x) {
      const std::string tag = y == 0 ? "th scope=\"col\"" : x == 0 ? "th scope=\"row\"" : "td";
      html += "<" + tag + ">" + escaped(table[y][x]) + "</" + tag.substr(0, 2) + ">";
    }
    html += "</tr>\n";
  }
  return html + "</table></div>\n";
}

static std::string figure(const Section& section, const Shown& shown) {
  std::string html;
  if (shown.table.empty()) {
    html += "<figure>\n<a href=\"" + shown.file + "\">" +
            imageTag(section, shown.file, shown.label.title + ": " + section.name) + "</a>\n<figcaption>\n";
  } else {
    html += "<figure class=\"wide\">\n" + tableHtml(shown.table) + "<figcaption>\n";
  }
  html += "<h4>" + escaped(shown.label.title) + "</h4>\n<p>" + escaped(shown.label.caption) + "</p>\n";
  if (!shown.scale.empty()) html += "<p class=\"scale\">" + escaped(shown.scale) + "</p>\n";
  html += "<pre>";
  for (const std::string& statement : shown.code) html += codeHtml(statement);
  html += "</pre>\n<p class=\"times\"><span>one thread <b>" + timeText(shown.times.oneThread) + "</b></span>";
  html += "<span>" +
          (allThreads() == 1 ? std::string("all threads (1)") : "all " + std::to_string(allThreads()) + " threads") +
          " <b>" + timeText(shown.times.allThreads) + "</b></span></p>\n";
  html += "</figcaption>\n</figure>\n";
  return html;
}

static std::string roomHtml(const Section& section, const Room& room) {
  const std::string input = room.station->input == Input::colour ? "The picture as it is." : "The picture in grey.";
  std::string html = "<h3 id=\"" + section.folder + "." + room.station->name + "\">" + room.station->title + "</h3>\n";
  html += std::string("<p class=\"about\">") + escaped(room.station->about) + "</p>\n<div class=\"wall\">\n";
  html += "<figure class=\"before\">\n<a href=\"" + room.before + "\">" +
          imageTag(section, room.before, "Before: " + section.name) + "</a>\n<figcaption>\n<h4>Before</h4>\n<p>" +
          input + "</p>\n</figcaption>\n</figure>\n";
  for (const Shown& shown : room.exhibits) html += figure(section, shown);
  return html + "</div>\n";
}

std::string makePage(const std::vector<Section>& sections) {
  std::string html =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
      "<title>A tour of libqorcvmx</title>\n<style>";
  html += style;
  html += "</style>\n</head>\n<body>\n" + header(sections) + "<main>\n";
  int32_t count = 0;
  for (const Section& section : sections) {
    html += "<section class=\"picture\" id=\"" + section.folder + "\">\n<h2>" + escaped(section.name) + " <small>" +
            std::to_string(section.width) + "×" + std::to_string(section.height) + ", " + section.kind +
            "</small></h2>\n<ul class=\"stops\">\n";
    for (const Room& room : section.rooms) {
      html +=
          "<li><a href=\"#" + section.folder + "." + room.station->name + "\">" + room.station->title + "</a></li>\n";
      count += static_cast<int32_t>(room.exhibits.size());
    }
    html += "</ul>\n";
    for (const Room& room : section.rooms) html += roomHtml(section, room);
    html += "</section>\n";
  }
  html += "</main>\n<footer>" + counted(static_cast<int32_t>(sections.size()), "picture") + ", " +
          counted(count, "result") + ". Made by the tour of libqorcvmx.</footer>\n</body>\n</html>\n";
  return html;
}

}  // namespace tour
