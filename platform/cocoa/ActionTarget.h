#pragma once

#import <AppKit/AppKit.h>

#include "platform/Action.h"

/// What menu items and buttons have for a target: it passes their message on to an action. They
/// hold it weakly, so whoever makes one keeps it.
@interface PellixActionTarget : NSObject
- (instancetype)initWithAction:(platform::Action)action;
- (void)performAction:(id)sender;
@end
