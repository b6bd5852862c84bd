// A small strict JSON parser for checking the tool's JSON output.
#ifndef VLM_TESTS_TOOLS_MINIJSON_H
#define VLM_TESTS_TOOLS_MINIJSON_H

#include <map>
#include <string>
#include <vector>

namespace tooltest {

struct JsonValue {
  enum class Kind { Null, Bool, Number, String, Array, Object };
  Kind kind = Kind::Null;
  bool boolean = false;
  double number = 0;
  std::string text;                           // String (UTF-8)
  std::vector<JsonValue> items;               // Array
  std::map<std::string, JsonValue> members;   // Object
  std::vector<std::string> memberOrder;       // Object keys in document order

  // Object member; throws std::out_of_range when absent or not an object.
  const JsonValue& operator[](const std::string& key) const;
  // Array element; throws std::out_of_range.
  const JsonValue& operator[](std::size_t index) const;
};

// Parses one JSON document (surrounding white space allowed); throws
// std::runtime_error on any syntax error or trailing text.
JsonValue ParseJson(const std::string& text);

}  // namespace tooltest

#endif  // VLM_TESTS_TOOLS_MINIJSON_H
