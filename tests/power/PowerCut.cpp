#include "power/PowerCut.h"
#include "power/Outcome.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <sstream>

#include "port/crypto/CryptShim.h"
#include "port/log/Log.h"
#include "sitehlp/SitesHelper.h"
#include "stress/Workload.h"
#include "support/TestSupport.h"

namespace powertest {

namespace {

using testsupport::ReadFile;
using testsupport::Wide;

struct CutResult {
  long rc = -999;
  long calls = 0;
  long powerLost = 0;
  std::vector<Image> images;
};

// The operation on a disk holding before, with the power cut at call k (0:
// never). The images: what the processes saw at the end (k = 0), or what the
// cut left, first with nothing undurable, then random subsets.
bool RunCut(const Operation& op, const Layout& layout, const Image& before, long k, int randomImages,
            unsigned seed, const std::string& report, CutResult& result) {
  const bool ended = InChild([&]() {
    std::string out;
    {
      VolatileDisk disk(layout.root, before);
      disk.trace(k == 0 && std::getenv("VLM_POWER_TRACE") != nullptr);
      disk.install();
      disk.cutAt(k);
      const int rc = op.run(layout);
      std::vector<Image> images;
      if (k == 0) {
        images.push_back(disk.visible());
        images.push_back(disk.afterCut(nullptr));
      } else {
        images.push_back(disk.afterCut(nullptr));
        for (int r = 0; r < randomImages; ++r) {
          std::mt19937 rng(seed + static_cast<unsigned>(k) * 7919u + static_cast<unsigned>(r));
          images.push_back(disk.afterCut(&rng));
        }
      }
      Put(out, rc);
      Put(out, disk.calls());
      Put(out, disk.powerLost());
      Put(out, static_cast<long>(images.size()));
      for (const Image& image : images) Put(out, Serialize(image));
    }
    WriteReport(report, out);
    return 0;
  });
  if (!ended) return false;
  const std::string in = ReadFile(report);
  std::size_t pos = 0;
  long count = 0;
  if (!Take(in, pos, result.rc) || !Take(in, pos, result.calls) || !Take(in, pos, result.powerLost) ||
      !Take(in, pos, count))
    return false;
  result.images.assign(static_cast<std::size_t>(count), Image());
  for (Image& image : result.images) {
    std::string bytes;
    if (!Take(in, pos, bytes) || !Deserialize(bytes, image)) return false;
  }
  return true;
}

// A reboot onto image: a fresh process reads the agent's list, looks at the
// files, and runs the operation again.
RebootState Reboot(const Operation& op, const Layout& layout, const Image& image, const std::string& report) {
  WriteTree(layout.root, image);
  RebootState state;
  const bool ended = InChild([&]() {
    std::string out;
    {
      sitehlp::CSitesHelper reader(Wide(layout.list()));
      sitehlp::tag_Site* list = nullptr;
      reader.ReadSiteList(Wide(layout.list()), &list);
      reader.FreeSiteListMemory(list);
      PutStates(out, States(op, layout));
      Put(out, op.run(layout));
      PutStates(out, States(op, layout));
      const std::vector<std::string> leftovers = Leftovers(op, layout);
      Put(out, static_cast<long>(leftovers.size()));
      for (const std::string& name : leftovers) Put(out, name);
    }
    WriteReport(report, out);
    return 0;
  });
  if (!ended) {
    state.failure = "the rebooted process did not end normally";
    return state;
  }
  const std::string in = ReadFile(report);
  std::size_t pos = 0;
  long next = 0, count = 0;
  if (!TakeStates(in, pos, state.files) || !Take(in, pos, next) || !TakeStates(in, pos, state.filesAfterNext) ||
      !Take(in, pos, count)) {
    state.failure = "the rebooted process wrote no whole report";
    return state;
  }
  state.nextRc = static_cast<int>(next);
  state.leftovers.assign(static_cast<std::size_t>(count), std::string());
  for (std::string& name : state.leftovers) Take(in, pos, name);
  return state;
}

// Checks one reboot against the states before and after the operation;
// counts it. Returns the failures found, empty when it holds.
std::string Judge(const Operation& op, const RebootState& oldRef, const RebootState& newRef, const RebootState& got,
                  Figures& figures) {
  if (!got.failure.empty()) return got.failure;
  std::string failures;
  bool allOld = true, allNew = true;
  for (std::size_t i = 0; i < op.targets.size(); ++i) {
    const bool isOld = got.files[i] == oldRef.files[i];
    const bool isNew = got.files[i] == newRef.files[i];
    if (!isOld && !isNew)
      failures += op.targets[i] + " is neither old nor new (" + Describe(got.files[i]) + "; old " +
                  Describe(oldRef.files[i]) + "; new " + Describe(newRef.files[i]) + "). ";
    allOld = allOld && isOld;
    allNew = allNew && isNew;
  }
  if (allNew)
    ++figures.allNew;
  else if (allOld)
    ++figures.allOld;
  else
    ++figures.mixed;
  if (op.bTogether && !allOld && !allNew) failures += "the files of one change are part old, part new. ";
  if (got.nextRc != 0) failures += "the next write gave " + std::to_string(got.nextRc) + ". ";
  for (std::size_t i = 0; i < op.targets.size(); ++i)
    if (!(got.filesAfterNext[i] == newRef.filesAfterNext[i]))
      failures += op.targets[i] + " after the next write is " + Describe(got.filesAfterNext[i]) + Difference(got.filesAfterNext[i], newRef.filesAfterNext[i]) + ". ";
  for (const std::string& name : got.leftovers) failures += "left behind: " + name + ". ";
  return failures;
}

}  // namespace

Figures CutEverywhere(const Operation& op, int randomImagesPerCut, unsigned seed) {
  Figures figures;
  workload::CountingNullSink sink;
  port::LogSink* previous = port::SetLogSink(&sink);
  {
    workload::DataDir dir;
    testsupport::TempDir reports;
    const Layout layout{dir.root()};
    const std::string report = reports.file("report");

    if (!InChild([&]() { return op.setup(layout) ? 0 : 1; })) {
      ADD_FAILURE() << op.name << ": the state before could not be set up";
      port::SetLogSink(previous);
      return figures;
    }
    const Image before = ReadTree(layout.root);
    CutResult full;
    if (!RunCut(op, layout, before, 0, 0, seed, report, full) || full.rc != 0 || full.images.size() != 2) {
      ADD_FAILURE() << op.name << ": the operation without a cut gave " << full.rc;
      port::SetLogSink(previous);
      return figures;
    }
    const Image after = full.images.front();
    const RebootState oldRef = Reboot(op, layout, before, report);
    const RebootState newRef = Reboot(op, layout, after, report);
    EXPECT_EQ("", oldRef.failure + newRef.failure);
    EXPECT_EQ(0, newRef.nextRc);
    // The operation changes every file it names, and doing it twice changes
    // nothing more; from the old state it gives what it gave the first time.
    for (std::size_t i = 0; i < op.targets.size() && oldRef.failure.empty() && newRef.failure.empty(); ++i) {
      EXPECT_FALSE(oldRef.files[i] == newRef.files[i]) << op.targets[i] << " is not changed by " << op.name;
      EXPECT_TRUE(newRef.files[i] == newRef.filesAfterNext[i]) << op.targets[i];
      EXPECT_TRUE(oldRef.filesAfterNext[i] == newRef.filesAfterNext[i]) << op.targets[i];
      if (newRef.files[i].bExists && op.targets[i].find(".xml") != std::string::npos) {
        EXPECT_TRUE(newRef.files[i].bParses) << op.targets[i];
      }
    }
    if (::testing::Test::HasFailure()) {
      port::SetLogSink(previous);
      return figures;
    }

    // A power cut right after the operation returned success: what it wrote
    // is durable.
    {
      Figures atEnd;
      const std::string failures = Judge(op, oldRef, newRef, Reboot(op, layout, full.images[1], report), atEnd);
      EXPECT_EQ("", failures) << op.name << ", power cut after it returned success";
      EXPECT_EQ(1, atEnd.allNew) << op.name << ", power cut after it returned success";
    }

    figures.cutPoints = full.calls;
    int reported = 0;
    for (long k = 1; k <= full.calls; ++k) {
      CutResult cut;
      if (!RunCut(op, layout, before, k, randomImagesPerCut, seed, report, cut) || cut.powerLost != 1) {
        ADD_FAILURE() << op.name << ": the run cut at call " << k << " did not end as cut";
        ++figures.failures;
        continue;
      }
      for (std::size_t j = 0; j < cut.images.size(); ++j) {
        ++figures.images;
        const RebootState got = Reboot(op, layout, cut.images[j], report);
        const std::string failures = Judge(op, oldRef, newRef, got, figures);
        if (failures.empty()) continue;
        ++figures.failures;
        if (++reported <= 10)
          ADD_FAILURE() << op.name << ", power cut at call " << k << " of " << full.calls << ", "
                        << (j == 0 ? std::string("nothing undurable kept") : "random subset " + std::to_string(j))
                        << ": " << failures;
      }
    }
  }
  port::SetLogSink(previous);
  std::printf("power: %s: %ld cut points, %ld reboots: %ld all old, %ld all new, %ld mixed; %ld failed\n",
              op.name.c_str(), figures.cutPoints, figures.images, figures.allOld, figures.allNew, figures.mixed,
              figures.failures);
  return figures;
}

}  // namespace powertest
