#include <objc/runtime.h>
#include <sys/xattr.h>

#include "Commands.h"
#include "FullDisk.h"
#include "Machine.h"
#include "platform/Alert.h"
#include "platform/Application.h"
#include "platform/Bundle.h"
#include "platform/FileManager.h"
#include "platform/Hardware.h"
#include "platform/Image.h"
#include "platform/Iso8601.h"
#include "platform/Launchd.h"
#include "platform/MainQueue.h"
#include "platform/Pasteboard.h"
#include "platform/StatusItem.h"
#include "platform/Task.h"
#include "platform/Timer.h"
#include "platform/UrlSession.h"
#include "platform/UserDefaults.h"
#include "platform/Window.h"
#include "platform/Workspace.h"
#include "platform/cocoa/Conversions.h"

using namespace platform;

namespace {

class PlatformTest : public Machine {
 protected:
  ~PlatformTest() override {
    drain();
    EXPECT_EQ(leftBehind(), (std::map<std::string, int>()));
  }
};

// Conversions

TEST_F(PlatformTest, textIsKeptWhateverItHolds) {
  for (const auto& each : {std::string("plain"), std::string(), std::string("ü — … 😀 \xEF\xBF\xBF"),
                           std::string("a\0b", 3)})
    EXPECT_EQ(fromNSString(nsString(each)), each);
}

TEST_F(PlatformTest, textThatIsNotUtf8IsReadAsLatin1) {
  EXPECT_EQ(fromNSString(nsString("caf\xE9")), "café");
  EXPECT_EQ(fromNSString(nsString("\xEF\xBB\xBF\xE9")), "ï»¿é");
}

TEST_F(PlatformTest, aByteOrderMarkAtTheStartOfATextIsKept) {
  for (const std::string text : {"\uFEFF", "\uFEFFGEN-1", "\uFEFF\uFEFFü", "x\uFEFF"})
    EXPECT_EQ(fromNSString(nsString(text)), text);
}

TEST_F(PlatformTest, noFormatterGetsALongFractionInAnyScript) {
  std::string fraction = ".";
  for (int i = 0; i < 40; i++) fraction += "٣";
  for (const auto format :
       {Iso8601Format::internetDateTime, Iso8601Format::internetDateTimeWithFractionalSeconds})
    dateFromIso8601("2024-05-01T12:34:56" + fraction + "Z", format);
}

TEST_F(PlatformTest, whatIsMissingIsEmpty) {
  EXPECT_EQ(fromNSString(nil), "");
  EXPECT_EQ(fromNSData(nil), "");
  EXPECT_EQ(nsStringOrNil(""), nil);
  EXPECT_EQ(text(nsStringOrNil("x")), "x");
}

TEST_F(PlatformTest, aPathThatEndsInASlashNamesAFolder) {
  EXPECT_EQ(text(nsUrl(std::filesystem::path("/a b/")).absoluteString), "file:///a%20b/");
  EXPECT_EQ(text(nsUrl(std::filesystem::path("/a b")).absoluteString), "file:///a%20b");
  EXPECT_EQ(fromNSUrl([NSURL fileURLWithPath:@"/a b" isDirectory:YES]), "/a b");
}

TEST_F(PlatformTest, anErrorLivesAsLongAsItsCopies) {
  __weak NSError* original = nil;
  std::optional<Error> copy;
  @autoreleasepool {
    NSError* made = [[NSError alloc] initWithDomain:@"D" code:7 userInfo:@{}];
    original = made;
    copy = Error(fromNSError(made));
  }
  EXPECT_TRUE(original != nil);
  EXPECT_EQ(nsError(*copy), original);
  EXPECT_EQ(copy->domain, "D");
  EXPECT_EQ(copy->code, 7);
}

TEST_F(PlatformTest, anErrorOfTheProductsOwnBecomesOneWithItsFields) {
  NSError* made = nsError(Error("VelmorPellix", 1, "missing"));
  EXPECT_EQ(text(made.domain), "VelmorPellix");
  EXPECT_EQ(made.code, 1);
  EXPECT_TRUE([made.userInfo isEqual:@{NSLocalizedDescriptionKey : @"missing"}]);
}

TEST_F(PlatformTest, colours) {
  EXPECT_EQ(text(nsColor(Color::systemOrange).recordedName), "systemOrangeColor");
  EXPECT_EQ(text(nsColor(Color::systemRed).recordedName), "systemRedColor");
  EXPECT_EQ(text(nsColor(Color::controlBackground).recordedName), "controlBackgroundColor");
}

// Machine

TEST_F(PlatformTest, theUuidIsTheRegistrysOwnText) {
  doubles::ioKit.property = @" lower-case ";
  EXPECT_EQ(platformUuid(), " lower-case ");
  EXPECT_EQ(doubles::liveIoObjects(), 0);
}

TEST_F(PlatformTest, thereIsNoUuidWithoutTheServiceOrTheProperty) {
  doubles::ioKit.hasService = false;
  EXPECT_EQ(platformUuid(), std::nullopt);
  doubles::ioKit.hasService = true;
  doubles::ioKit.property = nil;
  EXPECT_EQ(platformUuid(), std::nullopt);
  EXPECT_EQ(doubles::liveIoObjects(), 0);
}

TEST_F(PlatformTest, aUuidOfAnotherTypeIsNoneAndIsReleased) {
  __weak NSObject* property = nil;
  @autoreleasepool {
    NSObject* made = [[NSObject alloc] init];
    property = made;
    doubles::ioKit.property = made;
    EXPECT_EQ(platformUuid(), std::nullopt);
    doubles::ioKit.property = nil;
  }
  EXPECT_EQ(property, nil);
  EXPECT_EQ(doubles::liveIoObjects(), 0);
}

TEST_F(PlatformTest, thereMayBeNoApplicationSupportFolder) {
  EXPECT_EQ(FileManager::applicationSupportDirectories().size(), 1u);
  doubles::hasApplicationSupport = false;
  EXPECT_TRUE(FileManager::applicationSupportDirectories().empty());
}

class CopyTest : public PlatformTest {
 protected:
  CopyTest() {
    for (const auto& file : {from, to}) std::filesystem::create_directory(file.parent_path());
    makeFile(from, std::string(1'000'000, 'x'));
  }

  /// The error of a copy that fails.
  NSError* failure() const {
    try {
      FileManager::copyItem(from, to);
    } catch (const Error& error) {
      EXPECT_EQ(text(nsError(error).localizedDescription), error.description);
      return nsError(error);
    }
    ADD_FAILURE() << "nothing was thrown";
    return nil;
  }

  const std::filesystem::path from = home / "bundled/velmor-guard";
  const std::filesystem::path to = home / "known/velmor-guard";
};

TEST_F(CopyTest, whatHasComeInBetweenIsNotReplaced) {
  doubles::beforeRenaming = [this] { makeFile(to, "another's"); };
  NSError* error = failure();
  EXPECT_EQ(error.code, NSFileWriteFileExistsError);
  EXPECT_NE(text(error.localizedDescription).find("“known”"), std::string::npos);
  EXPECT_EQ(contentOf(to), "another's");
}

TEST_F(CopyTest, whereNoFileSystemRenamesExclusivelyTheFileIsMoved) {
  doubles::renamesExclusively = false;
  FileManager::copyItem(from, to);
  EXPECT_EQ(contentOf(to), contentOf(from));
}

TEST_F(CopyTest, whereTheSystemGivesNoFolderTheFileIsCopiedDirectly) {
  ASSERT_EQ(setxattr(from.c_str(), "com.apple.quarantine", "0081;0;;", 8, 0, XATTR_NOFOLLOW), 0);
  doubles::givesReplacementFolder = false;
  FileManager::copyItem(from, to);
  EXPECT_EQ(contentOf(to), contentOf(from));
  EXPECT_EQ(getxattr(to.c_str(), "com.apple.quarantine", nullptr, 0, 0, XATTR_NOFOLLOW), -1);
  EXPECT_EQ(failure().code, NSFileWriteFileExistsError);
}

// On a disk that clones files a copy writes nothing, and cannot fail so.
TEST_F(CopyTest, aCopyThatFailsHalfwayLeavesNothing) {
  {
    const FullDisk disk(100'000);
    EXPECT_EQ(failure().code, NSFileWriteOutOfSpaceError);
  }
  EXPECT_TRUE(std::filesystem::is_empty(to.parent_path()));
}

TEST_F(CopyTest, anErrorNamesTheFileThatTheUserKnows) {
  NSError* error = nil;
  {
    const FullDisk disk(100'000);
    error = failure();
  }
  EXPECT_EQ(error.code, NSFileWriteOutOfSpaceError);
  EXPECT_EQ(text(error.userInfo[NSFilePathErrorKey]), from);
  EXPECT_EQ(text(error.userInfo[@"NSDestinationFilePath"]), to);
  EXPECT_NE(text(error.localizedDescription).find("“known”"), std::string::npos);

  doubles::beforeRenaming = [this] { std::filesystem::remove(to.parent_path()); };
  error = failure();
  EXPECT_EQ(error.code, NSFileNoSuchFileError);
  EXPECT_EQ(text(error.userInfo[NSFilePathErrorKey]), to);
  EXPECT_EQ(text(error.userInfo[@"NSDestinationFilePath"]), to);
}

TEST_F(PlatformTest, theBundleMayLackItsExecutableAndItsResources) {
  makeFile(home / "velmor-guard");
  doubles::bundledResources = home;
  EXPECT_EQ(Bundle::urlForResource("velmor-guard"), home / "velmor-guard");
  EXPECT_EQ(Bundle::urlForResource("other"), std::nullopt);
  EXPECT_EQ(Bundle::executableUrl(), *doubles::executable);
  doubles::executable.reset();
  EXPECT_EQ(Bundle::executableUrl(), std::nullopt);
}

TEST_F(PlatformTest, launchctlIsTheSystems) {
  EXPECT_EQ(Launchd::launchctl(), "/bin/launchctl");
}

TEST_F(PlatformTest, argumentsAreTheProcesss) {
  doubles::arguments = {"/x/velmor-pellix", "--show-id", "ü"};
  EXPECT_EQ(Application::arguments(), doubles::arguments);
}

// Processes

TEST_F(PlatformTest, aTaskThatCannotBeLaunchedMayBeWaitedForAndRead) {
  Task task("/nowhere/at-all", {"id"}, Task::Output::captured);
  EXPECT_THROW(task.launch(), Error);
  task.waitUntilExit();
  EXPECT_EQ(task.readStandardOutputToEnd(), "");
}

TEST_F(PlatformTest, theErrorOfALaunchIsTheSystemsOwn) {
  try {
    Task("/nowhere/at-all", {}).launch();
    FAIL();
  } catch (const Error& error) {
    NSError* shown = nil;
    doubles::answerAlert = [&shown](NSAlert* alert) {
      shown = alert.recordedError;
      return NSAlertFirstButtonReturn;
    };
    EXPECT_EQ(runModal(Alert::withError(error)), alertFirstButtonReturn);
    EXPECT_EQ((__bridge const void*)shown, error.native.get());
    EXPECT_EQ(error.domain, text(NSCocoaErrorDomain));
  }
}

// The main thread

TEST_F(PlatformTest, aTimerIsGoneWithItsOwnerAndReleasesItsBlock) {
  const auto captured = std::make_shared<int>(0);
  auto timer = Timer::scheduledTimer(20, true, [captured] { ++*captured; });
  doubles::advance(65);
  EXPECT_EQ(*captured, 3);
  timer.reset();
  EXPECT_EQ(captured.use_count(), 1);
  doubles::advance(65);
  EXPECT_EQ(*captured, 3);
}

TEST_F(PlatformTest, blocksThatNeverRanAreReleased) {
  const auto captured = std::make_shared<int>(0);
  MainQueue::async([captured] {});
  MainQueue::asyncAfter(5, [captured] {});
  EXPECT_EQ(captured.use_count(), 3);
  doubles::reset();
  EXPECT_EQ(captured.use_count(), 1);
}

TEST_F(PlatformTest, requestsEndWithTheSession) {
  doubles::answerRequest = [](const std::string&) {
    return doubles::Answer{.body = "{}", .delay = 30};
  };
  std::atomic<int> calls = 0;
  const auto captured = std::make_shared<int>(0);
  {
    UrlSession session(4);
    session.dataTaskWithUrl(Url::withString("http://127.0.0.1:1/").value(),
                            [&calls, captured](const auto& body) {
                              EXPECT_FALSE(body);
                              ++calls;
                            });
  }
  doubles::waitForRequests();
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(captured.use_count(), 1);
}

// User interface

TEST_F(PlatformTest, aDelegateThatIsGoneIsNotTold) {
  struct Delegate final : ApplicationDelegate {
    void applicationDidFinishLaunching() override { ++launches; }
    int launches = 0;
  };
  const auto lasting = std::make_shared<Delegate>();
  doubles::session = [] {};
  Application application;
  application.setDelegate(lasting);
  application.run();
  EXPECT_EQ(lasting->launches, 1);
  application.setDelegate(std::make_shared<Delegate>());
  application.run();
  EXPECT_EQ(lasting->launches, 1);
}

TEST_F(PlatformTest, anAlertGivesTheResponseOfItsButton) {
  const Application application;
  Alert alert{.messageText = "M", .informativeText = "I", .buttons = {"A", "B", "C"}};
  doubles::answerAlert = [](NSAlert* shown) {
    EXPECT_EQ(shown.alertStyle, NSAlertStyleWarning);
    EXPECT_EQ(shown.buttons.count, 3u);
    EXPECT_EQ(doubles::keyWindow(), shown.window);
    return NSAlertFirstButtonReturn + 2;
  };
  EXPECT_EQ(runModal(alert), alertFirstButtonReturn + 2);
  EXPECT_EQ(doubles::activations(), 2);
  EXPECT_TRUE(doubles::visibleWindows().empty());
}

TEST_F(PlatformTest, anAlertThatIsGoneStaysSo) {
  const Application application;
  const Alert alert{.messageText = "M", .buttons = {"A"}};
  __weak NSWindow* first = nil;
  doubles::answerAlert = [&first](NSAlert* shown) {
    first = shown.window;
    return NSAlertFirstButtonReturn;
  };
  doubles::alertsEndAtOnce = true;
  @autoreleasepool {
    runModal(alert);
  }
  EXPECT_EQ(first, nil);
  doubles::alertsEndAtOnce = false;
  doubles::answerAlert = [](NSAlert* shown) {
    EXPECT_EQ(doubles::visibleWindows(), std::vector<NSWindow*>{shown.window});
    EXPECT_EQ(doubles::keyWindow(), shown.window);
    return NSAlertFirstButtonReturn;
  };
  runModal(alert);
  EXPECT_TRUE(doubles::visibleWindows().empty());
}

TEST_F(PlatformTest, anAlertDoesNotKeepTheSessionFromEnding) {
  const Application application;
  for (const Alert& alert :
       {Alert{.buttons = {"A", "Cancel"}}, Alert::withError(Error("D", 1, ""))}) {
    doubles::answerAlert = [](NSAlert*) {
      EXPECT_TRUE(doubles::endSession());
      return NSAlertFirstButtonReturn;
    };
    runModal(alert);
  }
}

TEST_F(PlatformTest, theProcessStaysAwakeAsLongAsItsApplication) {
  {
    const Application application;
    ASSERT_EQ(doubles::activities().size(), 1u);
    EXPECT_EQ(doubles::activities()[0].options, NSActivityUserInitiatedAllowingIdleSystemSleep);
    EXPECT_FALSE(doubles::activities()[0].reason.empty());
  }
  EXPECT_TRUE(doubles::activities().empty());
}

TEST_F(PlatformTest, theItemIsInTheBarAsLongAsItsOwner) {
  {
    const StatusItem item(variableStatusItemLength);
    EXPECT_EQ(doubles::statusItems().size(), 1u);
    EXPECT_TRUE(item.hasButton());
  }
  EXPECT_EQ(doubles::statusItems().size(), 0u);
}

TEST_F(PlatformTest, anItemLeavesTheBarThoughItsMenuStillWaitsForItsTurn) {
  {
    StatusItem item(variableStatusItemLength);
    item.setMenu({{{.title = "x"}}});
  }
  EXPECT_EQ(doubles::statusItems().size(), 0u);
  doubles::runPending();
}

TEST_F(PlatformTest, ofSeveralMenusTheLastOneStaysAndWaitsAlone) {
  StatusItem item(variableStatusItemLength);
  for (const char* title : {"a", "b", "c"}) {
    item.setMenu({{{.title = title}}});
    EXPECT_EQ(doubles::waitingBlocks(), 1u);
    EXPECT_EQ(runtime::livingInstances()["NSMenu"], 1);
  }
  doubles::runPending();
  NSStatusItem* shown = doubles::statusItems()[0];
  EXPECT_EQ(text(shown.menu.itemArray[0].title), "c");
  item.setMenu({{{.title = "d"}}});
  doubles::runPending();
  EXPECT_EQ(text(shown.menu.itemArray[0].title), "d");
}

TEST_F(PlatformTest, itemsTellTheirTargetAsLongAsItLives) {
  StatusItem item(variableStatusItemLength);
  auto target = Commands::make();
  item.setMenu({{{.title = "Go", .action = target->action<"go">()},
                 {.title = "Off", .action = target->action<"off">(), .isEnabled = false},
                 MenuItem::separatorItem()}});
  doubles::runPending();
  NSStatusItem* shown = doubles::statusItems().at(0);
  doubles::pick(shown, @"Go");
  EXPECT_EQ(target->performed, std::vector<std::string>{"go"});
  EXPECT_FALSE(doubles::isEnabledWhenShown(shown.menu.itemArray[1]));
  EXPECT_TRUE(shown.menu.itemArray[2].separatorItem);
  const std::weak_ptr<Commands> weak = target;
  target.reset();
  EXPECT_TRUE(weak.expired());
  doubles::pick(shown, @"Go");
}

TEST_F(PlatformTest, aCommandMayReplaceItsMenu) {
  StatusItem item(variableStatusItemLength);
  auto target = Commands::make();
  target->meanwhile = [&item] {
    item.setMenu({});
    doubles::runPending();
  };
  item.setMenu({{{.title = "Go", .action = target->action<"go">()}}});
  doubles::runPending();
  doubles::pick(doubles::statusItems().at(0), @"Go");
  EXPECT_EQ(target->performed.size(), 1u);
  EXPECT_EQ(doubles::statusItems().at(0).menu.itemArray.count, 0u);
}

TEST_F(PlatformTest, aButtonIsShownWithAndWithoutAnImage) {
  StatusItem item(variableStatusItemLength);
  auto image = Image::withSystemSymbolName("shield", "words");
  ASSERT_TRUE(image);
  image->isTemplate = true;
  item.setButton({.image = image, .toolTip = "tip"});
  NSStatusBarButton* button = doubles::statusItems().at(0).button;
  EXPECT_TRUE(button.image.isTemplate);
  EXPECT_EQ(button.image.recordedConfiguration, nil);
  EXPECT_EQ(button.contentTintColor, nil);
  item.setButton({.title = "◆", .contentTintColor = Color::systemRed, .toolTip = "tip"});
  EXPECT_EQ(button.image, nil);
  EXPECT_EQ(text(button.title), "◆");
  EXPECT_EQ(text(button.contentTintColor.recordedName), "systemRedColor");
}

TEST_F(PlatformTest, anUnknownSymbolIsNoImage) {
  EXPECT_EQ(Image::withSystemSymbolName("no.such.symbol", ""), std::nullopt);
}

TEST_F(PlatformTest, aWindowIsBuiltFromItsValue) {
  const auto target = Commands::make();
  const WindowContent content{
      .title = "T & <b>",
      .styleMask = {.miniaturizable = true, .resizable = true},
      .contentView = {
          .frame = {0, 0, 100, 50},
          .subviews = {
              {.frame = {1, 2, 3, 4},
               .content =
                   Label{.text = "a", .font = Font{.size = 9, .weight = FontWeight::regular}}},
              {.frame = {5, 6, 7, 8},
               .content =
                   Button{.identifier = "b", .title = "B", .action = target->action<"press">()}}}}};
  auto window = std::make_unique<Window>(content);
  EXPECT_TRUE(doubles::visibleWindows().empty());
  window->makeKeyAndOrderFront();
  NSWindow* shown = doubles::visibleWindows().at(0);
  EXPECT_EQ(text(shown.title), "T & <b>");
  EXPECT_EQ(shown.styleMask, NSWindowStyleMaskMiniaturizable | NSWindowStyleMaskResizable);
  EXPECT_FALSE(shown.recordedIsCentered);
  window->center();
  EXPECT_TRUE(shown.recordedIsCentered);
  NSArray<NSView*>* views = shown.contentView.subviews;
  EXPECT_TRUE(NSEqualRects(views[0].frame, NSMakeRect(1, 2, 3, 4)));
  EXPECT_EQ(static_cast<NSTextField*>(views[0]).font.recordedWeight, NSFontWeightRegular);
  EXPECT_EQ(views[0].toolTip, nil);
  auto* button = static_cast<NSButton*>(views[1]);
  [button performClick:nil];
  EXPECT_EQ(target->performed, std::vector<std::string>{"press"});
  window->setButtonTitle("b", "C");
  EXPECT_EQ(text(button.title), "C");
  EXPECT_THROW(window->setButtonTitle("none", "C"), std::out_of_range);
  window->close();
  EXPECT_FALSE(shown.visible);
  window->makeKeyAndOrderFront();
  EXPECT_TRUE(shown.visible);
  window.reset();
  EXPECT_FALSE(shown.visible);
}

TEST_F(PlatformTest, theDefaultButtonHasTheKeyboardAtFirst) {
  const View text{.content = Label{.text = "t", .lineBreakMode = LineBreakMode::byWordWrapping}};
  const View other{.content = Button{.identifier = "o"}};
  const View done{.content = Button{.identifier = "d", .keyEquivalent = "\r"}};
  for (const bool hasKeyboardNavigation : {true, false}) {
    doubles::hasKeyboardNavigation = hasKeyboardNavigation;
    Window window({.contentView = {.subviews = {text, other, done}}});
    window.makeKeyAndOrderFront();
    NSWindow* shown = doubles::visibleWindows().at(0);
    EXPECT_EQ(shown.firstResponder, shown.contentView.subviews[2]);
  }
}

TEST_F(PlatformTest, withoutADefaultButtonNoTextIsSelected) {
  const View text{.content = Label{.text = "t", .lineBreakMode = LineBreakMode::byWordWrapping}};
  Window window({.contentView = {.subviews = {text}}});
  window.makeKeyAndOrderFront();
  NSWindow* shown = doubles::visibleWindows().at(0);
  EXPECT_EQ(shown.firstResponder, shown);
}

TEST_F(PlatformTest, aLayersColourIsThatOfTheApplicationsAppearance) {
  const Application application;
  const WindowContent content{
      .contentView = {
          .content = PlainView{.layer = PlainView::Layer{.backgroundColor = Color::systemRed}}}};
  for (const bool isDark : {false, true}) {
    doubles::isDark = isDark;
    Window window(content);
    window.makeKeyAndOrderFront();
    EXPECT_EQ(text(recordedName(doubles::visibleWindows().at(0).contentView.layer.backgroundColor)),
              isDark ? "systemRedColor, dark" : "systemRedColor");
  }
}

TEST_F(PlatformTest, aButtonMayEndItsWindow) {
  auto target = Commands::make();
  auto window = std::make_unique<Window>(
      WindowContent{.contentView = {.frame = {0, 0, 9, 9},
                                    .content = Button{.identifier = "b",
                                                      .title = "B",
                                                      .action = target->action<"x">(),
                                                      .keyEquivalent = "\r"}}});
  target->meanwhile = [&window] { window.reset(); };
  window->makeKeyAndOrderFront();
  doubles::pressKey(@"\r");
  EXPECT_EQ(target->performed.size(), 1u);
  EXPECT_TRUE(doubles::visibleWindows().empty());
}

TEST_F(PlatformTest, urlsOpenInTheBrowser) {
  Workspace::openUrl(Url::withString("http://127.0.0.1:8787/authorize").value());
  EXPECT_EQ(doubles::openedUrls, std::vector<std::string>{"http://127.0.0.1:8787/authorize"});
}

TEST_F(PlatformTest, theDefaultsAreTheStandardOnes) {
  NSUserDefaults* defaults = NSUserDefaults.standardUserDefaults;
  [defaults setObject:@"not a number" forKey:@"port"];
  EXPECT_EQ(platform::UserDefaults::integerForKey("port"), 0);
  [defaults setObject:@(9'000'000'000) forKey:@"port"];
  EXPECT_EQ(platform::UserDefaults::integerForKey("port"), 9'000'000'000);
  platform::UserDefaults::setBool(true, "vlx_welcomed");
  EXPECT_TRUE([defaults boolForKey:@"vlx_welcomed"]);
}

}  // namespace
