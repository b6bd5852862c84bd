// Forward declarations of the platform XML types that appear, by pointer or
// reference only, in the exported API. Their definitions live in the port
// layer and are not exported: a caller can pass them along but never needs
// their members.
#ifndef VLM_PLATFORM_FORWARD_H
#define VLM_PLATFORM_FORWARD_H

namespace AdvXMLParser {
class Element;
// Opaque handle to an element of a document being built; valid only while
// that document lives.
struct ElementNode;
using ElementRef = ElementNode*;
}  // namespace AdvXMLParser

class AnXmlNode;

#endif  // VLM_PLATFORM_FORWARD_H
