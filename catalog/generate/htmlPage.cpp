// The page of all events: plain HTML with its style and script inside. Every text is escaped. Stateless: any thread.
#include "catalog/catalog.h"
#include "catalog/explain.h"
#include "generate/documents.h"

namespace catalog {
namespace {

constexpr std::string_view kHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
<title>Events of rynd</title>
<style>
:root { --text: #1b1f24; --soft: #57606a; --back: #ffffff; --card: #f6f8fa; --line: #d0d7de;
  --info: #0550ae; --warning: #7d4e00; --error: #a40e26; --critical: #82071e; }
@media (prefers-color-scheme: dark) { :root { --text: #e6edf3; --soft: #9198a1; --back: #0d1117; --card: #161b22;
  --line: #3d444d; --info: #79c0ff; --warning: #e3b341; --error: #ff938a; --critical: #ffb3ab; } }
body { margin: 0 auto; padding: 1rem; max-width: 60rem; color: var(--text); background: var(--back);
  font: 1rem/1.5 system-ui, sans-serif; }
form { position: sticky; top: 0; padding: .5rem 0; background: var(--back); display: flex; gap: .75rem; flex-wrap: wrap;
  align-items: center; border-bottom: 1px solid var(--line); }
input { flex: 1 1 16rem; font: inherit; padding: .4rem .6rem; color: inherit; background: var(--card);
  border: 1px solid var(--line); border-radius: .4rem; }
article { margin: 1rem 0; padding: .25rem 1rem 1rem; background: var(--card); border: 1px solid var(--line);
  border-radius: .5rem; scroll-margin-top: 4rem; }
h2 { font: 600 1rem/1.4 ui-monospace, monospace; overflow-wrap: anywhere; margin: .75rem 0 .25rem; }
h2 a { color: inherit; text-decoration: none; }
h2 a:hover, h2 a:focus { text-decoration: underline; }
.badge { font-weight: 600; }
.info { color: var(--info); } .warning { color: var(--warning); } .error { color: var(--error); }
.critical { color: var(--critical); }
blockquote { margin: .25rem 0 .75rem; color: var(--soft); overflow-wrap: anywhere; }
dt { font-weight: 600; margin-top: .5rem; }
dd { margin: 0; overflow-wrap: anywhere; }
dd ol, dd ul { margin: 0; padding-left: 1.5rem; }
pre { margin: 0; overflow-x: auto; }
</style>
</head>
<body>
<h1>Events of rynd</h1>
<form role="search" onsubmit="return false">
<label for="search">Search</label>
<input id="search" type="search" autocomplete="off" placeholder="words of a name, a text, an explanation">
<output id="count" for="search"></output>
</form>
<main>
)";

constexpr std::string_view kTail = R"(</main>
<script>
'use strict';
const search = document.getElementById('search');
const articles = Array.from(document.querySelectorAll('article'), a => ({a, text: a.textContent.toLowerCase()}));
function show() {
  const words = search.value.toLowerCase().split(/\s+/).filter(Boolean);
  let shown = 0;
  for (const {a, text} of articles) {
    a.hidden = !words.every(w => text.includes(w));
    if (!a.hidden) ++shown;
  }
  document.getElementById('count').textContent = shown + ' of ' + articles.length;
}
search.addEventListener('input', show);
show();
</script>
</body>
</html>
)";

std::string Escaped(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '&') {
      escaped += "&amp;";
    } else if (c == '<') {
      escaped += "&lt;";
    } else if (c == '>') {
      escaped += "&gt;";
    } else if (c == '"') {
      escaped += "&quot;";
    } else {
      escaped += c;
    }
  }
  return escaped;
}

std::string Entry(std::string_view heading, const std::vector<std::string> &texts, std::string_view list) {
  if (texts.empty()) return "";
  std::string entry = "<dt>" + std::string(heading) + "</dt><dd>";
  if (texts.size() == 1) return entry + Escaped(texts[0]) + "</dd>\n";
  entry.append("<").append(list).append(">");
  for (const std::string &text : texts) entry += "<li>" + Escaped(text) + "</li>";
  return entry.append("</").append(list).append("></dd>\n");
}

std::string Article(const Event &event) {
  const std::string severity(SeverityName(event.severity));
  std::string article =
      "<article id=\"" + event.name + "\">\n<h2><a href=\"#" + event.name + "\">" + event.name + "</a></h2>\n";
  article += "<span class=\"badge " + severity + "\">" + event.category;
  if (event.category == "problem") article += ", " + severity;
  article += "</span>\n<blockquote>" + Escaped(MessageWithNames(event)) + "</blockquote>\n<dl>\n";
  article += Entry("What has happened", {event.means}, "ul") + Entry("What it does", {event.impact}, "ul");
  article += Entry("What to do", event.action, "ol");
  article += Entry("What it comes from", event.postedBy, "ul");
  article += Entry("What ends it", EndedByInWords(event), "ul") + Entry("What it ends", EndsInWords(event), "ul");
  article += Entry("What decides it", event.settings, "ul");
  std::string lines;
  for (const std::string &line : TryLines(event)) lines += Escaped(line) + "\n";
  if (!lines.empty()) article += "<dt>Try it</dt><dd><pre>" + lines + "</pre></dd>\n";
  return article + "</dl>\n</article>\n";
}

}  // namespace

std::string HtmlPage() {
  std::string page(kHead);
  for (const std::string_view category : {"problem", "clear", "audit"}) {
    for (const Event &event : Events()) {
      if (event.category == category) page += Article(event);
    }
  }
  return page.append(kTail);
}

}  // namespace catalog
