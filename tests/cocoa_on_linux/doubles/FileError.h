#pragma once

#import <Foundation/Foundation.h>

namespace doubles {

/// Apple's error for that errno and file.
NSError* fileError(int failure, NSString* file);

}  // namespace doubles
