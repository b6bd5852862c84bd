// sitelist export [--json]: the agent's site list as text on stdout, text
// that sitelist load takes back.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <string>

#include "Command.h"
#include "Context.h"
#include "Output.h"
#include "xmlschema/sitelist.h"

namespace sitelist {
namespace {

bool BlankUpTo(const std::string& text, std::size_t from, std::size_t to) {
  for (std::size_t i = from; i < to; ++i)
    if (text[i] != ' ' && text[i] != '\t' && !(text[i] == '\r' && i + 1 == to)) return false;
  return true;
}

// Where the start tag stood: at the end of the blank line's indentation above
// the bundle's first child, where the writer puts it; else right before it.
std::size_t StartTagPlace(const std::string& text, std::size_t child) {
  const std::size_t lineStart = child == 0 ? std::string::npos : text.rfind('\n', child - 1);
  if (lineStart == std::string::npos || lineStart == 0 || !BlankUpTo(text, lineStart + 1, child)) return child;
  const std::size_t above = text.rfind('\n', lineStart - 1);
  const std::size_t aboveStart = above == std::string::npos ? 0 : above + 1;
  if (!BlankUpTo(text, aboveStart, lineStart)) return child;
  std::size_t at = aboveStart;
  while (text[at] == ' ' || text[at] == '\t') ++at;
  return at;
}

// The buffer form cuts the first "<CaBundle>" out of the document. When that
// was the bundle's start tag, it is put back, so that the text is a
// well-formed site list again.
std::string WithBundleStartTag(std::string text) {
  const std::string bundle = Narrow(ZEL_XML_CABUNDLE);
  const std::size_t end = text.find("</" + bundle + ">");
  if (end == std::string::npos) return text;
  for (std::size_t open = text.find("<" + bundle); open < end; open = text.find("<" + bundle, open + 1)) {
    const char next = text[open + 1 + bundle.size()];
    if (next == '>' || next == ' ' || next == '\t' || next == '\r' || next == '\n') return text;
  }
  const std::size_t certificate = text.find("<" + Narrow(ZEL_XML_CACERTIFICATE));
  const std::size_t child = certificate < end ? certificate : end;
  text.insert(StartTagPlace(text, child), "<" + bundle + ">");
  return text;
}

int Run(Context& ctx, bool json) {
  std::wstring text;
  if (const int status = ctx.CheckList(ctx.OwnListPath())) return status;
  const std::size_t mark = ctx.Log().Mark();
  if (!ctx.Helper().GetSiteListBuffer(text)) {
    if (const int status = ctx.FileFailure(ctx.OwnListPath(), mark)) return status;
    return ctx.Fail("the site list could not be read");
  }
  const std::string bytes = WithBundleStartTag(Narrow(text));
  if (json)
    PrintJson({{"path", ctx.OwnListPath()}, {"text", bytes}});
  else
    std::fwrite(bytes.data(), 1, bytes.size(), stdout);
  return 0;
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto json = std::make_shared<bool>(false);
  CLI::App* sub = app.add_subcommand("export", "Print the agent's site list as text (UTF-8) on stdout");
  sub->add_flag("--json", *json, "Print one JSON document holding the text");
  sub->footer("The text is the library's buffer form with the CA bundle's start tag put back,\n"
              "so that sitelist load takes it back.\n"
              "Example:\n  sitelist export > /tmp/SiteList.txt\n"
              "  sitelist --data-dir /srv/agent2 export | sitelist load --site-list /tmp/copy.xml");
  return {sub, [json, &ctx] { return Run(ctx, *json); }};
}

const Registration c_registration(120, &Setup);

}  // namespace
}  // namespace sitelist
