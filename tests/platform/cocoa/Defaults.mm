#include "Defaults.h"

#import <Foundation/Foundation.h>

// The preferences of a program without a bundle go by its name.
void removeDefaults() {
  [NSUserDefaults.standardUserDefaults
      removePersistentDomainForName:NSProcessInfo.processInfo.processName];
}
