// What the library's result codes mean, as the tool prints them.
#ifndef VLM_TOOLS_SITELIST_RESULTCODES_H
#define VLM_TOOLS_SITELIST_RESULTCODES_H

namespace sitelist {

// One line of text for a result code; "unknown result" for codes the library
// does not document (a parser's own code, for example).
const char* ResultMeaning(int code);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_RESULTCODES_H
