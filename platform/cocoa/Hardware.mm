#include "platform/Hardware.h"

#import <IOKit/IOKitLib.h>

#include "platform/cocoa/Conversions.h"

namespace platform {
namespace {

class IoObject {
 public:
  explicit IoObject(io_object_t owned) : object(owned) {}
  ~IoObject() { IOObjectRelease(object); }
  IoObject(const IoObject&) = delete;
  IoObject& operator=(const IoObject&) = delete;

  io_object_t get() const { return object; }

 private:
  io_object_t object;
};

}  // namespace

std::optional<std::string> platformUuid() {
  // The look-up takes the matching dictionary over.
  const io_service_t service =
      IOServiceGetMatchingService(kIOMainPortDefault, IOServiceMatching("IOPlatformExpertDevice"));
  if (service == IO_OBJECT_NULL) return std::nullopt;
  const IoObject expert(service);
  id uuid = CFBridgingRelease(IORegistryEntryCreateCFProperty(expert.get(), CFSTR("IOPlatformUUID"),
                                                              kCFAllocatorDefault, 0));
  if (![uuid isKindOfClass:NSString.class]) return std::nullopt;
  return fromNSString(uuid);
}

}  // namespace platform
