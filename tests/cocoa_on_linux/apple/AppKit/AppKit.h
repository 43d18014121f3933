// What the product uses of AppKit, for the doubles to implement.
#pragma once

#import <Foundation/Foundation.h>
#import <QuartzCore/QuartzCore.h>

@class NSApplication, NSButton, NSMenu, NSMenuItem, NSStatusBar, NSView, NSWindow,
    NSWindowController;

// Images, colours and fonts

@interface NSColor : NSObject
@property(class, readonly, strong) NSColor* systemOrangeColor;
@property(class, readonly, strong) NSColor* systemRedColor;
@property(class, readonly, strong) NSColor* controlBackgroundColor;
@property(readonly) CGColorRef CGColor;
@end

@interface NSAppearance : NSObject
- (void)performAsCurrentDrawingAppearance:(void (^)(void))block;
@end

@interface NSImageSymbolConfiguration : NSObject
+ (instancetype)configurationWithHierarchicalColor:(NSColor*)hierarchicalColor;
@end

@interface NSImage : NSObject
+ (instancetype)imageWithSystemSymbolName:(NSString*)name
                 accessibilityDescription:(NSString*)description;
- (NSImage*)imageWithSymbolConfiguration:(NSImageSymbolConfiguration*)configuration;
- (BOOL)isTemplate;
- (void)setTemplate:(BOOL)isTemplate;
@property(copy) NSString* accessibilityDescription;
@end

typedef CGFloat NSFontWeight;
extern const NSFontWeight NSFontWeightRegular;
extern const NSFontWeight NSFontWeightMedium;
extern const NSFontWeight NSFontWeightSemibold;

@interface NSFont : NSObject
+ (NSFont*)systemFontOfSize:(CGFloat)fontSize weight:(NSFontWeight)weight;
+ (NSFont*)monospacedSystemFontOfSize:(CGFloat)fontSize weight:(NSFontWeight)weight;
@property(readonly) CGFloat pointSize;
@end

// Views

@interface NSResponder : NSObject
@property(readonly) BOOL acceptsFirstResponder;
@end

@interface NSView : NSResponder
- (instancetype)initWithFrame:(NSRect)frame;
- (void)addSubview:(NSView*)view;
@property NSRect frame;
@property BOOL wantsLayer;
@property(strong) CALayer* layer;
@property(copy) NSString* toolTip;
@property(copy) NSString* accessibilityLabel;
@property(readonly, copy) NSArray<NSView*>* subviews;
@property(readonly, assign) NSView* superview;
@property(readonly, assign) NSWindow* window;
@end

typedef NSUInteger NSLineBreakMode;
enum : NSLineBreakMode {
  NSLineBreakByWordWrapping = 0,
  NSLineBreakByCharWrapping = 1,
  NSLineBreakByClipping = 2,
  NSLineBreakByTruncatingHead = 3,
  NSLineBreakByTruncatingTail = 4,
  NSLineBreakByTruncatingMiddle = 5,
};

@interface NSControl : NSView
@property(weak) id target;
@property SEL action;
@property(getter=isEnabled) BOOL enabled;
@property(copy) NSString* stringValue;
@property(strong) NSFont* font;
@property NSLineBreakMode lineBreakMode;
- (void)performClick:(id)sender;
@end

@interface NSTextField : NSControl
@property(getter=isSelectable) BOOL selectable;
+ (instancetype)labelWithString:(NSString*)stringValue;
+ (instancetype)wrappingLabelWithString:(NSString*)stringValue;
@end

typedef NSUInteger NSBezelStyle;
enum : NSBezelStyle { NSBezelStyleRounded = 1 };

@interface NSButton : NSControl
+ (instancetype)buttonWithTitle:(NSString*)title target:(id)target action:(SEL)action;
@property(copy) NSString* title;
@property NSBezelStyle bezelStyle;
@property(copy) NSString* keyEquivalent;
@property(strong) NSImage* image;
@property(copy) NSColor* contentTintColor;
@end

// Menus

@interface NSMenuItem : NSObject
+ (NSMenuItem*)separatorItem;
- (instancetype)initWithTitle:(NSString*)string
                       action:(SEL)selector
                keyEquivalent:(NSString*)charCode;
@property(copy) NSString* title;
@property(copy) NSString* keyEquivalent;
@property(copy) NSString* toolTip;
@property(getter=isEnabled) BOOL enabled;
@property(readonly, getter=isSeparatorItem) BOOL separatorItem;
@property(weak) id target;
@property SEL action;
@property(strong) id representedObject;
@property(strong) NSMenu* submenu;
@property(readonly, assign) NSMenu* menu;
@end

@interface NSMenu : NSObject
- (instancetype)initWithTitle:(NSString*)title;
- (void)addItem:(NSMenuItem*)newItem;
- (NSMenuItem*)addItemWithTitle:(NSString*)string
                         action:(SEL)selector
                  keyEquivalent:(NSString*)charCode;
- (void)setSubmenu:(NSMenu*)menu forItem:(NSMenuItem*)item;
@property(copy) NSString* title;
@property BOOL autoenablesItems;
@property(readonly, copy) NSArray<NSMenuItem*>* itemArray;
@end

// The status bar

@interface NSStatusBarButton : NSButton
@end

@interface NSStatusItem : NSObject
@property CGFloat length;
@property(strong) NSMenu* menu;
@property(readonly, strong) NSStatusBarButton* button;
@end

@interface NSStatusBar : NSObject
@property(class, readonly, strong) NSStatusBar* systemStatusBar;
- (NSStatusItem*)statusItemWithLength:(CGFloat)length;
- (void)removeStatusItem:(NSStatusItem*)item;
@end

// Windows

typedef NSUInteger NSWindowStyleMask;
enum : NSWindowStyleMask {
  NSWindowStyleMaskTitled = 1,
  NSWindowStyleMaskClosable = 2,
  NSWindowStyleMaskMiniaturizable = 4,
  NSWindowStyleMaskResizable = 8,
};

typedef NSUInteger NSBackingStoreType;
enum : NSBackingStoreType { NSBackingStoreBuffered = 2 };

typedef NSInteger NSWindowLevel;
constexpr NSWindowLevel NSModalPanelWindowLevel = 8;

@interface NSWindow : NSResponder
- (instancetype)initWithContentRect:(NSRect)contentRect
                          styleMask:(NSWindowStyleMask)style
                            backing:(NSBackingStoreType)backingStoreType
                              defer:(BOOL)flag;
@property(copy) NSString* title;
@property NSWindowStyleMask styleMask;
@property NSWindowLevel level;
@property(getter=isReleasedWhenClosed) BOOL releasedWhenClosed;
@property(getter=isRestorable) BOOL restorable;
@property BOOL preventsApplicationTerminationWhenModal;
@property(strong) NSView* contentView;
@property(weak) NSView* initialFirstResponder;
@property(readonly, weak) NSResponder* firstResponder;
- (BOOL)makeFirstResponder:(NSResponder*)responder;
@property(readonly, getter=isVisible) BOOL visible;
@property(weak) NSWindowController* windowController;
- (void)center;
- (void)close;
- (void)performClose:(id)sender;
- (void)makeKeyAndOrderFront:(id)sender;
- (void)makeKeyWindow;
- (void)orderFrontRegardless;
- (void)orderOut:(id)sender;
@end

@interface NSWindowController : NSResponder
- (instancetype)initWithWindow:(NSWindow*)window;
@property(strong) NSWindow* window;
@property BOOL shouldCascadeWindows;
- (void)showWindow:(id)sender;
@end

// Alerts

typedef NSUInteger NSAlertStyle;
enum : NSAlertStyle {
  NSAlertStyleWarning = 0,
  NSAlertStyleInformational = 1,
  NSAlertStyleCritical = 2,
};

typedef NSInteger NSModalResponse;
constexpr NSModalResponse NSAlertFirstButtonReturn = 1000;

@interface NSAlert : NSObject
+ (NSAlert*)alertWithError:(NSError*)error;
@property(copy) NSString* messageText;
@property(copy) NSString* informativeText;
@property NSAlertStyle alertStyle;
@property(readonly, copy) NSArray<NSButton*>* buttons;
@property(readonly, strong) NSWindow* window;
- (NSButton*)addButtonWithTitle:(NSString*)title;
- (NSModalResponse)runModal;
@end

// The application

typedef NSInteger NSApplicationActivationPolicy;
enum : NSApplicationActivationPolicy {
  NSApplicationActivationPolicyRegular = 0,
  NSApplicationActivationPolicyAccessory = 1,
  NSApplicationActivationPolicyProhibited = 2,
};

@protocol NSApplicationDelegate <NSObject>
@optional
- (void)applicationDidFinishLaunching:(NSNotification*)notification;
@end

@interface NSApplication : NSResponder
@property(class, readonly, strong) NSApplication* sharedApplication;
@property(weak) id<NSApplicationDelegate> delegate;
@property(strong) NSMenu* mainMenu;
@property(readonly, strong) NSAppearance* effectiveAppearance;
@property(readonly, strong) NSWindow* modalWindow;
- (NSApplicationActivationPolicy)activationPolicy;
- (BOOL)setActivationPolicy:(NSApplicationActivationPolicy)activationPolicy;
- (void)activateIgnoringOtherApps:(BOOL)flag;
- (void)run;
- (void)terminate:(id)sender;
@end

extern NSApplication* NSApp;

extern const NSRunLoopMode NSModalPanelRunLoopMode;
extern const NSRunLoopMode NSEventTrackingRunLoopMode;

// What text that can be selected answers to.

@interface NSResponder (NSStandardKeyBindingMethods)
- (void)selectAll:(id)sender;
@end

@interface NSText : NSView
- (void)copy:(id)sender;
@end

// The world outside

typedef NSString* NSPasteboardType;
extern const NSPasteboardType NSPasteboardTypeString;

@interface NSPasteboard : NSObject
@property(class, readonly, strong) NSPasteboard* generalPasteboard;
- (NSInteger)clearContents;
- (BOOL)setString:(NSString*)string forType:(NSPasteboardType)dataType;
- (NSString*)stringForType:(NSPasteboardType)dataType;
@property(readonly, copy) NSArray<NSPasteboardType>* types;
@end

@interface NSWorkspace : NSObject
@property(class, readonly, strong) NSWorkspace* sharedWorkspace;
- (BOOL)openURL:(NSURL*)url;
@end
