// sitelist encrypt-password: a password from stdin in the encrypted text form
// that site lists carry. Never from an argument, which other users could see.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>

#include "Command.h"
#include "Context.h"
#include "Output.h"

namespace sitelist {
namespace {

int Run(Context& ctx, bool json) {
  std::string password{std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};
  // One line ending is the terminal's or echo's, not part of the password.
  if (!password.empty() && password.back() == '\n') password.pop_back();
  if (!password.empty() && password.back() == '\r') password.pop_back();
  // A record holds a password of at most c_nameCapacity - 1 characters; a
  // longer one would be cut without anyone noticing when the list is read.
  const std::wstring clear = Wide(password);
  constexpr std::size_t c_maxCharacters = sitehlp::c_nameCapacity - 1;
  if (clear.size() > c_maxCharacters)
    return ctx.Fail("the password has " + std::to_string(clear.size()) + " characters; a site list holds at most " +
                        std::to_string(c_maxCharacters),
                    c_exitUsage);
  std::wstring encrypted;
  if (ctx.Helper().EncryptPassword(clear, encrypted) == 0)
    return ctx.Fail("the password could not be encrypted");
  if (json)
    PrintJson({{"encrypted", Narrow(encrypted)}});
  else
    std::printf("%s\n", Narrow(encrypted).c_str());
  return 0;
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto json = std::make_shared<bool>(false);
  CLI::App* sub = app.add_subcommand(
      "encrypt-password", "Encrypt a password read from stdin for a site list's Password element");
  sub->add_flag("--json", *json, "Print one JSON document {\"encrypted\": TEXT}");
  sub->footer("One trailing line ending is dropped; at most 259 characters. The keys are those of VLM_KEY_DIR.\n"
              "Example:\n  sitelist encrypt-password < /run/secrets/repository-password");
  return {sub, [json, &ctx] { return Run(ctx, *json); }};
}

const Registration c_registration(140, &Setup);

}  // namespace
}  // namespace sitelist
