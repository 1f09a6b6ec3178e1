#include "program/ReviewPage.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <random>

#include "platform/QuorvelCore.h"
#include "program/ChangeLabel.h"
#include "program/Moments.h"
#include "program/ReviewAssets.h"
#include "program/Wording.h"
#include "program/changes/TextChanges.h"

namespace kelvane {
namespace {

constexpr std::size_t linesAround = 2;
constexpr std::size_t mostBytes = 40'000;  // of a change's lines, before the rest is left out
constexpr std::size_t mostPoints = 200;    // of a chart

// Characters that mean something in HTML are escaped, and those that would steer how text is shown, such as direction
// marks, are replaced as at a terminal.
std::string escapedHTML(std::string_view text) {
  std::string html;
  for (const char character : onOneLine(text)) {
    switch (character) {
      case '&':
        html.append("&amp;");
        break;
      case '<':
        html.append("&lt;");
        break;
      case '>':
        html.append("&gt;");
        break;
      case '"':
        html.append("&quot;");
        break;
      case '\'':
        html.append("&#39;");
        break;
      default:
        html.push_back(character);
    }
  }
  return html;
}

// How many words a text has, and how long it takes to read them aloud.
struct Size {
  std::size_t words = 0;
  std::string time;
};

Size sizeOf(std::string_view text) {
  constexpr std::size_t wordsPerMinute = 150;
  const std::size_t words = quorvel::Script(std::string(text)).wordCount();
  return {words, quorvel::ControllerStatus::clock(static_cast<std::int64_t>(words * 60 / wordsPerMinute))};
}

std::string difference(std::size_t before, std::size_t after) {
  const std::size_t count = before < after ? after - before : before - after;
  return (after < before ? "−" : "+") + counted(static_cast<std::int64_t>(count), "word");
}

// At most so many bytes of a text, without half a character at the end.
std::string_view beginningOf(std::string_view text, std::size_t most) {
  if (text.size() <= most) return text;
  const auto isContinuation = [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; };
  while (most > 0 && isContinuation(text[most])) --most;
  return text.substr(0, most);
}

// Appends at most so many bytes of the line's text. Whether that is all of it.
bool appendLine(const TextLine& line, std::size_t most, std::string& html) {
  const bool goes = line.sign == '-';
  const bool comes = line.sign == '+';
  html.append(goes    ? R"(<div class="goes"><span class="sign" aria-hidden="true">−</span><del>)"
              : comes ? R"(<div class="comes"><span class="sign" aria-hidden="true">+</span><ins>)"
                      : "<div>");
  bool isWhole = true;
  for (const LinePart& part : line.parts) {
    const std::string_view text = beginningOf(part.text, most);
    html.append(part.isChanged ? "<mark>" : "").append(escapedHTML(text)).append(part.isChanged ? "</mark>" : "");
    most -= text.size();
    isWhole = text.size() == part.text.size();
    if (!isWhole) break;
  }
  html.append(goes ? "</del>" : comes ? "</ins>" : "").append("</div>\n");
  return isWhole;
}

void appendChanges(std::string_view old, std::string_view fresh, std::string& html) {
  const std::vector<TextLine> lines = textChanges(old, fresh);
  const std::vector<bool> isShown = linesToShow(lines, linesAround);
  const std::size_t begin = html.size();
  std::size_t left = static_cast<std::size_t>(std::count(isShown.begin(), isShown.end(), true));
  bool isWhole = true;
  for (std::size_t at = 0; at < lines.size() && isWhole; ++at) {
    if (!isShown[at]) continue;
    const std::size_t size = html.size() - begin;
    if (size >= mostBytes) break;
    if (at > 0 && !isShown[at - 1]) html.append("<div class=\"gap\">…</div>\n");
    isWhole = appendLine(lines[at], mostBytes - size, html);
    --left;
  }
  if (isWhole && left == 0) return;
  html.append("<div class=\"gap\">… and ").append(isWhole ? "" : "the rest of the line");
  if (left > 0) {
    html.append(isWhole ? "" : " and ").append(counted(static_cast<std::int64_t>(left), "line")).append(" more");
  }
  html.append(", which \"kelvane diff\" shows</div>\n");
}

// A line through the counts, oldest first, at most `mostPoints` of them.
std::string chart(const std::string& name, const std::vector<std::size_t>& newestFirst) {
  std::vector<std::size_t> counts;
  const std::size_t step = (newestFirst.size() + mostPoints - 1) / mostPoints;
  for (std::size_t i = 0; i < newestFirst.size(); i += step) counts.push_back(newestFirst[i]);
  std::reverse(counts.begin(), counts.end());
  const std::size_t most = std::max<std::size_t>(1, *std::max_element(counts.begin(), counts.end()));
  std::string points;
  for (std::size_t i = 0; i < counts.size(); ++i) {
    const double x = counts.size() < 2 ? 0 : 100.0 * static_cast<double>(i) / static_cast<double>(counts.size() - 1);
    const double y = 28.0 - 26.0 * static_cast<double>(counts[i]) / static_cast<double>(most);
    char point[48];
    points.append(point, static_cast<std::size_t>(std::snprintf(point, sizeof point, "%.1f,%.1f ", x, y)));
  }
  const std::string told = std::to_string(counts.front()) + " → " + std::to_string(counts.back()) + " words";
  return "<figure><h3>" + name +
         "</h3><svg viewBox=\"0 0 100 30\" preserveAspectRatio=\"none\" role=\"img\" "
         "aria-label=\"Words over time: " +
         told + "\"><polyline points=\"" + points + "\"/></svg><figcaption>" + told + "</figcaption></figure>\n";
}

std::string randomNonce() {
  std::random_device random;
  char text[33];
  std::snprintf(text, sizeof text, "%08x%08x%08x%08x", random(), random(), random(), random());
  return text;
}

}  // namespace

ReviewPage::ReviewPage(std::string_view library, std::chrono::system_clock::time_point now)
    : library_(library), now_(now) {
}

void ReviewPage::addToTimeLine(const ReviewedChange& change, const std::string& name, std::size_t before,
                               std::size_t after) {
  const std::string moment = shown(change.saved);
  const std::string day = moment.substr(0, moment.find(' '));
  if (day != day_) {
    timeLine_.append(day_.empty() ? "" : "</ol>\n").append("<h2>").append(day).append("</h2>\n<ol>\n");
    day_ = day;
  }
  timeLine_.append("<li><a href=\"#change-").append(std::to_string(count_)).append("\"><span class=\"script\">");
  timeLine_.append(name).append("</span> <time datetime=\"").append(encodedMoment(change.saved)).append("\">");
  timeLine_.append(moment.substr(day.size())).append("</time> <span class=\"words\">");
  timeLine_.append(change.isGone ? "" : difference(before, after)).append("</span><span class=\"label\">");
  timeLine_.append(escapedHTML(change.label)).append("</span></a></li>\n");
}

void ReviewPage::add(const ReviewedChange& change) {
  const std::string number = std::to_string(++count_);
  const std::string name = escapedHTML(change.identifier);
  const Size before = sizeOf(change.old);
  const Size after = sizeOf(change.fresh);
  addToTimeLine(change, name, before.words, after.words);
  std::vector<std::size_t>& words = words_[change.identifier];
  if (words.empty() && !change.isGone) words.push_back(after.words);
  words.push_back(before.words);

  changes_.append("<article id=\"change-").append(number).append("\" aria-labelledby=\"title-").append(number);
  changes_.append("\">\n<header><h2 id=\"title-").append(number).append("\">").append(name).append(": ");
  changes_.append(escapedHTML(change.label)).append("</h2>\n<p><time datetime=\"").append(encodedMoment(change.saved));
  changes_.append("\">").append(shown(change.saved)).append("</time> <span class=\"size\">");
  changes_.append(counted(static_cast<std::int64_t>(before.words), "word")).append(" (").append(before.time);
  if (change.isGone) {
    changes_.append("), and then the script was gone");
  } else {
    changes_.append(") → ").append(counted(static_cast<std::int64_t>(after.words), "word"));
    changes_.append(" (").append(after.time).append(")");
  }
  changes_.append("</span></p></header>\n<div class=\"diff\">\n");
  if (!change.isGone && change.old == change.fresh) {
    changes_.append("<div class=\"gap\">Saved as it is, without a change.</div>\n");
  } else {
    appendChanges(change.old, change.isGone ? std::string_view() : change.fresh, changes_);
  }
  changes_.append("</div>\n<div class=\"back\"><span>To put the old text back:</span> <code id=\"command-");
  changes_.append(number).append("\">").append(escapedHTML(change.restoreCommand));
  changes_.append("</code> <button type=\"button\" data-copies=\"command-").append(number);
  changes_.append("\">Copy</button></div>\n</article>\n");
}

std::string ReviewPage::html() const {
  const std::string nonce = randomNonce();
  std::string html(beginning);
  html.append("<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\"/>\n");
  html.append("<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n");
  html.append("<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src 'nonce-");
  html.append(nonce).append("'; script-src 'nonce-").append(nonce).append("'\"/>\n<title>What changed in ");
  html.append(escapedHTML(library_))
      .append("</title>\n<style nonce=\"")
      .append(nonce)
      .append("\">")
      .append(reviewStyle);
  html.append("</style>\n</head>\n<body>\n<a class=\"skip\" href=\"#changes\">Skip to the changes</a>\n");
  html.append("<header><h1>What changed</h1>\n<p>").append(escapedHTML(library_)).append(" · ");
  html.append(counted(static_cast<std::int64_t>(count_), "change")).append(" of ");
  html.append(counted(static_cast<std::int64_t>(words_.size()), "script")).append(" · as of ").append(shown(now_));
  html.append("</p></header>\n<div class=\"columns\">\n<nav aria-label=\"Time line\">\n").append(timeLine_);
  html.append(day_.empty() ? "<p>Nothing was saved.</p>\n" : "</ol>\n").append("</nav>\n<main id=\"changes\">\n");
  if (!words_.empty()) html.append("<h2>Words over time</h2>\n<div class=\"charts\">\n");
  for (const auto& [identifier, counts] : words_) html.append(chart(escapedHTML(identifier), counts));
  if (!words_.empty()) html.append("</div>\n<h2>Changes</h2>\n");
  html.append(changes_).append("</main>\n</div>\n<script nonce=\"").append(nonce).append("\">").append(reviewScript);
  return html.append("</script>\n</body>\n</html>\n");
}

}  // namespace kelvane
