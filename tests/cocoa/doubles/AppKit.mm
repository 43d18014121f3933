#import <AppKit/AppKit.h>

#include <algorithm>
#include <map>

#include "doubles/Doubles.h"
#include "doubles/RunLoop.h"
#include "runtime/Runtime.h"

using namespace doubles;
using runtime::violation;

namespace doubles {

std::function<void()> session;
std::vector<std::string> arguments;
std::function<NSModalResponse(NSAlert*)> answerAlert;
bool statusItemsHaveButtons = true;
std::set<std::string> knownSymbols;
std::vector<std::string> openedUrls;
bool pasteboardRefuses = false;
bool isDark = false;
bool alertsEndAtOnce = false;

void raise(NSString* name, NSString* reason) {
  [NSException raise:name format:@"%@", reason];
  abort();
}

id expectOrNil(id object, Class expected) {
  if (object != nil && ![object isKindOfClass:expected])
    violation(std::string("Expected ") + class_getName(expected) + ", got " +
              class_getName(object_getClass(object)));
  return object;
}

id expect(id object, Class expected) {
  if (object == nil) violation(std::string("Expected ") + class_getName(expected) + ", got nil");
  return expectOrNil(object, expected);
}

namespace {

struct Desktop {
  bool isTerminated = false;
  int activations = 0;
  __weak NSWindow* key = nil;
  std::vector<NSWindow*> windows;  // on the screen, which keeps them
  std::vector<__weak NSStatusItem*> statusItems;
  __weak NSStatusItem* openItem = nil;
  NSAppearance* drawing = nil;  // the one that is current, which outside drawing none can rely on
  std::vector<NSWindow*> modal;
  std::vector<Activity> activities;
};

Desktop desktop;

}  // namespace

bool isTerminated() {
  return desktop.isTerminated;
}

int activations() {
  return desktop.activations;
}

NSWindow* keyWindow() {
  return desktop.key;
}

std::vector<Activity> activities() {
  return desktop.activities;
}

std::vector<NSWindow*> visibleWindows() {
  return desktop.windows;
}

std::vector<NSStatusItem*> statusItems() {
  std::vector<NSStatusItem*> all;
  for (NSStatusItem* item : desktop.statusItems)
    if (item != nil) all.push_back(item);
  return all;
}

}  // namespace doubles

// Images, colours and fonts

struct CGColor {
  NSString* name;
};

NSString* recordedName(CGColorRef color) {
  return color == nullptr ? nil : color->name;
}

static CGColorRef newCGColor(NSString* name) {
  using Layout = struct CGColor;
  return new Layout{name};
}

@implementation NSColor {
  NSString* name;
}

static NSColor* named(NSString* name) {
  static NSMutableDictionary<NSString*, NSColor*>* all = [NSMutableDictionary dictionary];
  NSColor* color = all[name];
  if (color == nil) {
    color = [[NSColor alloc] init];
    color->name = name;
    all[name] = color;
  }
  return color;
}

+ (NSColor*)systemOrangeColor {
  return named(@"systemOrangeColor");
}
+ (NSColor*)systemRedColor {
  return named(@"systemRedColor");
}
+ (NSColor*)controlBackgroundColor {
  return named(@"controlBackgroundColor");
}

// In the shade of the appearance that is drawn in.
- (CGColorRef)CGColor {
  static std::map<std::string, CGColorRef>& all = *new std::map<std::string, CGColorRef>;
  if (desktop.drawing == nil) violation("A dynamic colour is resolved in no certain appearance");
  NSString* shade = isDark ? [name stringByAppendingString:@", dark"] : name;
  auto& color = all[shade.UTF8String];
  if (color == nullptr) color = newCGColor(shade);
  return color;
}

- (id)copyWithZone:(NSZone*)zone {
  return self;
}

- (NSString*)recordedName {
  return name;
}

@end

@implementation NSAppearance

- (void)performAsCurrentDrawingAppearance:(void (^)(void))block {
  NSAppearance* before = desktop.drawing;
  desktop.drawing = self;
  block();
  desktop.drawing = before;
}

@end

@implementation NSImageSymbolConfiguration {
  NSColor* color;
}

+ (instancetype)configurationWithHierarchicalColor:(NSColor*)hierarchicalColor {
  NSImageSymbolConfiguration* made = [[self alloc] init];
  made->color = expect(hierarchicalColor, NSColor.class);
  return made;
}

- (NSColor*)recordedHierarchicalColor {
  return color;
}

@end

@implementation NSImage {
  NSString* symbolName;
  NSImageSymbolConfiguration* configuration;
  BOOL isTemplate;
}

@synthesize accessibilityDescription;

+ (instancetype)imageWithSystemSymbolName:(NSString*)name
                 accessibilityDescription:(NSString*)description {
  expect(name, NSString.class);
  expectOrNil(description, NSString.class);
  if (!knownSymbols.contains(name.UTF8String)) return nil;
  NSImage* made = [[self alloc] init];
  made->symbolName = [name copy];
  made->isTemplate = YES;  // as every symbol is at first
  made.accessibilityDescription = description;
  return made;
}

- (NSImage*)imageWithSymbolConfiguration:(NSImageSymbolConfiguration*)newConfiguration {
  NSImage* made = [[NSImage alloc] init];
  made->symbolName = symbolName;
  made->isTemplate = isTemplate;
  made->configuration = expect(newConfiguration, NSImageSymbolConfiguration.class);
  made.accessibilityDescription = self.accessibilityDescription;
  return made;
}

- (BOOL)isTemplate {
  return isTemplate;
}

- (void)setTemplate:(BOOL)newTemplate {
  isTemplate = newTemplate;
}

- (NSString*)recordedSymbolName {
  return symbolName;
}

- (NSImageSymbolConfiguration*)recordedConfiguration {
  return configuration;
}

@end

const NSFontWeight NSFontWeightRegular = 0;
const NSFontWeight NSFontWeightMedium = 0.23;
const NSFontWeight NSFontWeightSemibold = 0.3;

@implementation NSFont {
  BOOL isMonospaced;
  NSFontWeight weight;
}

@synthesize pointSize = _pointSize;

static NSFont* font(CGFloat size, NSFontWeight weight, BOOL isMonospaced) {
  NSFont* made = [[NSFont alloc] init];
  made->_pointSize = size;
  made->weight = weight;
  made->isMonospaced = isMonospaced;
  return made;
}

+ (NSFont*)systemFontOfSize:(CGFloat)fontSize weight:(NSFontWeight)weight {
  return font(fontSize, weight, NO);
}

+ (NSFont*)monospacedSystemFontOfSize:(CGFloat)fontSize weight:(NSFontWeight)weight {
  return font(fontSize, weight, YES);
}

- (BOOL)recordedIsMonospaced {
  return isMonospaced;
}

- (NSFontWeight)recordedWeight {
  return weight;
}

@end

@implementation CALayer
@end

// Views

@implementation NSResponder

- (BOOL)acceptsFirstResponder {
  return NO;
}

@end

@interface NSView () {
 @public
  __weak NSWindow* ownWindow;  // of a content view
  __weak NSView* above;
  NSMutableArray<NSView*>* below;
}
@end

@implementation NSView

@synthesize layer = _layer, wantsLayer = _wantsLayer, toolTip = _toolTip,
            accessibilityLabel = _accessibilityLabel;

- (instancetype)init {
  return [self initWithFrame:NSZeroRect];
}

- (instancetype)initWithFrame:(NSRect)frame {
  self = [super init];
  self.frame = frame;
  below = [NSMutableArray array];
  return self;
}

- (void)addSubview:(NSView*)view {
  expect(view, NSView.class);
  if (view->above != nil) violation("A view moves from one view to another");
  view->above = self;
  [below addObject:view];
}

- (void)setWantsLayer:(BOOL)wantsLayer {
  _wantsLayer = wantsLayer;
  if (wantsLayer && _layer == nil) _layer = [[CALayer alloc] init];
}

- (void)setLayer:(CALayer*)layer {
  _layer = expectOrNil(layer, CALayer.class);
}

- (void)setToolTip:(NSString*)toolTip {
  _toolTip = [expectOrNil(toolTip, NSString.class) copy];
}

- (void)setAccessibilityLabel:(NSString*)label {
  _accessibilityLabel = [expectOrNil(label, NSString.class) copy];
}

- (NSArray<NSView*>*)subviews {
  return [below copy];
}

- (NSView*)superview {
  return above;
}

- (NSWindow*)window {
  return above != nil ? above.window : ownWindow;
}

@end

// Sends `action` as a control or menu item does. Its target may have gone.
static BOOL sendAction(SEL action, id target, id sender) {
  if (action == nullptr || target == nil) return NO;
  if (![target respondsToSelector:action]) {
    violation(std::string("A target does not know ") + sel_getName(action));
    return NO;
  }
  reinterpret_cast<void (*)(id, SEL, id)>([target methodForSelector:action])(target, action,
                                                                             sender);
  return YES;
}

@implementation NSControl

@synthesize enabled = _enabled, stringValue = _stringValue, font = _font;

- (instancetype)initWithFrame:(NSRect)frame {
  self = [super initWithFrame:frame];
  _enabled = YES;
  _stringValue = @"";
  return self;
}

- (void)setStringValue:(NSString*)value {
  _stringValue = [expect(value, NSString.class) copy];
}

- (void)setFont:(NSFont*)newFont {
  _font = expectOrNil(newFont, NSFont.class);
}

- (BOOL)acceptsFirstResponder {
  return self.enabled;
}

- (void)performClick:(id)sender {
  if (self.enabled) sendAction(self.action, self.target, self);
}

@end

@implementation NSTextField

- (BOOL)acceptsFirstResponder {
  return self.selectable;
}

+ (instancetype)labelWithString:(NSString*)stringValue {
  NSTextField* made = [[self alloc] initWithFrame:NSZeroRect];
  made.stringValue = stringValue;
  made.font = font(13, NSFontWeightRegular, NO);
  made.lineBreakMode = NSLineBreakByClipping;
  return made;
}

+ (instancetype)wrappingLabelWithString:(NSString*)stringValue {
  NSTextField* made = [self labelWithString:stringValue];
  made.selectable = YES;
  made.lineBreakMode = NSLineBreakByWordWrapping;
  return made;
}

@end

@implementation NSButton

@synthesize title = _title, keyEquivalent = _keyEquivalent, image = _image,
            contentTintColor = _contentTintColor;

- (instancetype)initWithFrame:(NSRect)frame {
  self = [super initWithFrame:frame];
  _title = @"Button";  // as AppKit's are at first
  _keyEquivalent = @"";
  return self;
}

+ (instancetype)buttonWithTitle:(NSString*)title target:(id)target action:(SEL)action {
  NSButton* made = [[self alloc] initWithFrame:NSZeroRect];
  made.title = title;
  made.target = target;
  made.action = action;
  return made;
}

- (void)setTitle:(NSString*)title {
  _title = [expect(title, NSString.class) copy];
}

- (void)setKeyEquivalent:(NSString*)key {
  _keyEquivalent = [expect(key, NSString.class) copy];
}

- (void)setImage:(NSImage*)image {
  _image = expectOrNil(image, NSImage.class);
}

- (void)setContentTintColor:(NSColor*)color {
  _contentTintColor = [expectOrNil(color, NSColor.class) copy];
}

@end

// Menus

@interface NSMenuItem () {
 @public
  __weak NSMenu* itsMenu;
  BOOL isSeparator;
}
@end

@implementation NSMenuItem

@synthesize title = _title, keyEquivalent = _keyEquivalent, toolTip = _toolTip;

+ (NSMenuItem*)separatorItem {
  NSMenuItem* made = [[self alloc] initWithTitle:@"" action:nullptr keyEquivalent:@""];
  made->isSeparator = YES;
  return made;
}

- (instancetype)init {
  return [self initWithTitle:@"NSMenuItem" action:nullptr keyEquivalent:@""];
}

- (instancetype)initWithTitle:(NSString*)string
                       action:(SEL)selector
                keyEquivalent:(NSString*)charCode {
  self = [super init];
  self.title = string;
  self.action = selector;
  self.keyEquivalent = charCode;
  self.enabled = YES;
  return self;
}

- (void)setTitle:(NSString*)title {
  if (title == nil) raise(NSInvalidArgumentException, @"A menu item's title is nil");
  _title = [expect(title, NSString.class) copy];
}

- (void)setKeyEquivalent:(NSString*)key {
  if (key == nil) raise(NSInvalidArgumentException, @"A menu item's key equivalent is nil");
  _keyEquivalent = [expect(key, NSString.class) copy];
}

- (void)setToolTip:(NSString*)toolTip {
  _toolTip = [expectOrNil(toolTip, NSString.class) copy];
}

- (BOOL)isSeparatorItem {
  return isSeparator;
}

- (NSMenu*)menu {
  return itsMenu;
}

@end

@implementation NSMenu {
  NSMutableArray<NSMenuItem*>* items;
}

@synthesize title = _title;

- (instancetype)init {
  return [self initWithTitle:@""];
}

- (instancetype)initWithTitle:(NSString*)title {
  self = [super init];
  self.title = title;
  self.autoenablesItems = YES;
  items = [NSMutableArray array];
  return self;
}

- (void)setTitle:(NSString*)title {
  _title = [expect(title, NSString.class) copy];
}

- (void)addItem:(NSMenuItem*)newItem {
  expect(newItem, NSMenuItem.class);
  if (newItem->itsMenu != nil)
    raise(NSInternalInconsistencyException, @"Item to be inserted into menu already is in one");
  newItem->itsMenu = self;
  [items addObject:newItem];
}

- (NSMenuItem*)addItemWithTitle:(NSString*)string
                         action:(SEL)selector
                  keyEquivalent:(NSString*)charCode {
  NSMenuItem* made = [[NSMenuItem alloc] initWithTitle:string
                                                action:selector
                                         keyEquivalent:charCode];
  [self addItem:made];
  return made;
}

- (void)setSubmenu:(NSMenu*)menu forItem:(NSMenuItem*)item {
  expect(item, NSMenuItem.class);
  item.submenu = expectOrNil(menu, NSMenu.class);
}

- (NSArray<NSMenuItem*>*)itemArray {
  return [items copy];
}

@end

namespace doubles {

bool isEnabledWhenShown(NSMenuItem* item) {
  if (!item.menu.autoenablesItems) return item.enabled;
  return item.action != nullptr && [item.target respondsToSelector:item.action];
}

void openMenu(NSStatusItem* item, const std::function<void()>& meanwhile) {
  if (item.menu == nil) violation("A status item without a menu is opened");
  const loop::ModeScope scope(NSEventTrackingRunLoopMode);
  desktop.openItem = item;
  runPending();
  if (meanwhile) meanwhile();
  runPending();
  desktop.openItem = nil;
}

void pick(NSStatusItem* item, NSString* title, const std::function<void()>& meanwhile) {
  __weak NSMenuItem* picked = nil;
  for (NSMenuItem* entry in item.menu.itemArray)
    if ([entry.title isEqual:title]) picked = entry;
  if (picked == nil) return violation(std::string("No such menu item: ") + title.UTF8String);
  if (!isEnabledWhenShown(picked)) violation("A disabled menu item is picked");
  @autoreleasepool {
    openMenu(item, meanwhile);
    // The menu is closed, and nothing of it must have gone before the action is sent.
    if (picked == nil) return violation("A menu item is gone before its action is sent");
    sendAction(picked.action, picked.target, picked);
  }
  runPending();
}

bool pressCommandKey(NSString* key, NSResponder* firstResponder) {
  for (NSMenuItem* top in NSApp.mainMenu.itemArray)
    for (NSMenuItem* entry in top.submenu.itemArray)
      if ([entry.keyEquivalent isEqual:key]) {
        id receiver = entry.target != nil ? entry.target : firstResponder;
        if (entry.target == nil && ![receiver respondsToSelector:entry.action])
          receiver = desktop.key;
        return
            [receiver respondsToSelector:entry.action] && sendAction(entry.action, receiver, entry);
      }
  return false;
}

}  // namespace doubles

// The status bar

@implementation NSStatusBarButton
@end

@interface NSStatusItem () {
 @public
  NSStatusBarButton* itsButton;
  __weak NSStatusBar* itsBar;
}
@end

@implementation NSStatusItem

@synthesize menu = _menu;

- (void)setMenu:(NSMenu*)menu {
  if (desktop.openItem == self) violation("A menu is replaced while it is open, which closes it");
  _menu = expectOrNil(menu, NSMenu.class);
}

- (NSStatusBarButton*)button {
  return itsButton;
}

@end

@implementation NSStatusBar

+ (NSStatusBar*)systemStatusBar {
  static NSStatusBar* only = [[NSStatusBar alloc] init];
  return only;
}

// The bar does not keep its items.
- (NSStatusItem*)statusItemWithLength:(CGFloat)length {
  NSStatusItem* made = [[NSStatusItem alloc] init];
  made.length = length;
  if (statusItemsHaveButtons) made->itsButton = [[NSStatusBarButton alloc] init];
  made->itsBar = self;
  desktop.statusItems.push_back(made);
  return made;
}

- (void)removeStatusItem:(NSStatusItem*)item {
  expect(item, NSStatusItem.class);
  if (item->itsBar != self) violation("A status item is removed that is not in the bar");
  item->itsBar = nil;
  std::erase_if(desktop.statusItems,
                [item](NSStatusItem* each) { return each == nil || each == item; });
}

@end

// Windows

@implementation NSWindow {
  NSRect contentRect;
  NSBackingStoreType backing;
  BOOL isDeferred;
  BOOL isCentered;
  BOOL wasShown;
}

@synthesize title = _title, contentView = _contentView, firstResponder = _firstResponder;

- (instancetype)initWithContentRect:(NSRect)rect
                          styleMask:(NSWindowStyleMask)style
                            backing:(NSBackingStoreType)backingStoreType
                              defer:(BOOL)flag {
  self = [super init];
  contentRect = rect;
  backing = backingStoreType;
  isDeferred = flag;
  _title = @"";
  self.styleMask = style;
  self.releasedWhenClosed = YES;
  if (backingStoreType != NSBackingStoreBuffered) violation("Only buffered windows exist");
  return self;
}

- (void)setTitle:(NSString*)title {
  _title = [expect(title, NSString.class) copy];
}

- (void)setContentView:(NSView*)view {
  expectOrNil(view, NSView.class);
  if (view.superview != nil) violation("A content view has a view above it");
  _contentView = view;
  if (view == nil) return;
  view->ownWindow = self;
  view.frame = NSMakeRect(0, 0, contentRect.size.width, contentRect.size.height);
}

- (BOOL)isVisible {
  return std::ranges::find(desktop.windows, self) != desktop.windows.end();
}

- (void)center {
  isCentered = YES;
}

- (void)close {
  if (self.isVisible && self.releasedWhenClosed)
    violation("A window is released when it closes, and once more by its owner");
  [self orderOut:nil];
}

// As the user asks for it: with a beep and no more if the window has no button for it.
- (void)performClose:(id)sender {
  if ((self.styleMask & NSWindowStyleMaskClosable) != 0) [self close];
}

static NSView* firstKeyView(NSView* view) {
  if ([view isKindOfClass:NSTextField.class] && view.acceptsFirstResponder) return view;
  for (NSView* each in view.subviews)
    if (NSView* found = firstKeyView(each)) return found;
  return nil;
}

// Unless another is chosen, the first text that can be selected or edited has the keyboard, and is
// selected.
- (void)chooseFirstResponder {
  if (wasShown) return;
  wasShown = YES;
  NSView* chosen = self.initialFirstResponder;
  if (chosen != nil && chosen.window != self)
    violation("A view of another window has the keyboard");
  _firstResponder = chosen.acceptsFirstResponder ? chosen : firstKeyView(self.contentView);
}

- (void)orderFrontRegardless {
  [self chooseFirstResponder];
  if (!self.isVisible) desktop.windows.push_back(self);
}

- (void)makeKeyWindow {
  if (self.isVisible) desktop.key = self;
}

- (void)makeKeyAndOrderFront:(id)sender {
  [self orderFrontRegardless];
  [self makeKeyWindow];
}

- (void)orderOut:(id)sender {
  if (desktop.key == self) desktop.key = nil;
  NSWindow* kept = self;
  std::erase(desktop.windows, kept);
}

- (BOOL)recordedIsCentered {
  return isCentered;
}

- (NSRect)recordedContentRect {
  return contentRect;
}

- (NSBackingStoreType)recordedBacking {
  return backing;
}

- (BOOL)recordedDefer {
  return isDeferred;
}

@end

@implementation NSWindowController

@synthesize window = _window;

- (instancetype)initWithWindow:(NSWindow*)window {
  self = [super init];
  self.window = window;
  self.shouldCascadeWindows = YES;
  return self;
}

- (void)setWindow:(NSWindow*)window {
  _window = expectOrNil(window, NSWindow.class);
  window.windowController = self;
}

- (void)showWindow:(id)sender {
  [self.window makeKeyAndOrderFront:sender];
}

@end

static bool clickKeyEquivalent(NSView* view, NSString* key) {
  if ([view isKindOfClass:NSButton.class]) {
    auto* button = static_cast<NSButton*>(view);
    if ([button.keyEquivalent isEqual:key]) {
      [button performClick:nil];
      return true;
    }
  }
  for (NSView* each in view.subviews)
    if (clickKeyEquivalent(each, key)) return true;
  return false;
}

namespace doubles {

void pressKey(NSString* key) {
  @autoreleasepool {
    clickKeyEquivalent(desktop.key.contentView, key);
  }
  runPending();
}

}  // namespace doubles

// Alerts

@implementation NSAlert {
  NSError* error;
  NSMutableArray<NSButton*>* shownButtons;
  NSWindow* panel;
}

@synthesize messageText = _messageText, informativeText = _informativeText;

+ (NSAlert*)alertWithError:(NSError*)error {
  NSAlert* made = [[self alloc] init];
  made->error = expect(error, NSError.class);
  made.messageText = error.localizedDescription;
  return made;
}

- (instancetype)init {
  self = [super init];
  _messageText = @"";
  _informativeText = @"";
  shownButtons = [NSMutableArray array];
  panel = [[NSWindow alloc] initWithContentRect:NSMakeRect(0, 0, 420, 120)
                                      styleMask:NSWindowStyleMaskTitled
                                        backing:NSBackingStoreBuffered
                                          defer:YES];
  panel.releasedWhenClosed = NO;
  return self;
}

- (void)setMessageText:(NSString*)text {
  _messageText = [expect(text, NSString.class) copy];
}

- (void)setInformativeText:(NSString*)text {
  _informativeText = [expect(text, NSString.class) copy];
}

// The first button answers Return, and one named Cancel answers Escape.
- (NSButton*)addButtonWithTitle:(NSString*)title {
  NSButton* made = [NSButton buttonWithTitle:title target:nil action:nullptr];
  if (shownButtons.count == 0)
    made.keyEquivalent = @"\r";
  else if ([title isEqual:@"Cancel"])
    made.keyEquivalent = @"\033";
  [shownButtons addObject:made];
  return made;
}

- (NSArray<NSButton*>*)buttons {
  return [shownButtons copy];
}

- (NSWindow*)window {
  return panel;
}

- (NSModalResponse)runModal {
  if (shownButtons.count == 0) [self addButtonWithTitle:@"OK"];
  const loop::ModeScope scope(NSModalPanelRunLoopMode);
  [panel makeKeyAndOrderFront:nil];
  desktop.modal.push_back(panel);
  NSModalResponse response = NSAlertFirstButtonReturn;
  @autoreleasepool {
    if (!alertsEndAtOnce) runPending();
    if (answerAlert)
      response = answerAlert(self);
    else
      violation("Nobody answers an alert");
    if (!alertsEndAtOnce) runPending();
  }
  desktop.modal.pop_back();
  [panel orderOut:nil];
  return response;
}

- (NSError*)recordedError {
  return error;
}

@end

namespace doubles {

NSModalResponse responseForKey(NSAlert* alert, NSString* key) {
  for (NSUInteger i = 0; i < alert.buttons.count; i++)
    if ([alert.buttons[i].keyEquivalent isEqual:key])
      return NSAlertFirstButtonReturn + static_cast<NSModalResponse>(i);
  return 0;
}

}  // namespace doubles

// The application

NSApplication* NSApp = nil;
const NSRunLoopMode NSModalPanelRunLoopMode = @"NSModalPanelRunLoopMode";
const NSRunLoopMode NSEventTrackingRunLoopMode = @"NSEventTrackingRunLoopMode";

@implementation NSApplication {
  NSApplicationActivationPolicy policy;
}

@synthesize mainMenu = _mainMenu;

+ (NSApplication*)sharedApplication {
  if (NSApp == nil) NSApp = [[NSApplication alloc] init];
  return NSApp;
}

- (void)setMainMenu:(NSMenu*)menu {
  _mainMenu = expectOrNil(menu, NSMenu.class);
}

- (NSApplicationActivationPolicy)activationPolicy {
  return policy;
}

- (BOOL)setActivationPolicy:(NSApplicationActivationPolicy)newPolicy {
  policy = newPolicy;
  return YES;
}

- (NSAppearance*)effectiveAppearance {
  return [[NSAppearance alloc] init];
}

- (NSWindow*)modalWindow {
  return desktop.modal.empty() ? nil : desktop.modal.back();
}

- (void)activateIgnoringOtherApps:(BOOL)flag {
  if (flag) desktop.activations++;
}

- (void)run {
  @autoreleasepool {
    NSNotification* launched =
        [NSNotification notificationWithName:@"NSApplicationDidFinishLaunchingNotification"
                                      object:self];
    id<NSApplicationDelegate> delegate = self.delegate;
    if ([delegate respondsToSelector:@selector(applicationDidFinishLaunching:)])
      [delegate applicationDidFinishLaunching:launched];
  }
  if (session) {
    runPending();
    session();
    return runPending();
  }
  loop::runInMode(
      NSDefaultRunLoopMode, [] { return desktop.isTerminated; }, 60);
}

// The process would end here.
- (void)terminate:(id)sender {
  desktop.isTerminated = true;
}

@end

// The world outside

const NSPasteboardType NSPasteboardTypeString = @"public.utf8-plain-text";

@implementation NSPasteboard {
 @public
  NSMutableDictionary<NSPasteboardType, NSString*>* contents;
  NSInteger changeCount;
  BOOL isOwned;  // by this application
}

+ (NSPasteboard*)generalPasteboard {
  static NSPasteboard* only = [[NSPasteboard alloc] init];
  return only;
}

- (instancetype)init {
  self = [super init];
  contents = [NSMutableDictionary dictionary];
  return self;
}

- (NSInteger)clearContents {
  [contents removeAllObjects];
  isOwned = YES;
  return ++changeCount;
}

- (BOOL)setString:(NSString*)string forType:(NSPasteboardType)dataType {
  expect(string, NSString.class);
  expect(dataType, NSString.class);
  if (!isOwned) violation("Text is put on a pasteboard that was not cleared before");
  if (pasteboardRefuses) return NO;
  contents[dataType] = [string copy];
  return YES;
}

- (NSString*)stringForType:(NSPasteboardType)dataType {
  return contents[dataType];
}

- (NSArray<NSPasteboardType>*)types {
  return contents.allKeys;
}

@end

namespace doubles {

void copyElsewhere(NSString* text) {
  NSPasteboard* pasteboard = NSPasteboard.generalPasteboard;
  [pasteboard->contents removeAllObjects];
  pasteboard->contents[NSPasteboardTypeString] = text;
  pasteboard->contents[@"public.html"] = text;
  pasteboard->isOwned = NO;
}

}  // namespace doubles

@implementation NSWorkspace

+ (NSWorkspace*)sharedWorkspace {
  static NSWorkspace* only = [[NSWorkspace alloc] init];
  return only;
}

- (BOOL)openURL:(NSURL*)url {
  expect(url, NSURL.class);
  openedUrls.emplace_back(url.absoluteString.UTF8String);
  return YES;
}

@end

@implementation NSProcessInfo (Recorded)

- (NSArray*)arguments {
  NSMutableArray* all = [NSMutableArray array];
  for (const auto& argument : doubles::arguments)
    [all addObject:[NSString stringWithUTF8String:argument.c_str()]];
  return all;
}

- (id<NSObject>)beginActivityWithOptions:(NSActivityOptions)options reason:(NSString*)reason {
  if ([expect(reason, NSString.class) length] == 0)
    raise(NSInvalidArgumentException, @"An activity needs a reason");
  NSObject* token = [[NSObject alloc] init];
  desktop.activities.push_back({options, reason.UTF8String, token});
  return token;
}

- (void)endActivity:(id<NSObject>)activity {
  if (std::erase_if(desktop.activities,
                    [&](const Activity& each) { return each.token == activity; }) != 1)
    violation("An activity ends that has not begun");
}

@end

namespace doubles {

void resetFoundation();

void reset() {
  @autoreleasepool {
    loop::reset();
    session = nullptr;
    answerAlert = nullptr;
    arguments = {"/Applications/Velmor Pellix.app/Contents/MacOS/velmor-pellix"};
    statusItemsHaveButtons = true;
    knownSymbols = {"checkmark.shield.fill",       "exclamationmark.shield", "shield.slash",
                    "clock.badge.exclamationmark", "xmark.shield.fill",      "shield"};
    openedUrls.clear();
    pasteboardRefuses = false;
    isDark = false;
    alertsEndAtOnce = false;
    desktop = {};
    NSApp = nil;
    [NSPasteboard.generalPasteboard clearContents];
    resetFoundation();
  }
}

}  // namespace doubles
