// A structure-aware mutator for the targets that take a site list document:
// it reads the input as a tree of elements (attributes, text), changes the
// tree the way an administrator or a damaged file would — a site inserted,
// removed or copied, sites reordered, an attribute or a text given another
// value of the schema's, a site turned into another kind — and writes it
// back as a document. Inputs that are no tree of elements (other encodings,
// broken markup) and one mutation in eight are left to libFuzzer's byte
// mutations, so that both kinds of input keep being explored.
#ifndef VLM_FUZZ_SITELISTMUTATOR_H
#define VLM_FUZZ_SITELISTMUTATOR_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace fuzzsupport {

struct XmlNode {
  std::string name;
  std::vector<std::pair<std::string, std::string>> attributes;
  std::string text;  // character data before the first child (unescaped)
  std::vector<std::unique_ptr<XmlNode>> children;

  std::unique_ptr<XmlNode> Clone() const;
};

// The document element of text, or nothing when text is not a tree of
// elements this reader understands (a prolog, comments and processing
// instructions are skipped; a DOCTYPE or CDATA makes it give up).
std::unique_ptr<XmlNode> ParseTree(const std::string& text);

// The document: an XML declaration and the tree, values escaped.
std::string WriteTree(const XmlNode& root);

// Applies one to three structural changes to the tree.
void MutateTree(XmlNode& root, std::minstd_rand& random);

// The mutator proper: LLVMFuzzerCustomMutator of each target calls it.
std::size_t MutateSiteList(std::uint8_t* data, std::size_t size, std::size_t maxSize, unsigned int seed);

}  // namespace fuzzsupport

#endif  // VLM_FUZZ_SITELISTMUTATOR_H
