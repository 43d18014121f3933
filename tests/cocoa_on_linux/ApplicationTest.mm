#include <sys/xattr.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "Machine.h"

int pellixMain();

using namespace doubles;

namespace {

std::string describe(NSFont* font) {
  char weight[20];
  std::snprintf(weight, sizeof weight, "%g pt %g", font.pointSize, font.recordedWeight);
  return std::string(font.recordedIsMonospaced ? " monospaced " : " system ") + weight;
}

// One line per view, those below it after it.
void describe(NSView* view, const std::string& indent, std::vector<std::string>& lines) {
  char frame[100];
  std::snprintf(frame, sizeof frame, " (%g, %g, %g, %g)", view.frame.origin.x, view.frame.origin.y,
                view.frame.size.width, view.frame.size.height);
  std::string line = indent + class_getName(object_getClass(view)) + frame;
  if ([view isKindOfClass:NSTextField.class]) {
    auto* label = static_cast<NSTextField*>(view);
    line += " '" + text(label.stringValue) + "'" + describe(label.font) + " break " +
            std::to_string(label.lineBreakMode);
  }
  if ([view isKindOfClass:NSButton.class]) {
    auto* button = static_cast<NSButton*>(view);
    line += " '" + text(button.title) + "' bezel " + std::to_string(button.bezelStyle);
    if ([button.keyEquivalent isEqual:@"\r"]) line += " Return";
  }
  if (view.toolTip != nil) line += " tip '" + text(view.toolTip) + "'";
  if (view.layer != nil)
    line += " layer " + text(recordedName(view.layer.backgroundColor)) + " radius " +
            std::to_string(static_cast<int>(view.layer.cornerRadius));
  lines.push_back(line);
  for (NSView* each in view.subviews) describe(each, indent + "  ", lines);
}

std::vector<std::string> describe(NSView* view) {
  std::vector<std::string> lines;
  describe(view, "", lines);
  return lines;
}

std::vector<std::string> describe(NSMenu* menu) {
  std::vector<std::string> lines;
  for (NSMenuItem* item in menu.itemArray) {
    std::string line = item.separatorItem ? "---" : text(item.title);
    if (item.keyEquivalent.length > 0) line += " [" + text(item.keyEquivalent) + "]";
    if (item.toolTip != nil) line += " tip '" + text(item.toolTip) + "'";
    if (!item.separatorItem && !isEnabledWhenShown(item)) line += " (disabled)";
    // Whoever AppKit sends the command to is kept by the item itself.
    EXPECT_EQ(item.target, item.representedObject);
    EXPECT_EQ(item.target == nil, item.action == nullptr);
    lines.push_back(line);
  }
  return lines;
}

std::string describe(NSButton* button) {
  std::string line = text(button.image.recordedSymbolName);
  if (button.image != nil) {
    line += button.image.isTemplate ? " template" : " own colour";
    line += " '" + text(button.image.accessibilityDescription) + "'";
    if (button.image.recordedConfiguration != nil)
      line += " " + text(button.image.recordedConfiguration.recordedHierarchicalColor.recordedName);
  }
  line += " title '" + text(button.title) + "' tint " + text(button.contentTintColor.recordedName) +
          " tip '" + text(button.toolTip) + "' read '" + text(button.accessibilityLabel) + "'";
  return line;
}

NSButton* buttonTitled(NSView* view, NSString* title) {
  for (NSView* each in view.subviews)
    if ([each isKindOfClass:NSButton.class] && [static_cast<NSButton*>(each).title isEqual:title])
      return static_cast<NSButton*>(each);
  ADD_FAILURE() << "no button " << text(title);
  return nil;
}

class ApplicationTest : public Machine {
 protected:
  ApplicationTest() {
    std::filesystem::create_directories(home / "Library/LaunchAgents");
    std::filesystem::create_directories(home / "Resources");
    bundle("#!/bin/sh\necho '{\"device_id\":\"INSTALLED\"}'\n");
    bundledResources = home / "Resources";
    substituteExecutable = [](const std::string& program) {
      return program == "/bin/launchctl" ? "/bin/true" : program;
    };
    answerRequest = [this](const std::string&) { return answer; };
  }

  // Whatever the program did, it is gone with its owners.
  ~ApplicationTest() override {
    drain();
    EXPECT_EQ(leftBehind(), (std::map<std::string, int>()));
  }

  void bundle(const std::string& script) const {
    const auto path = makeFile(home / "Resources/velmor-guard", script);
    std::filesystem::permissions(path, std::filesystem::perms(0755));
  }

  void welcome() const { [NSUserDefaults.standardUserDefaults setBool:YES forKey:@"vlx_welcomed"]; }

  /// Runs the program; `userSession` is what happens once it has launched.
  static void run(std::function<void()> userSession) {
    session = std::move(userSession);
    @autoreleasepool {
      EXPECT_EQ(pellixMain(), 0);
    }
  }

  static NSStatusItem* item() { return statusItems().at(0); }
  static bool hasRow(const std::string& title) {
    for (NSMenuItem* row in item().menu.itemArray)
      if (text(row.title) == title) return true;
    return false;
  }
  static NSView* content() { return visibleWindows().at(0).contentView; }

  static void pollEnds() {
    waitForRequests();
    runPending();
  }

  Answer answer = {.body = "{}"};
};

TEST_F(ApplicationTest, launchesPollsCarriesOutItsCommandsAndQuits) {
  answer.body = R"({"state":"not_enrolled","device_id":"HW-UUID-1"})";
  run([this] {
    EXPECT_EQ(NSApp.activationPolicy, NSApplicationActivationPolicyAccessory);
    EXPECT_EQ(item().length, -1.0);
    EXPECT_EQ(visibleWindows().size(), 1u);
    EXPECT_TRUE([NSUserDefaults.standardUserDefaults boolForKey:@"vlx_welcomed"]);

    pollEnds();
    EXPECT_EQ(describe(item().button),
              "exclamationmark.shield own colour 'Not authorized yet' systemOrangeColor title '' "
              "tint systemOrangeColor tip 'Velmor Pellix — Not authorized yet' "
              "read 'Velmor Pellix — Not authorized yet'");
    EXPECT_TRUE(item().menu.autoenablesItems);
    EXPECT_EQ(describe(item().menu),
              (std::vector<std::string>{
                  "Not authorized yet (disabled)", "Last check: never (disabled)", "---",
                  "Authorize this Mac… [a]", "Show status… [s]", "Show device ID… [i]", "---",
                  "HW-UUID-1 tip 'Click to copy — IT needs this to approve your Mac'", "---",
                  "Quit Pellix [q]"}));

    answer.body = R"({"state":"authorized","device_id":"HW-UUID-2",
                      "last_heartbeat":"2024-05-01T12:34:56.789+02:00"})";
    advance(20);
    pollEnds();
    EXPECT_EQ(requests().size(), 2u);
    const auto rows = describe(item().menu);
    EXPECT_EQ(std::count_if(rows.begin(), rows.end(),
                            [](const std::string& row) {
                              return row.rfind("Last check: ", 0) == 0 &&
                                     row.find(" d ago") != row.npos;
                            }),
              1);
    EXPECT_EQ(std::count(rows.begin(), rows.end(), "Open WordPress Admin [o]"), 1);
    pick(item(), @"Open WordPress Admin");
    pick(item(), @"Show status…");
    EXPECT_EQ(openedUrls, (std::vector<std::string>{"http://127.0.0.1:8787/authorize",
                                                    "http://127.0.0.1:8787/"}));
    copyElsewhere(@"something else");
    pick(item(), @"HW-UUID-2");
    EXPECT_TRUE([NSPasteboard.generalPasteboard.types isEqual:@[ NSPasteboardTypeString ]]);
    EXPECT_EQ(text([NSPasteboard.generalPasteboard stringForType:NSPasteboardTypeString]),
              "HW-UUID-2");

    answer.body.reset();
    advance(20);
    pollEnds();
    EXPECT_EQ(requests().size(), 3u);
    EXPECT_EQ(text(item().menu.itemArray[0].title), "Cannot reach WordPress");
    EXPECT_EQ(text(item().menu.itemArray[1].title), "Starting Pellix…");
    EXPECT_TRUE(hasRow("HW-UUID-2"));
    pick(item(), @"Authorize this Mac…");
    EXPECT_EQ(openedUrls.back(), "http://127.0.0.1:8787/");

    pick(item(), @"Show device ID…");
    EXPECT_EQ(visibleWindows().size(), 1u);
    EXPECT_NE(describe(content())[4].find(" 'HW-UUID-2' "), std::string::npos);

    int alerts = 0;
    answerAlert = [&alerts](NSAlert* alert) {
      alerts++;
      EXPECT_EQ(text(alert.messageText), "Quit Pellix?");
      EXPECT_EQ(text(alert.informativeText),
                "This closes the menu bar icon only. Your Mac stays authorized and Pellix keeps "
                "running in the background.");
      EXPECT_EQ(alert.alertStyle, NSAlertStyleInformational);
      EXPECT_EQ(alert.buttons.count, 2u);
      EXPECT_EQ(text(alert.buttons[0].title), "Quit");
      EXPECT_EQ(text(alert.buttons[1].title), "Cancel");
      EXPECT_EQ(keyWindow(), alert.window);
      EXPECT_EQ(alert.window.level, NSModalPanelWindowLevel);
      return responseForKey(alert, alerts == 1 ? @"\033" : @"\r");
    };
    pick(item(), @"Quit Pellix");
    EXPECT_FALSE(isTerminated());
    pick(item(), @"Quit Pellix");
    EXPECT_TRUE(isTerminated());
    EXPECT_EQ(alerts, 2);
  });
}

TEST_F(ApplicationTest, theFirstLaunchInstallsAndAsksTheServiceForTheId) {
  const std::string support = home / "Library/Application Support/VelmorPellix";
  run([] {});
  std::vector<std::string> commands;
  for (const auto& each : runs) {
    std::string line = each.executable;
    for (const auto& argument : each.arguments) line += " " + argument;
    EXPECT_TRUE(each.launched);
    commands.push_back(line);
  }
  const std::string domain = "gui/" + std::to_string(getuid());
  EXPECT_EQ(commands, (std::vector<std::string>{
                          "/bin/launchctl bootout " + domain + "/com.velmor.pellix",
                          "/bin/launchctl bootstrap " + domain + " " +
                              (home / "Library/LaunchAgents/com.velmor.pellix.plist").native(),
                          "/bin/launchctl kickstart -k " + domain + "/com.velmor.pellix",
                          support + "/velmor-guard id --json"}));
  EXPECT_EQ(contentOf(support + "/managed.json"), R"({"site":"https://site.example"})");
  EXPECT_EQ(std::filesystem::status(support + "/velmor-guard").permissions(),
            std::filesystem::perms(0755));
  EXPECT_NE(contentOf(home / "Library/LaunchAgents/com.velmor.pellix.menubar.plist")
                .find("<string>/Applications/Velmor Pellix.app/Contents/MacOS/velmor-pellix<"),
            std::string::npos);
}

TEST_F(ApplicationTest, theServiceOfADownloadedApplicationIsInstalledWithoutItsMark) {
  const auto bundled = home / "Resources/velmor-guard";
  const auto installed = home / "Library/Application Support/VelmorPellix/velmor-guard";
  const auto isQuarantined = [](const std::filesystem::path& path) {
    return getxattr(path.c_str(), "com.apple.quarantine", nullptr, 0, 0, XATTR_NOFOLLOW) >= 0;
  };
  ASSERT_EQ(setxattr(bundled.c_str(), "com.apple.quarantine", "0081;0;;", 8, 0, XATTR_NOFOLLOW), 0);
  run([] {});
  EXPECT_TRUE(std::filesystem::exists(installed));
  EXPECT_FALSE(isQuarantined(installed));
  EXPECT_TRUE(isQuarantined(bundled));
}

TEST_F(ApplicationTest, theDeviceIdWindowIsAsItWasDrawn) {
  run([] {
    NSWindow* window = visibleWindows().at(0);
    EXPECT_EQ(text(window.title), "Velmor Pellix");
    EXPECT_EQ(window.styleMask, NSWindowStyleMaskTitled | NSWindowStyleMaskClosable);
    EXPECT_TRUE(NSEqualRects(window.recordedContentRect, NSMakeRect(0, 0, 520, 280)));
    EXPECT_EQ(window.recordedBacking, NSBackingStoreBuffered);
    EXPECT_FALSE(window.recordedDefer);
    EXPECT_TRUE(window.recordedIsCentered);
    EXPECT_FALSE(window.releasedWhenClosed);
    EXPECT_FALSE(window.restorable) << "nothing is kept between runs";
    EXPECT_FALSE(window.windowController.shouldCascadeWindows);
    EXPECT_EQ(keyWindow(), window);
    EXPECT_EQ(window.firstResponder, buttonTitled(window.contentView, @"Done"));
    EXPECT_GT(activations(), 0);
    EXPECT_EQ(
        describe(window.contentView),
        (std::vector<std::string>{
            "NSView (0, 0, 520, 280)",
            "  NSTextField (28, 220, 460, 28) 'Your device ID' system 22 pt 0.3 break 2",
            "  NSTextField (28, 160, 460, 50) 'Send this to Orlen / IT with your work email. They "
            "will whitelist this Mac, then you can authorize from the menu bar shield.' "
            "system 13 pt 0 break 0",
            "  NSView (28, 88, 464, 56) layer controlBackgroundColor radius 8",
            "    NSTextField (12, 16, 440, 24) 'INSTALLED' monospaced 13 pt 0.23 break 5 "
            "tip 'INSTALLED'",
            "  NSButton (28, 28, 160, 32) 'Copy device ID' bezel 1",
            "  NSButton (400, 28, 90, 32) 'Done' bezel 1 Return"}));
  });
}

TEST_F(ApplicationTest, everyStateHasItsIcon) {
  welcome();
  struct Row {
    const char* state;
    const char* icon;
    const char* glyph;
    const char* tint;
    const char* summary;
  };
  constexpr Row rows[] = {
      {"authorized", "checkmark.shield.fill template", "◆", "", "Device authorized"},
      {"not_enrolled", "exclamationmark.shield own colour", "◇", "systemOrangeColor",
       "Not authorized yet"},
      {"offline", "shield.slash template", "◌", "", "Cannot reach WordPress"},
      {"stale", "clock.badge.exclamationmark own colour", "◑", "systemOrangeColor",
       "Trust expired"},
      {"revoked", "xmark.shield.fill own colour", "✕", "systemRedColor", "Revoked by IT"},
      {"unknown", "shield template", "◍", "", "Checking…"},
  };
  for (const Row& row : rows) {
    answer.body = std::string(R"({"state":")") + row.state + "\"}";
    const std::string summary = row.summary;
    const std::string rest = std::string("' tint ") + row.tint + " tip 'Velmor Pellix — " +
                             summary + "' read 'Velmor Pellix — " + summary + "'";
    run([&] {
      pollEnds();
      const std::string colour = row.tint[0] == '\0' ? "" : std::string(" ") + row.tint;
      EXPECT_EQ(describe(item().button),
                row.icon + (" '" + summary + "'") + colour + " title '" + rest);
      const auto known = knownSymbols;
      knownSymbols.clear();
      advance(20);
      pollEnds();
      EXPECT_EQ(describe(item().button), std::string(" title '") + row.glyph + rest);
      knownSymbols = known;
    });
  }
}

TEST_F(ApplicationTest, aStatusItemWithoutAButtonStillHasItsMenu) {
  welcome();
  statusItemsHaveButtons = false;
  run([] {
    pollEnds();
    EXPECT_EQ(item().button, nil);
    EXPECT_EQ(item().menu.itemArray.count, 10u);
  });
}

TEST_F(ApplicationTest, laterLaunchesShowTheWindowOnlyOnRequest) {
  welcome();
  run([] { EXPECT_EQ(visibleWindows().size(), 0u); });
  arguments.emplace_back("--show-id");
  run([] { EXPECT_EQ(visibleWindows().size(), 1u); });
}

TEST_F(ApplicationTest, thePortComesFromTheDefaults) {
  welcome();
  [NSUserDefaults.standardUserDefaults setInteger:9000 forKey:@"port"];
  run([] {
    pollEnds();
    EXPECT_EQ(requests().at(0).url, "http://127.0.0.1:9000/status.json");
    EXPECT_EQ(requests().at(0).timeoutIntervalForRequest, 4.0);
  });
}

TEST_F(ApplicationTest, anInstallationThatFailsIsShownAndTheLaunchGoesOn) {
  welcome();
  std::filesystem::remove(home / "Resources/velmor-guard");
  int alerts = 0;
  answerAlert = [&](NSAlert* alert) {
    alerts++;
    EXPECT_TRUE(statusItems().empty());
    EXPECT_EQ(text(alert.recordedError.domain), "VelmorPellix");
    EXPECT_EQ(alert.recordedError.code, 1);
    EXPECT_EQ(text(alert.messageText), "velmor-guard binary missing from the app bundle.");
    return responseForKey(alert, @"\r");
  };
  run([] {
    pollEnds();
    EXPECT_TRUE(hasRow("HW-UUID-4C4C4544-0042-3510-8056-B4C04F4A5331"));
  });
  EXPECT_EQ(alerts, 1);
}

TEST_F(ApplicationTest, theSystemsOwnErrorIsShownUnchanged) {
  welcome();
  std::filesystem::remove_all(home / "Library/LaunchAgents");
  int alerts = 0;
  answerAlert = [&](NSAlert* alert) {
    alerts++;
    EXPECT_EQ(alert.recordedError.domain, NSCocoaErrorDomain);
    EXPECT_EQ(text(alert.recordedError.userInfo[NSFilePathErrorKey]),
              (home / "Library/LaunchAgents/com.velmor.pellix.plist").native());
    return responseForKey(alert, @"\r");
  };
  run([] {});
  EXPECT_EQ(alerts, 1);
}

TEST_F(ApplicationTest, withoutLaunchctlTheLaunchGoesOn) {
  welcome();
  substituteExecutable = [](const std::string& program) {
    return program == "/bin/launchctl" ? "/nowhere/launchctl" : program;
  };
  run([] { EXPECT_EQ(statusItems().size(), 1u); });
  ASSERT_EQ(runs.size(), 4u);
  for (int i = 0; i < 3; i++) EXPECT_FALSE(runs[static_cast<std::size_t>(i)].launched);
  EXPECT_TRUE(runs[3].launched);
}

TEST_F(ApplicationTest, copyingIsConfirmedForAMomentAfterEachPress) {
  run([] {
    NSButton* copy = buttonTitled(content(), @"Copy device ID");
    [copy performClick:nil];
    EXPECT_EQ(text([NSPasteboard.generalPasteboard stringForType:NSPasteboardTypeString]),
              "INSTALLED");
    EXPECT_EQ(text(copy.title), "Copied!");
    advance(1);
    [copy performClick:nil];
    advance(0.4);
    EXPECT_EQ(text(copy.title), "Copied!");
    advance(0.2);
    EXPECT_EQ(text(copy.title), "Copy device ID");
    advance(1);
    EXPECT_EQ(text(copy.title), "Copy device ID");
    pasteboardRefuses = true;
    [copy performClick:nil];
    EXPECT_EQ(text(copy.title), "Copied!");
  });
}

TEST_F(ApplicationTest, returnClosesTheWindowAndTheProgramRunsOn) {
  run([] {
    pressKey(@"\r");
    EXPECT_EQ(visibleWindows().size(), 0u);
    EXPECT_FALSE(isTerminated());
    pollEnds();
    pick(item(), @"Show device ID…");
    EXPECT_EQ(visibleWindows().size(), 1u);
  });
}

TEST_F(ApplicationTest, aWindowThatIsReplacedIsGoneWithAllThatItHeld) {
  run([] {
    pollEnds();
    const auto before = runtime::livingInstances();
    __weak NSWindow* window = nil;
    __weak NSWindowController* controller = nil;
    __weak NSButton* copy = nil;
    @autoreleasepool {
      window = visibleWindows().at(0);
      controller = window.windowController;
      copy = buttonTitled(window.contentView, @"Copy device ID");
      [copy performClick:nil];  // its title is still to be set back
    }
    EXPECT_TRUE(window != nil && controller != nil && copy != nil);
    pick(item(), @"Show device ID…");
    EXPECT_EQ(window, nil);
    EXPECT_EQ(controller, nil);
    EXPECT_EQ(copy, nil);
    advance(5);
    for (const auto& [name, count] : runtime::livingInstances())
      EXPECT_LE(count, before.contains(name) ? before.at(name) : 0) << name;
  });
}

TEST_F(ApplicationTest, pollsLeaveNothingBehind) {
  welcome();
  std::map<std::string, int> before;
  run([&before] {
    pollEnds();
    before = runtime::livingInstances();
    for (int i = 0; i < 10; i++) {
      advance(20);
      pollEnds();
    }
    EXPECT_EQ(requests().size(), 11u);
    EXPECT_EQ(runtime::livingInstances(), before);
  });
}

TEST_F(ApplicationTest, aCommandPickedWhileAnAlertWaitsBringsTheAlertToTheFront) {
  welcome();
  run([] {
    pollEnds();
    answerAlert = [](NSAlert* alert) {
      NSWindow* other = [[NSWindow alloc] initWithContentRect:NSZeroRect
                                                    styleMask:NSWindowStyleMaskTitled
                                                      backing:NSBackingStoreBuffered
                                                        defer:NO];
      other.releasedWhenClosed = NO;
      [other makeKeyAndOrderFront:nil];
      pick(item(), @"Show status…");
      pick(item(), @"Quit Pellix");
      [other close];
      EXPECT_EQ(keyWindow(), alert.window);
      return responseForKey(alert, @"\033");
    };
    pick(item(), @"Quit Pellix");
    EXPECT_TRUE(openedUrls.empty());
    pick(item(), @"Show status…");
    EXPECT_EQ(openedUrls.size(), 1u);
  });
}

TEST_F(ApplicationTest, pollsWhileAnAlertWaitsLeaveOneMenuBehind) {
  welcome();
  run([] {
    pollEnds();
    answerAlert = [](NSAlert* alert) {
      const int before = runtime::livingInstances()["NSMenu"];
      for (int i = 0; i < 10; i++) {
        advance(20);
        pollEnds();
      }
      EXPECT_EQ(requests().size(), 11u);
      EXPECT_EQ(runtime::livingInstances()["NSMenu"], before + 1);
      EXPECT_EQ(waitingBlocks(), 1u);
      return responseForKey(alert, @"\033");
    };
    pick(item(), @"Quit Pellix");
    EXPECT_EQ(waitingBlocks(), 0u);
  });
}

TEST_F(ApplicationTest, anAnswerAfterTheDelegateIsGoneDoesNothing) {
  welcome();
  answer.delay = 0.3;
  run([] {});
  waitForRequests();
  advance(100);
  EXPECT_EQ(requests().size(), 1u);
  EXPECT_EQ(statusItems().size(), 0u);
}

TEST_F(ApplicationTest, aMenuThatIsOpenStaysAsItIs) {
  welcome();
  run([this] {
    pollEnds();
    NSMenu* open = item().menu;
    answer.body = R"({"state":"revoked"})";
    openMenu(item(), [&] {
      advance(45);
      pollEnds();
      EXPECT_EQ(requests().size(), 1u) << "nobody could see the answer";
      EXPECT_EQ(item().menu, open);
    });
    runPending();
    pollEnds();
    EXPECT_EQ(requests().size(), 2u) << "the late firing comes once";
    EXPECT_NE(item().menu, open);
    EXPECT_EQ(text(item().menu.itemArray[0].title), "Revoked by IT");
  });
}

TEST_F(ApplicationTest, aCommandPickedWhileAnAnswerArrivesIsCarriedOut) {
  welcome();
  run([this] {
    pollEnds();
    answer.delay = 0.05;
    advance(20);
    pick(item(), @"Show status…", [] { pollEnds(); });
    EXPECT_EQ(openedUrls, std::vector<std::string>{"http://127.0.0.1:8787/"});
  });
}

TEST_F(ApplicationTest, pollsGoOnWhileAnAlertIsOpen) {
  welcome();
  run([this] {
    pollEnds();
    answer.body = R"({"state":"stale"})";
    answerAlert = [](NSAlert* alert) {
      advance(20);
      pollEnds();
      EXPECT_EQ(requests().size(), 2u);
      EXPECT_EQ(text(item().button.image.recordedSymbolName), "clock.badge.exclamationmark");
      return responseForKey(alert, @"\033");
    };
    pick(item(), @"Quit Pellix");
    EXPECT_FALSE(isTerminated());
    EXPECT_EQ(text(item().menu.itemArray[0].title), "Trust expired");
  });
}

}  // namespace

@interface SelectedText : NSResponder
@property int copies;
@property int selections;
@end

@implementation SelectedText

- (void)copy:(id)sender {
  self.copies++;
}

- (void)selectAll:(id)sender {
  self.selections++;
}

@end

TEST_F(ApplicationTest, commandWClosesTheWindowAndTheProgramRunsOn) {
  run([] {
    pollEnds();
    EXPECT_TRUE(pressCommandKey(@"w", nil));
    EXPECT_EQ(visibleWindows().size(), 0u);
    EXPECT_FALSE(pressCommandKey(@"w", nil)) << "no window is left that could close";
    EXPECT_FALSE(isTerminated());
    pick(item(), @"Show device ID…");
    EXPECT_EQ(visibleWindows().size(), 1u);
  });
}

TEST_F(ApplicationTest, selectedTextAnswersTheUsualKeys) {
  run([] {
    SelectedText* selected = [[SelectedText alloc] init];
    EXPECT_TRUE(pressCommandKey(@"c", selected));
    EXPECT_TRUE(pressCommandKey(@"a", selected));
    EXPECT_FALSE(pressCommandKey(@"v", selected));
    EXPECT_EQ(selected.copies, 1);
    EXPECT_EQ(selected.selections, 1);
  });
}
