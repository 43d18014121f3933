#pragma once

#import <Foundation/Foundation.h>

typedef struct CGColor* CGColorRef;

@interface CALayer : NSObject
@property CGColorRef backgroundColor;
@property CGFloat cornerRadius;
@end
