#include "install/Installer.h"

#include "tests/fakes/FakePlatform.h"

namespace pellix {
namespace {

using fakes::File;
using fakes::platform;

const std::string support = "/Users/ann/Library/Application Support/VelmorPellix";
const std::string managed = support + "/managed.json";
const std::string guard = support + "/velmor-guard";
const std::string logs = support + "/logs";
const std::string agents = "/Users/ann/Library/LaunchAgents/";
const std::string servicePlist = agents + "com.velmor.pellix.plist";
const std::string menubarPlist = agents + "com.velmor.pellix.menubar.plist";
const std::string bundled = "/Applications/Pellix.app/Contents/Resources/velmor-guard";

const std::vector<std::string> registration = {
    "launch /bin/launchctl [bootout] [gui/501/com.velmor.pellix]",        "wait",
    "launch /bin/launchctl [bootstrap] [gui/501] [" + servicePlist + "]", "wait",
    "launch /bin/launchctl [kickstart] [-k] [gui/501/com.velmor.pellix]", "wait"};

class EnsureInstalled : public fakes::PlatformTest {
 protected:
  EnsureInstalled() {
    platform().resources["velmor-guard"] = bundled;
    platform().files[bundled] = {.content = "new guard", .permissions = 0555};
  }

  static std::vector<std::string> withRegistration(std::vector<std::string> calls) {
    calls.insert(calls.end(), registration.begin(), registration.end());
    return calls;
  }

  // Makes `call` fail, runs the sequence and expects it to end there with that very error.
  static void expectToFailAt(const std::string& call) {
    const ::platform::Error error("fake", 513, "It doesn’t work: " + call);
    platform().failures.emplace(call, error);
    try {
      Installer::ensureInstalled();
      ADD_FAILURE() << "no error at " << call;
    } catch (const ::platform::Error& thrown) {
      EXPECT_EQ(thrown, error);
    }
    ASSERT_FALSE(platform().log.empty());
    EXPECT_EQ(platform().log.back(), call) << "nothing is done after the failure";
  }
};

TEST_F(EnsureInstalled, doesItsStepsInOrderOnAFreshHome) {
  Installer::ensureInstalled();
  EXPECT_EQ(platform().log,
            withRegistration({"create " + support, "write " + managed,
                              "copy " + bundled + " to " + guard, "permissions " + guard,
                              "create " + logs, "write " + servicePlist, "write " + menubarPlist}));
}

TEST_F(EnsureInstalled, managedSiteIsOneLineOfJson) {
  Installer::ensureInstalled();
  EXPECT_EQ(platform().files.at(managed).content, R"({"site":")" VELMOR_SITE_URL R"("})");
}

TEST_F(EnsureInstalled, replacesTheInstalledGuardAndMakesItExecutable) {
  platform().files[guard] = {.content = "old guard", .permissions = 0700};
  Installer::ensureInstalled();
  EXPECT_EQ(platform().files.at(guard), (File{.content = "new guard", .permissions = 0755}));
  EXPECT_EQ(platform().count("remove " + guard), 1);
}

TEST_F(EnsureInstalled, replacesAlsoAnIdenticalGuardOnEveryRun) {
  for (int run = 0; run < 3; ++run) Installer::ensureInstalled();
  EXPECT_EQ(platform().count("remove " + guard), 2);
  EXPECT_EQ(platform().count("copy " + bundled + " to " + guard), 3);
}

TEST_F(EnsureInstalled, runningTwiceLeavesTheSameFiles) {
  Installer::ensureInstalled();
  const auto files = platform().files;
  const auto folders = platform().folders;
  Installer::ensureInstalled();
  EXPECT_EQ(platform().files, files);
  EXPECT_EQ(platform().folders, folders);
}

TEST_F(EnsureInstalled, handEditedManagedSiteIsReplaced) {
  platform().files[managed] = {.content = R"({"site":"https://elsewhere.example"})"};
  Installer::ensureInstalled();
  EXPECT_EQ(platform().files.at(managed).content, R"({"site":")" VELMOR_SITE_URL R"("})");
}

TEST_F(EnsureInstalled, onlyTheServiceIsRegistered) {
  Installer::ensureInstalled();
  for (const std::string& call : platform().log) {
    EXPECT_FALSE(call.starts_with("launch") && call.find("menubar") != call.npos) << call;
  }
}

TEST_F(EnsureInstalled, withoutABundledGuardTheInstalledOneIsKept) {
  platform().resources.clear();
  platform().files[guard] = {.content = "old guard", .permissions = 0700};
  Installer::ensureInstalled();
  EXPECT_EQ(platform().files.at(guard), (File{.content = "old guard", .permissions = 0700}));
  EXPECT_EQ(platform().log,
            withRegistration({"create " + support, "write " + managed, "create " + logs,
                              "write " + servicePlist, "write " + menubarPlist}));
}

TEST_F(EnsureInstalled, resourceWhoseFileIsGoneCountsAsNone) {
  platform().files.erase(bundled);
  platform().files[guard] = {.content = "old guard"};
  Installer::ensureInstalled();
  EXPECT_EQ(platform().files.at(guard).content, "old guard");
}

TEST_F(EnsureInstalled, withoutAnyGuardItFailsWithItsOwnError) {
  platform().resources.clear();
  platform().files.clear();
  try {
    Installer::ensureInstalled();
    FAIL() << "no error";
  } catch (const ::platform::Error& error) {
    EXPECT_EQ(error.domain, "VelmorPellix");
    EXPECT_EQ(error.code, 1);
    EXPECT_EQ(error.description, "velmor-guard binary missing from the app bundle.");
  }
  EXPECT_EQ(platform().log, (std::vector<std::string>{"create " + support, "write " + managed}));
  EXPECT_TRUE(platform().folders.contains(support));
  EXPECT_TRUE(platform().files.contains(managed));
}

TEST_F(EnsureInstalled, endsAtTheFirstFailureWithThatError) {
  for (const std::string& call :
       {"create " + support, "write " + managed, "copy " + bundled + " to " + guard,
        "permissions " + guard, "create " + logs, "write " + servicePlist,
        "write " + menubarPlist}) {
    platform() = fakes::Platform();
    platform().resources["velmor-guard"] = bundled;
    platform().files[bundled] = {.content = "new guard"};
    platform().files[guard] = {.content = "old guard"};
    expectToFailAt(call);
  }
}

TEST_F(EnsureInstalled, guardThatCannotBeRemovedIsReportedByTheCopy) {
  platform().files[guard] = {.content = "old guard"};
  platform().failures.emplace("remove " + guard, ::platform::Error("fake", 513, "not permitted"));
  try {
    Installer::ensureInstalled();
    FAIL() << "no error";
  } catch (const ::platform::Error& error) {
    EXPECT_EQ(error.code, 516) << "the copy’s error, not the removal’s";
  }
  EXPECT_EQ(platform().files.at(guard).content, "old guard");
  EXPECT_FALSE(platform().files.contains(servicePlist));
}

TEST_F(EnsureInstalled, withoutALaunchAgentsFolderItFailsAfterTheGuardIsInstalled) {
  platform().folders.erase("/Users/ann/Library/LaunchAgents");
  EXPECT_THROW(Installer::ensureInstalled(), ::platform::Error);
  EXPECT_EQ(platform().log.back(), "write " + servicePlist);
  EXPECT_EQ(platform().files.at(guard), (File{.content = "new guard", .permissions = 0755}));
}

TEST_F(EnsureInstalled, launchdProblemsAreNoFailure) {
  platform().processes["/bin/launchctl"] = {.canBeLaunched = false};
  EXPECT_NO_THROW(Installer::ensureInstalled());
}

TEST_F(EnsureInstalled, withoutAnExecutablePathTheServiceIsStillRegistered) {
  platform().executable.reset();
  Installer::ensureInstalled();
  EXPECT_FALSE(platform().files.contains(menubarPlist));
  EXPECT_EQ(platform().log.back(), "wait");
}

}  // namespace
}  // namespace pellix
