#include "store_format.h"

#include <stdlib.h>

#include <algorithm>

#include "cutils/properties.h"
#include "property_host.h"

namespace tarvik_props {
namespace {

constexpr std::string_view kStoreHeader = "# tarvik property store 1\n";

bool IsNameChar(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '-' || c == '.' || c == '@' || c == ':';
}

// Splits `text` into complete lines (a trailing piece without LF is dropped) and hands each to
// `fn` without its LF.
template <typename Fn>
void ForEachLine(std::string_view text, Fn fn) {
  size_t pos = 0;
  while (pos < text.size()) {
    const size_t end = text.find('\n', pos);
    if (end == std::string_view::npos) {
      return;
    }
    fn(text.substr(pos, end - pos));
    pos = end + 1;
  }
}

}  // namespace

bool IsLegalName(std::string_view name) {
  if (name.empty() || name.size() > PROPERTY_NAME_MAX_HOST || name.front() == '.' ||
      name.back() == '.') {
    return false;
  }
  char prev = 0;
  for (char c : name) {
    if (!IsNameChar(c) || (c == '.' && prev == '.')) {
      return false;
    }
    prev = c;
  }
  return true;
}

std::string EscapeValue(std::string_view value) {
  std::string out;
  out.reserve(value.size());
  for (char c : value) {
    switch (c) {
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        out += c;
    }
  }
  return out;
}

bool UnescapeValue(std::string_view text, std::string *out) {
  out->clear();
  for (size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c == '\\') {
      if (++i == text.size()) {
        return false;
      }
      switch (text[i]) {
        case '\\':
          c = '\\';
          break;
        case 'n':
          c = '\n';
          break;
        case 't':
          c = '\t';
          break;
        default:
          return false;
      }
    } else if (c == '\0' || c == '\t') {
      return false;
    }
    out->push_back(c);
  }
  return true;
}

std::string SerializeStore(const Entries &entries) {
  std::string out(kStoreHeader);
  for (const auto &[name, value] : entries) {
    out += name;
    out += '\t';
    out += EscapeValue(value);
    out += '\n';
  }
  return out;
}

Entries ParseStore(std::string_view text) {
  Entries entries;
  std::string value;
  ForEachLine(text, [&](std::string_view line) {
    const size_t tab = line.find('\t');
    if (line.empty() || line.front() == '#' || tab == std::string_view::npos) {
      return;
    }
    const std::string_view name = line.substr(0, tab);
    if (!IsLegalName(name) || !UnescapeValue(line.substr(tab + 1), &value) ||
        value.size() > PROPERTY_VALUE_MAX) {
      return;
    }
    entries.emplace_back(std::string(name), value);
  });
  // Stable, so that of two lines with one name the later stays last; then keep that one.
  std::stable_sort(entries.begin(), entries.end(),
                   [](const auto &a, const auto &b) { return a.first < b.first; });
  Entries unique;
  unique.reserve(entries.size());
  for (auto &entry : entries) {
    if (!unique.empty() && unique.back().first == entry.first) {
      unique.back().second = std::move(entry.second);
    } else {
      unique.push_back(std::move(entry));
    }
  }
  return unique;
}

std::string SerializeCtl(const CtlRequest &request) {
  return std::to_string(request.pid) + '\t' + request.name + '\t' + EscapeValue(request.value) +
         '\n';
}

std::vector<CtlRequest> ParseCtl(std::string_view text) {
  std::vector<CtlRequest> requests;
  ForEachLine(text, [&](std::string_view line) {
    const size_t tab1 = line.find('\t');
    const size_t tab2 = tab1 == std::string_view::npos ? tab1 : line.find('\t', tab1 + 1);
    if (tab2 == std::string_view::npos || tab1 == 0 || tab1 > 10) {
      return;
    }
    const std::string pid_text(line.substr(0, tab1));
    char *end = nullptr;
    const long pid = strtol(pid_text.c_str(), &end, 10);
    CtlRequest request{
        static_cast<int>(pid), std::string(line.substr(tab1 + 1, tab2 - tab1 - 1)), {}};
    if (*end != '\0' || pid <= 0 || pid > 0x7fffffff || !IsLegalName(request.name) ||
        !UnescapeValue(line.substr(tab2 + 1), &request.value)) {
      return;
    }
    requests.push_back(std::move(request));
  });
  return requests;
}

}  // namespace tarvik_props
