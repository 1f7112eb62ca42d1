#include "zeph/files/json_text.h"

#include <cmath>
#include <cstdio>

#include "zeph/files/number_text.h"

namespace zeph {
namespace {

void appendNumber(std::string& text, double value) {
  if (std::isfinite(value)) {
    appendShortest(text, value);
  } else {
    text += "null";
  }
}

std::string jsonQuoted(std::string_view text) {
  std::string result = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      (result += '\\') += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      char code[8];
      std::snprintf(code, sizeof code, "\\u%04x", static_cast<unsigned>(c));
      result += code;
    } else {
      result += c;
    }
  }
  return result += '"';
}

std::string listed(const double* values, std::size_t count) {
  std::string text = "[";
  for (std::size_t k = 0; k < count; ++k) {
    if (k > 0) text += ',';
    appendNumber(text, values[k]);
  }
  return text += ']';
}

}  // namespace

JsonObject& JsonObject::member(std::string_view name, std::string_view text) {
  if (!members_.empty()) members_ += ',';
  members_.append(jsonQuoted(name)).append(":").append(text);
  return *this;
}

JsonObject& JsonObject::add(std::string_view name, double value) {
  std::string text;
  appendNumber(text, value);
  return member(name, text);
}

JsonObject& JsonObject::add(std::string_view name, bool value) {
  return member(name, value ? "true" : "false");
}

JsonObject& JsonObject::add(std::string_view name, std::string_view value) {
  return member(name, jsonQuoted(value));
}

JsonObject& JsonObject::add(std::string_view name, const JsonObject& value) {
  return member(name, value.text());
}

JsonObject& JsonObject::add(std::string_view name, const std::vector<double>& values) {
  return member(name, listed(values.data(), values.size()));
}

JsonObject& JsonObject::add(std::string_view name, const std::vector<std::string>& values) {
  std::string list = "[";
  for (const std::string& v : values) list.append(list.size() > 1 ? "," : "").append(jsonQuoted(v));
  return member(name, list + "]");
}

JsonObject& JsonObject::add(std::string_view name, const DenseMatrix& columns) {
  std::string list = "[";
  for (std::size_t c = 0; c < columns.cols; ++c) {
    list.append(c > 0 ? "," : "")
        .append(listed(columns.values.data() + c * columns.rows, columns.rows));
  }
  return member(name, list + "]");
}

}  // namespace zeph
