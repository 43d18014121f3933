#pragma once

#import <AppKit/AppKit.h>

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// What a test sees and sets of the doubles that stand behind `apple/`. They are strict: what
/// Apple's classes would refuse, raise on or leave undefined is a violation, which fails the test.
/// Main thread only, unless stated.
namespace doubles {

/// Back to a machine on which nothing has happened. Call between tests.
void reset();

// The run loop. Time passes by itself and can be moved on.

/// Moves the clock on, running in order what falls due. In the mode of the innermost open menu or
/// alert.
void advance(double seconds);

/// Runs what is due now, until nothing is.
void runPending();
/// How many blocks wait for a mode of the loop.
std::size_t waitingBlocks();

/// Runs the loop in real time until `condition` holds. False after `seconds`.
bool runUntil(const std::function<bool()>& condition, double seconds = 10);

// The application

/// Stands for the user's session: called by `-[NSApplication run]` once launching has finished; its
/// end ends the loop. Without one the loop runs until the application is terminated.
extern std::function<void()> session;
extern std::vector<std::string> arguments;  ///< of the process
bool isTerminated();
/// The user logs out or shuts the Mac down. False if the application keeps the session from ending,
/// as AppKit does for a modal window that prevents it.
bool endSession();
int activations();      ///< how often the application asked to be brought to the front
NSWindow* keyWindow();  ///< the window with the keyboard
std::vector<NSWindow*> visibleWindows();

/// What keeps the system from slowing the process down.
struct Activity {
  NSActivityOptions options;
  std::string reason;
  id<NSObject> token;
};
std::vector<Activity> activities();
extern bool isDark;                 ///< the system's appearance
extern bool hasKeyboardNavigation;  ///< the user's setting: buttons take part in it

/// A key press without modifiers, in the key window.
void pressKey(NSString* key);
/// Command and a key, by way of the main menu. False if no item answers to it.
bool pressCommandKey(NSString* key, NSResponder* firstResponder);

// Menus. What happens in `meanwhile` happens while the menu is open.

/// What AppKit shows while automatic enabling is on.
bool isEnabledWhenShown(NSMenuItem* item);
void openMenu(NSStatusItem* item, const std::function<void()>& meanwhile);
/// Picks the entry with that title from the status item's menu, which closes it.
void pick(NSStatusItem* item, NSString* title, const std::function<void()>& meanwhile = {});

// Alerts

/// Answers the next alerts: gives the response for what is shown. An alert that nobody answers is a
/// violation.
extern std::function<NSModalResponse(NSAlert*)> answerAlert;
extern bool alertsEndAtOnce;  ///< before anything ran that waits for them
/// What pressing that key in the alert gives.
NSModalResponse responseForKey(NSAlert* alert, NSString* key);

// The status bar

extern bool statusItemsHaveButtons;
extern std::set<std::string> knownSymbols;
std::vector<NSStatusItem*> statusItems();

// The world outside

extern std::vector<std::string> openedUrls;
extern bool pasteboardRefuses;
/// Another application copies text.
void copyElsewhere(NSString* text);

struct IoKit {
  bool hasService = true;
  id property = @"4C4C4544-0042-3510-8056-B4C04F4A5331";  ///< of "IOPlatformUUID"
};
extern IoKit ioKit;
int liveIoObjects();

// The service: what the next requests get, in the session's own thread.

struct Answer {
  std::optional<std::string> body = {};  ///< none: no connection
  double delay = 0;                      ///< seconds of real time
};
/// Set before the first request. Called on the session's thread. Without one a request goes to
/// the network.
extern std::function<Answer(const std::string& url)> answerRequest;

struct Request {
  std::string url;
  double timeoutIntervalForRequest;
};
std::vector<Request> requests();  ///< any thread
/// Waits until every request has been answered.
void waitForRequests();

// Files and processes

extern std::optional<std::string> bundledResources;  ///< the folder of the bundle's resources
extern std::optional<std::string> executable;        ///< of the bundle
extern bool hasApplicationSupport;
extern bool givesReplacementFolder;  ///< some network folders have none
extern bool renamesExclusively;      ///< some file systems cannot
extern std::function<void()> beforeRenaming;

struct Run {
  std::string executable;
  std::vector<std::string> arguments;
  bool launched;
};
extern std::vector<Run> runs;
/// Decides what stands for an executable; by default itself.
extern std::function<std::string(const std::string&)> substituteExecutable;

// For the doubles' own use

[[noreturn]] void raise(NSString* name, NSString* reason);
/// `object` itself; a violation if it is nil or not of that class.
id expect(id object, Class expected);
id expectOrNil(id object, Class expected);

}  // namespace doubles

// What only the doubles know of their objects.

@interface NSColor (Recorded)
@property(readonly) NSString* recordedName;
@end

/// The name of the colour that a CGColor was made from.
NSString* recordedName(CGColorRef color);

@interface NSImageSymbolConfiguration (Recorded)
@property(readonly) NSColor* recordedHierarchicalColor;
@end

@interface NSImage (Recorded)
@property(readonly) NSString* recordedSymbolName;
@property(readonly) NSImageSymbolConfiguration* recordedConfiguration;
@end

@interface NSFont (Recorded)
@property(readonly) BOOL recordedIsMonospaced;
@property(readonly) NSFontWeight recordedWeight;
@end

@interface NSWindow (Recorded)
@property(readonly) BOOL recordedIsCentered;
@property(readonly) NSRect recordedContentRect;
@property(readonly) NSBackingStoreType recordedBacking;
@property(readonly) BOOL recordedDefer;
@end

@interface NSAlert (Recorded)
@property(readonly) NSError* recordedError;
@end
