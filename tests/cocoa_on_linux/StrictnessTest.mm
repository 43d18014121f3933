// The doubles refuse what Apple's classes would; without these tests nobody knew.
#include <gtest/gtest-spi.h>
#include <sys/xattr.h>

#include <cerrno>
#include <thread>

#include "Machine.h"

namespace {

/// Sends a message that the compiler would not let through.
void sendUnchecked(id receiver, NSString* name, id argument) {
  const SEL selector = NSSelectorFromString(name);
  const auto method =
      reinterpret_cast<void (*)(id, SEL, id)>([receiver methodForSelector:selector]);
  method(receiver, selector, argument);
}

class StrictnessTest : public Machine {};

TEST_F(StrictnessTest, anUnknownSelectorFails) {
  EXPECT_NONFATAL_FAILURE(
      {
        try {
          [static_cast<id>([[NSMenu alloc] initWithTitle:@""]) addButtonWithTitle:@"x"];
          ADD_FAILURE() << "no exception";
        } catch (...) {
        }
      },
      "Unknown selector: -[NSMenu addButtonWithTitle:]");
}

TEST_F(StrictnessTest, anArgumentOfAWrongClassFails) {
  EXPECT_NONFATAL_FAILURE(sendUnchecked([[NSButton alloc] init], @"setTitle:", @7),
                          "Expected NSString");
  EXPECT_NONFATAL_FAILURE([[NSButton alloc] init].title = nil, "Expected NSString, got nil");
  EXPECT_NONFATAL_FAILURE(sendUnchecked([[NSAlert alloc] init], @"addButtonWithTitle:", @[]),
                          "Expected NSString");
  EXPECT_NONFATAL_FAILURE(sendUnchecked([[NSView alloc] init], @"setToolTip:", @7),
                          "Expected NSString");
}

TEST_F(StrictnessTest, userInterfaceOffTheMainThreadFails) {
  static NSView* view;
  view = [[NSView alloc] initWithFrame:NSZeroRect];
  EXPECT_NONFATAL_FAILURE_ON_ALL_THREADS(std::thread([] { view.toolTip = nil; }).join(),
                                         "Off the main thread: -[NSView setToolTip:]");
  EXPECT_NONFATAL_FAILURE_ON_ALL_THREADS(std::thread([] { view = nil; }).join(),
                                         "Off the main thread: -[NSView dealloc]");
}

TEST_F(StrictnessTest, whatAppleRaisesOnIsRaised) {
  EXPECT_ANY_THROW([[[NSTask alloc] init] waitUntilExit]);
  EXPECT_ANY_THROW([[NSMenuItem alloc] init].title = nil);
  EXPECT_ANY_THROW([NSJSONSerialization JSONObjectWithData:nil options:0 error:nil]);
  EXPECT_ANY_THROW({
    NSMenuItem* item = [NSMenuItem separatorItem];
    [[[NSMenu alloc] initWithTitle:@"a"] addItem:item];
    NSMenu* kept = [[NSMenu alloc] initWithTitle:@"b"];
    [kept addItem:item];
    [[[NSMenu alloc] initWithTitle:@"c"] addItem:item];
  });
}

TEST_F(StrictnessTest, theAttributesOfAReadOnlyFileStayAsTheyAre) {
  const auto file = makeFile(home / "file");
  ASSERT_EQ(setxattr(file.c_str(), "name", "value", 5, 0, XATTR_NOFOLLOW), 0);
  std::filesystem::permissions(file, std::filesystem::perms(0444));
  EXPECT_EQ(removexattr(file.c_str(), "name", XATTR_NOFOLLOW), -1);
  EXPECT_EQ(errno, EACCES);
  EXPECT_EQ(getxattr(file.c_str(), "name", nullptr, 0, 0, XATTR_NOFOLLOW), 5);
  EXPECT_NONFATAL_FAILURE(removexattr("/file", "name", 0), "Unusual options");
}

TEST_F(StrictnessTest, whatAppKitLeavesUndefinedFails) {
  static NSStatusItem* item;
  item = [NSStatusBar.systemStatusBar statusItemWithLength:-1];
  item.menu = [[NSMenu alloc] initWithTitle:@""];
  EXPECT_NONFATAL_FAILURE(
      doubles::openMenu(item, [] { item.menu = [[NSMenu alloc] initWithTitle:@""]; }),
      "while it is open");
  [NSStatusBar.systemStatusBar removeStatusItem:item];
  EXPECT_NONFATAL_FAILURE([NSStatusBar.systemStatusBar removeStatusItem:item], "not in the bar");
  item = nil;
  doubles::copyElsewhere(@"x");
  EXPECT_NONFATAL_FAILURE([NSPasteboard.generalPasteboard setString:@"y"
                                                            forType:NSPasteboardTypeString],
                          "was not cleared");
  EXPECT_NONFATAL_FAILURE([[[NSAlert alloc] init] runModal], "Nobody answers");
}

TEST_F(StrictnessTest, aWindowThatReleasesItselfFails) {
  static NSWindow* window;
  window = [[NSWindow alloc] initWithContentRect:NSZeroRect
                                       styleMask:NSWindowStyleMaskTitled
                                         backing:NSBackingStoreBuffered
                                           defer:NO];
  [window makeKeyAndOrderFront:nil];
  EXPECT_NONFATAL_FAILURE([window close], "released when it closes");
  window = nil;
}

TEST_F(StrictnessTest, ownershipIsCounted) {
  __weak NSMenu* menu = nil;
  @autoreleasepool {
    NSMenu* made = [[NSMenu alloc] initWithTitle:@""];
    menu = made;
    EXPECT_EQ(runtime::livingInstances()["NSMenu"], 1);
  }
  EXPECT_EQ(menu, nil);
  EXPECT_EQ(runtime::livingInstances().count("NSMenu"), 0u);
}

TEST_F(StrictnessTest, aCycleIsSeen) {
  __weak NSMenuItem* weak = nil;
  @autoreleasepool {
    NSMenuItem* item = [NSMenuItem separatorItem];
    item.representedObject = item;
    weak = item;
  }
  EXPECT_EQ(leftBehind(), (std::map<std::string, int>{{"NSMenuItem", 1}}));
  @autoreleasepool {
    weak.representedObject = nil;
  }
  EXPECT_EQ(leftBehind(), (std::map<std::string, int>()));
}

}  // namespace
