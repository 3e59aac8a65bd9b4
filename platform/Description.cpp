#include "platform/Description.h"

#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBDictionary.h"

namespace nyb::describe {

namespace {

void indent(int level, std::string& out) { out.append(static_cast<std::size_t>(level) * 4, ' '); }

// Strings that are not plain words are quoted, as the platform does.
void text(std::string_view s, std::string& out) {
  bool plain = !s.empty();
  for (char c : s) {
    bool word = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                c == '_' || c == '.' || c == '$' || c == '/' ||
                static_cast<unsigned char>(c) >= 0x80;
    if (!word) {
      plain = false;
      break;
    }
  }
  if (plain) {
    out.append(s);
    return;
  }
  out.push_back('"');
  for (char c : s) {
    if (c == '"' || c == '\\') out.push_back('\\');
    if (c == '\n') {
      out.append("\\n");
      continue;
    }
    out.push_back(c);
  }
  out.push_back('"');
}

}  // namespace

void value(const NYBDynamicValue& v, int level, std::string& out) {
  if (const NYBDictionary* d = v.dictionary()) {
    dictionary(*d, level, out);
  } else if (const NYBArray* a = v.array()) {
    array(*a, level, out);
  } else if (v.isString()) {
    text(v.stringView(), out);
  } else if (v.isNull()) {
    out.append("\"<null>\"");
  } else {
    out.append(v.description());
  }
}

void dictionary(const NYBDictionary& d, int level, std::string& out) {
  out.append("{\n");
  for (const auto& [k, v] : d) {
    indent(level + 1, out);
    value(k, level + 1, out);
    out.append(" = ");
    value(v, level + 1, out);
    out.append(";\n");
  }
  indent(level, out);
  out.push_back('}');
}

void array(const NYBArray& a, int level, std::string& out) {
  out.append("(\n");
  for (std::size_t i = 0; i < a.size(); ++i) {
    indent(level + 1, out);
    value(a[i], level + 1, out);
    if (i + 1 < a.size()) out.push_back(',');
    out.push_back('\n');
  }
  indent(level, out);
  out.push_back(')');
}

}  // namespace nyb::describe
