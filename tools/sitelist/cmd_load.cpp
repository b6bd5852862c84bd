// sitelist load: site list text from stdin, written with fresh version
// stamps to the standard location, or to the file --site-list names.
#include <CLI/CLI.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "Change.h"
#include "Command.h"
#include "Context.h"
#include "ScratchDir.h"

namespace sitelist {
namespace {

constexpr const char c_standardLocation[] = "/opt/Velmora/orx/scratch/etc/SiteList.xml";
constexpr const char c_rootPrefix[] = "VLM_ROOT_PREFIX";
// How messages name the text read.
constexpr const char c_input[] = "<stdin>";

std::string RootPrefix() {
  const char* prefix = std::getenv(c_rootPrefix);
  return prefix ? prefix : "";
}

// The library writes buffer text only to the standard location; it does so
// here under a private root prefix, and the document it wrote is then
// written as it stands (versions, type, certificates, policy settings,
// sites) to the target.
StepResult Stage(Context& ctx, const std::string& text, sitehlp::CSitesHelper& helper, std::string& staged) {
  const std::size_t mark = ctx.Log().Mark();
  const std::string previous = RootPrefix();
  setenv(c_rootPrefix, staged.c_str(), 1);
  sitehlp::CSitesHelper::ClearLastXmlRefusal();
  const int rc = helper.CreateSiteListFromBuffer(Wide(text));
  setenv(c_rootPrefix, previous.c_str(), 1);
  staged += c_standardLocation;
  if (rc == 0) return {0, true, ""};
  if (const int status = ctx.LockFailure(mark)) return {status, false, ""};
  sitehlp::tag_DocumentCheck refusal;
  if (rc == -5 && sitehlp::CSitesHelper::GetLastXmlRefusal(refusal)) return {ctx.NotWellFormed(refusal, c_input), false, ""};
  return {ctx.FailCode(rc), false, ""};
}

// The library stores any well-formed text as a site list, whatever its root
// element; the text must be one. Judged as a file holding the same bytes;
// the text's faults are the buffer reader's to place.
int CheckRoot(Context& ctx, const std::string& text, const std::string& dir) {
  const std::string copy = dir + "/stdin.xml";
  std::ofstream(copy, std::ios::binary) << text;
  sitehlp::tag_DocumentCheck check;
  if (ctx.Helper().CheckSiteListDocument(Wide(copy), check) != 0) return 0;
  return ctx.CheckList(copy, c_input);
}

StepResult Commit(Context& ctx, const std::string& staged, const std::string& file) {
  const std::size_t mark = ctx.Log().Mark();
  const std::unique_ptr<sitehlp::CSitesHelper> helper = ctx.MakeHelper(staged);
  std::wstring global, local, type;
  std::vector<std::wstring> certificates;
  sitehlp::tag_Site* sites = nullptr;
  int rc = helper->GetSitelistVersions(Wide(staged), global, local, type);
  if (rc == 0) rc = helper->GetCaCertificates(Wide(staged), certificates);
  if (rc == 0 && helper->ReadSiteList(Wide(staged), &sites) < -1) rc = -1;
  if (rc == 0) rc = helper->CreateSiteList(sites, Wide(file), global, local, type, certificates);
  helper->FreeSiteListMemory(sites);
  if (rc == 0) return {0, true, ""};
  if (const int status = ctx.LockFailure(mark)) return {status, false, ""};
  return {ctx.FailCode(rc), false, ""};
}

int Run(Context& ctx, const ChangeOptions& options) {
  const std::string text{std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};
  const bool standard = ctx.options.siteList.empty();
  const ChangeTarget target{standard ? RootPrefix() + c_standardLocation : ctx.options.siteList, false, true};
  return ApplyChange(ctx, target, options, [&](const std::string& file, const std::string& shownFile) {
    ScratchDir stage("load");
    if (!stage.Ok()) return StepResult{ctx.Fail("no scratch directory to stage the text in"), false, ""};
    std::string staged = stage.Path();
    if (const int status = CheckRoot(ctx, text, staged)) return StepResult{status, false, ""};
    std::filesystem::create_directories(staged + std::filesystem::path(c_standardLocation).parent_path().string());
    // A text without a CA bundle keeps the certificates of the list the
    // helper stands for: the agent's own, or the --site-list file.
    const std::unique_ptr<sitehlp::CSitesHelper> own = standard ? nullptr : ctx.MakeHelper(file);
    StepResult result = Stage(ctx, text, own ? *own : ctx.Helper(), staged);
    if (result.status == 0) result = Commit(ctx, staged, file);
    if (result.status == 0)
      result.message = standard ? std::string("site list written to the standard location ") + c_standardLocation
                                : "site list written to " + shownFile;
    return result;
  });
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto options = std::make_shared<ChangeOptions>();
  CLI::App* sub = app.add_subcommand(
      "load", "Write site list text read from stdin to the standard location, or to the --site-list file");
  AddChangeOptions(*sub, *options);
  sub->footer("The standard location is /opt/Velmora/orx/scratch/etc/SiteList.xml (under\n"
              "VLM_ROOT_PREFIX). The text is read as UTF-8 and written with a fresh local version;\n"
              "a text without a CA bundle keeps the certificates of the current site list.\n"
              "Example:\n  sitelist load < /tmp/SiteList.txt\n"
              "  sitelist export | sitelist load --site-list /tmp/copy.xml");
  return {sub, [options, &ctx] { return Run(ctx, *options); }};
}

const Registration c_registration(130, &Setup);

}  // namespace
}  // namespace sitelist
