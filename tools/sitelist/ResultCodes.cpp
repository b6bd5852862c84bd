#include "ResultCodes.h"

namespace sitelist {
namespace {

struct CodeMeaning {
  int code;
  const char* meaning;
};

// The one table of result codes of the library's operations.
constexpr CodeMeaning c_meanings[] = {
    {0, "success"},
    {-1, "general failure"},
    {-2, "a required argument is missing"},
    {-3, "out of memory"},
    {-4, "site list file does not exist"},
    {-5, "XML is not well formed"},
    {-8, "the site list has no SPIPE site"},
    {-9, "the site list failed the source checks"},
    {-10, "the file could not be read"},
    {-11, "the site list file could not be written"},
};

}  // namespace

const char* ResultMeaning(int code) {
  for (const CodeMeaning& entry : c_meanings)
    if (entry.code == code) return entry.meaning;
  return "unknown result";
}

}  // namespace sitelist
