// Plain-text and JSON output of the tool.
#ifndef VLM_TOOLS_SITELIST_OUTPUT_H
#define VLM_TOOLS_SITELIST_OUTPUT_H

#include <string>
#include <utility>
#include <vector>

namespace sitelist {

using Field = std::pair<std::string, std::string>;

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

// A JSON string literal (quotes included) of UTF-8 text.
std::string JsonString(const std::string& text);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_OUTPUT_H
