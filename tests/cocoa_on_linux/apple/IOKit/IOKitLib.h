#pragma once

#import <Foundation/Foundation.h>

typedef unsigned int mach_port_t;
typedef int kern_return_t;
typedef mach_port_t io_object_t;
typedef io_object_t io_service_t;
typedef io_object_t io_registry_entry_t;
typedef uint32_t IOOptionBits;

extern const mach_port_t kIOMainPortDefault;
#define IO_OBJECT_NULL (static_cast<io_object_t>(0))

CFMutableDictionaryRef IOServiceMatching(const char* name);
/// Takes `matching` over; the caller releases the result.
io_service_t IOServiceGetMatchingService(mach_port_t mainPort, CFDictionaryRef matching);
/// The caller owns the result.
CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key,
                                          CFAllocatorRef allocator, IOOptionBits options);
kern_return_t IOObjectRelease(io_object_t object);
