#include "HtmlPage.h"

#include <fmt/format.h>

#include <algorithm>
#include <ostream>

#include "Logging/Controls.h"
#include "page/PageParts.h"

namespace quillmar::cli {

std::string escaped(std::string_view text) {
  std::string result;
  for (const char letter : withoutControls(text)) {
    switch (letter) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '"':
        result += "&quot;";
        break;
      default:
        result += letter;
    }
  }
  return result;
}

// The policy lets nothing in from outside, and runs no script but the page's own: a second line behind `escaped`.
void beginPage(std::ostream& output, std::string_view title) {
  output << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
            "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src 'nonce-page'; "
            "script-src 'nonce-page'; img-src data:\">\n"
            "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
            "<link rel=\"icon\" href=\"data:,\">\n<title>"
         << escaped(title) << "</title>\n<style nonce=\"page\">\n"
         << kPageStyle << "</style>\n</head>\n<body>\n<h1>" << escaped(title) << "</h1>\n";
}

void endPage(std::ostream& output) {
  output << "<script nonce=\"page\">\n" << kPageScript << "</script>\n</body>\n</html>\n";
}

void writeTable(std::ostream& output, const std::vector<std::string>& head,
                const std::vector<std::vector<std::string>>& rows) {
  output << "<div class=\"wide\"><table>\n";
  if (!head.empty()) {
    output << "<tr>";
    for (const std::string& name : head) {
      output << "<th scope=\"col\">" << escaped(name) << "</th>";
    }
    output << "</tr>\n";
  }
  for (const std::vector<std::string>& row : rows) {
    output << "<tr><th scope=\"row\">" << escaped(row.front()) << "</th>";
    std::for_each(row.begin() + 1, row.end(),
                  [&output](const std::string& cell) { output << "<td>" << escaped(cell) << "</td>"; });
    output << "</tr>\n";
  }
  output << "</table></div>\n";
}

void writeConfiguration(std::ostream& output, const std::vector<insight::Finding>& findings,
                        std::string_view configuration) {
  if (!findings.empty()) {
    output << "<h2>What the check says</h2>\n<ul>\n";
    for (const insight::Finding& finding : findings) {
      const std::string text = fmt::format("{} [{}]: {} {}", insight::nameOf(finding.severity), finding.code,
                                           finding.message, finding.advice);
      output << "<li>" << escaped(text) << fmt::format(" <a href=\"#line-{0}\">line {0}</a></li>\n", finding.line);
    }
    output << "</ul>\n";
  }
  output << "<details class=\"screen\" open><summary>The configuration</summary>\n<div class=\"wide\"><pre>";
  int line = 0;
  while (!configuration.empty()) {
    std::string text(configuration.substr(0, configuration.find('\n')));
    configuration.remove_prefix(std::min(text.size() + 1, configuration.size()));
    std::ranges::replace(text, '\t', ' ');  // which `escaped` would spell out, as other controls
    std::ranges::replace(text, '\r', ' ');
    output << fmt::format("<span id=\"line-{}\">{}</span>", ++line, escaped(text));
  }
  output << "</pre></div></details>\n";
}

}  // namespace quillmar::cli
