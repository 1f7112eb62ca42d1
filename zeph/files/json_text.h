#ifndef ZEPH_FILES_JSON_TEXT_H
#define ZEPH_FILES_JSON_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "zeph/dense_matrix.h"

namespace zeph {

/// A JSON object that grows member by member, in their order. Numbers read back to the same bits;
/// what JSON has no number for (NaN, infinities) is null.
///
///     JsonObject o;
///     o.add("rows", A.rows).add("source", A.source);
///     std::puts(o.text().c_str());
class JsonObject {
 public:
  JsonObject& add(std::string_view name, double value);
  JsonObject& add(std::string_view name, bool value);
  JsonObject& add(std::string_view name, std::string_view value);
  JsonObject& add(std::string_view name, const char* value) {
    return add(name, std::string_view(value));
  }
  JsonObject& add(std::string_view name, const JsonObject& value);
  JsonObject& add(std::string_view name, const std::vector<double>& values);
  JsonObject& add(std::string_view name, const std::vector<std::string>& values);
  template <class Integer, std::enable_if_t<std::is_integral_v<Integer>, int> = 0>
  JsonObject& add(std::string_view name, Integer value) {
    return member(name, std::to_string(value));
  }
  template <class Integer, std::enable_if_t<std::is_integral_v<Integer>, int> = 0>
  JsonObject& add(std::string_view name, const std::vector<Integer>& values) {
    std::string list;
    for (const Integer v : values) list.append(list.empty() ? "[" : ",").append(std::to_string(v));
    return member(name, list.empty() ? "[]" : list + "]");
  }

  /// A list of columns, each a list of its values.
  JsonObject& add(std::string_view name, const DenseMatrix& columns);

  bool empty() const { return members_.empty(); }
  std::string text() const { return "{" + members_ + "}"; }

 private:
  JsonObject& member(std::string_view name, std::string_view text);

  std::string members_;
};

}  // namespace zeph

#endif
