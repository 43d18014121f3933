#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/Alert.h"
#include "platform/Application.h"
#include "platform/Error.h"
#include "platform/StatusItem.h"
#include "platform/Task.h"
#include "platform/UrlSession.h"
#include "platform/Window.h"

/// A platform in memory: it keeps what the program did, in order, and does what a test tells it.
namespace fakes {

struct File {
  std::string content;
  unsigned permissions = 0644;
  friend bool operator==(const File&, const File&) = default;
};

struct Process {
  std::string output = {};
  bool canBeLaunched = true;
};

struct Request {
  std::string url;
  platform::UrlSession::CompletionHandler completionHandler;
};

struct TimerRecord {
  double interval;
  bool repeats;
  std::function<void()> block;
};

struct WindowRecord {
  platform::WindowContent content;
  bool isCentered = false;
  bool isVisible = false;
  std::map<std::string, std::string> buttonTitles = {};  ///< those changed, by identifier
};

struct StatusItemRecord {
  double length;
  std::optional<platform::StatusBarButton> button = {};
  std::optional<platform::Menu> menu = {};
};

struct Platform {
  /// Every call that does something, in order, such as "write /a/b" or "alert".
  std::vector<std::string> log;
  /// How often the log has that line.
  std::ptrdiff_t count(const std::string& call) const;
  /// Calls that fail, by their line in the log.
  std::map<std::string, platform::Error> failures;

  std::filesystem::path home = "/Users/ann";
  std::vector<std::filesystem::path> applicationSupport = {
      "/Users/ann/Library/Application Support"};
  std::map<std::string, File> files;
  std::set<std::string> folders = {"/Users/ann/Library/LaunchAgents"};

  std::optional<std::filesystem::path> executable =
      "/Applications/Pellix.app/Contents/MacOS/pellix";
  std::map<std::string, std::string> resources;  ///< paths by name

  std::map<std::string, Process> processes;  ///< by executable; any other prints nothing
  std::optional<std::string> uuid = "564D0000-0000-0000-0000-00000000ABCD";

  std::map<std::string, long long> integers;  ///< user defaults
  std::map<std::string, bool> booleans;

  std::vector<std::string> arguments = {"pellix"};
  std::vector<platform::Alert> alerts;
  std::function<int()> answerAlert = [] { return platform::alertFirstButtonReturn; };

  std::vector<std::function<void()>> mainQueue;
  std::vector<std::pair<double, std::function<void()>>> delayed;
  std::vector<std::shared_ptr<TimerRecord>> timers;  ///< those still scheduled
  std::vector<Request> requests;
  double requestTimeout = 0;
  std::set<std::string> unparsableUrls;

  std::set<std::string> unknownSymbols;
  bool givesButton = true;
  std::vector<std::shared_ptr<StatusItemRecord>> statusItems;  ///< those in the bar
  std::vector<std::shared_ptr<WindowRecord>> windows;          ///< those alive
  std::optional<std::string> pasteboard;
  std::vector<std::string> openedUrls;

  /// Runs the blocks posted to the main queue so far, and those that they post.
  void runMainQueue();
  /// Ends a request with `body`, then lets the main queue run.
  void answer(std::size_t request, std::optional<std::string> body);
  /// The enabled entry with that title in the status item's menu, or null.
  const platform::MenuItem* find(const std::string& title) const;
  /// Picks that entry.
  void pick(const std::string& title);
  /// The titles of the entries that cannot be picked, from top to bottom.
  std::vector<std::string> informationalTitles() const;
};

/// The platform of the running test.
Platform& platform();

/// A test with a platform of its own.
class PlatformTest : public testing::Test {
 protected:
  PlatformTest();
};

}  // namespace fakes
