// A power cut at every system call of every writing operation, each followed
// by a reboot: every file is old or new and parses, keeps its mode and owner,
// the files of one change are all old or all new, and the next write lands;
// a cut right after an operation returned success leaves all of it.
//
// Each cut is looked at with nothing undurable kept, and with two random
// subsets of the undurable changes (fixed seed, so a failure repeats).
#include <gtest/gtest.h>

#include "power/Operations.h"
#include "power/PowerCut.h"

namespace {

using powertest::Figures;

constexpr int kRandomImagesPerCut = 2;
constexpr unsigned kSeed = 20261123;

void CutEverywhere(const std::string& name) {
  const powertest::Operation op = powertest::WritingOperation(name);
  ASSERT_EQ(name, op.name);
  const Figures f = powertest::CutEverywhere(op, kRandomImagesPerCut, kSeed);
  EXPECT_GT(f.cutPoints, 0);
  EXPECT_EQ(f.cutPoints * (1 + kRandomImagesPerCut), f.images);
  EXPECT_EQ(0, f.failures);
  // Cuts early in the sequence leave the old state; the last ones the new.
  EXPECT_GT(f.allOld, 0);
  EXPECT_GT(f.allNew, 0);
}

TEST(PowerCut, CreateSiteListWithPasswordsAndItsNewKey) { CutEverywhere("CreateSiteList"); }

// The first password written creates the key that encrypts it, and its
// directory: neither may be lost while the list that needs them survives.
TEST(PowerCut, CreateSiteListWithPasswordsCreatingTheFirstKey) { CutEverywhere("CreateSiteList (new key)"); }

TEST(PowerCut, ImportSiteListPlacesListAndKeyFilesAsOneChange) { CutEverywhere("ImportSiteList"); }

TEST(PowerCut, InstallSiteListPlacesListAndKeyFilesAsOneChange) { CutEverywhere("InstallSiteList"); }

TEST(PowerCut, ServerSiteListFromSiteList) { CutEverywhere("createServerSiteListFromSiteList"); }

TEST(PowerCut, CreateServerSiteListFromBuffer) { CutEverywhere("CreateServerSiteList"); }

TEST(PowerCut, ModifySiteListRewritesListAndKeyFilesAsOneChange) { CutEverywhere("modifySiteList"); }

TEST(PowerCut, CreateSiteListFromBuffer) { CutEverywhere("CreateSiteListFromBuffer"); }

TEST(PowerCut, PlaceSiteFilesReplacesAddsAndRemovesAsOneChange) { CutEverywhere("PlaceSiteFiles"); }

}  // namespace
