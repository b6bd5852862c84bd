// sitelist enable NAME [--kind K]: see EnableSite.h.
#include "Context.h"
#include "EnableSite.h"

namespace sitelist {
namespace {

Bound Setup(CLI::App& app, Context& ctx) { return SetupEnableCommand(app, ctx, true); }

const Registration c_registration(74, &Setup);

}  // namespace
}  // namespace sitelist
