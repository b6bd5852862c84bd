// Plain-text and JSON output of the tool.
#ifndef VLM_TOOLS_SITELIST_OUTPUT_H
#define VLM_TOOLS_SITELIST_OUTPUT_H

#include <nlohmann/json.hpp>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace sitelist {

// JSON documents keep their members in the order the tool adds them.
using Json = nlohmann::ordered_json;

// Prints one JSON document on stdout.
void PrintJson(const Json& document);

using Field = std::pair<std::string, std::string>;

// Columns that UTF-8 text takes on a terminal: wide characters count two,
// combining marks none.
std::size_t DisplayWidth(const std::string& text);

// "Label  value" lines, values aligned two blanks after the longest label. A
// value holding line breaks continues on lines indented to the value column.
void PrintFields(const std::vector<Field>& fields);

// A table with a header row; columns two blanks apart, the last unpadded.
class Table {
 public:
  explicit Table(std::vector<std::string> headers);
  void AddRow(std::vector<std::string> cells);
  void Print() const;

 private:
  std::vector<std::vector<std::string>> m_rows;  // header first
};

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_OUTPUT_H
