// GNUstep's Foundation, with doubles of what it lacks or does differently from Apple's.
#pragma once

#include_next <Foundation/Foundation.h>

#include <stdint.h>

// GNU's are casts, which neither other types of pointers nor boxed literals take.
#undef nil
#undef Nil
#undef YES
#undef NO
#define nil nullptr
#define Nil nullptr
#define YES __objc_yes
#define NO __objc_no

// Core Foundation

typedef const void* CFTypeRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFString* CFStringRef;
typedef const struct __CFDictionary* CFDictionaryRef;
typedef struct __CFDictionary* CFMutableDictionaryRef;

static const CFAllocatorRef kCFAllocatorDefault = nullptr;
#define CFSTR(text) ((__bridge CFStringRef) @text)

id CFBridgingRelease(CFTypeRef object) __attribute__((ns_returns_retained));

// Dispatch

@interface OS_dispatch_queue : NSObject
@end

typedef OS_dispatch_queue* dispatch_queue_t;
typedef OS_dispatch_queue* dispatch_queue_main_t;
typedef void (^dispatch_block_t)(void);
typedef uint64_t dispatch_time_t;

#define NSEC_PER_SEC 1000000000ull
#define DISPATCH_TIME_NOW (0ull)

dispatch_queue_main_t dispatch_get_main_queue(void);
void dispatch_async(dispatch_queue_t queue, dispatch_block_t block);
dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta);
void dispatch_after(dispatch_time_t when, dispatch_queue_t queue, dispatch_block_t block);

// Foundation

#define NSFileManager RecordingFileManager
#define NSISO8601DateFormatter RecordingISO8601DateFormatter
#define NSISO8601DateFormatOptions RecordingISO8601DateFormatOptions
#define NSISO8601DateFormatWithInternetDateTime RecordingISO8601DateFormatWithInternetDateTime
#define NSISO8601DateFormatWithFractionalSeconds RecordingISO8601DateFormatWithFractionalSeconds
#define NSJSONSerialization RecordingJSONSerialization
#define NSRunLoop RecordingRunLoop
#define NSTask RecordingTask
#define NSTimer RecordingTimer
#define NSURLSession RecordingURLSession
#define NSURLSessionConfiguration RecordingURLSessionConfiguration
#define NSURLSessionDataTask RecordingURLSessionDataTask
#define NSURLSessionTask RecordingURLSessionTask

@interface NSTimer : NSObject
+ (NSTimer*)scheduledTimerWithTimeInterval:(NSTimeInterval)interval
                                   repeats:(BOOL)repeats
                                     block:(void (^)(NSTimer* timer))block;
- (void)invalidate;
@end

@interface NSRunLoop : NSObject
@property(class, readonly, strong) NSRunLoop* currentRunLoop;
@property(class, readonly, strong) NSRunLoop* mainRunLoop;
@property(readonly, copy) NSRunLoopMode currentMode;
- (void)addTimer:(NSTimer*)timer forMode:(NSRunLoopMode)mode;
- (void)performInModes:(NSArray<NSRunLoopMode>*)modes block:(void (^)(void))block;
@end

@interface NSTask : NSObject
- (instancetype)init;
@property(copy) NSURL* executableURL;
@property(copy) NSArray<NSString*>* arguments;
@property(strong) id standardOutput;
@property(strong) id standardError;
- (BOOL)launchAndReturnError:(NSError**)error;
- (void)waitUntilExit;
@end

@interface NSURLSessionConfiguration : NSObject <NSCopying>
@property(class, readonly, strong) NSURLSessionConfiguration* ephemeralSessionConfiguration;
@property NSTimeInterval timeoutIntervalForRequest;
@end

@interface NSURLSessionTask : NSObject
- (void)resume;
- (void)cancel;
@end

@interface NSURLSessionDataTask : NSURLSessionTask
@end

@interface NSURLSession : NSObject
+ (NSURLSession*)sessionWithConfiguration:(NSURLSessionConfiguration*)configuration;
@property(readonly, copy) NSURLSessionConfiguration* configuration;
- (NSURLSessionDataTask*)dataTaskWithURL:(NSURL*)url
                       completionHandler:(void (^)(NSData* data, NSURLResponse* response,
                                                   NSError* error))completionHandler;
- (void)invalidateAndCancel;
@end

@interface NSJSONSerialization : NSObject
+ (id)JSONObjectWithData:(NSData*)data options:(NSJSONReadingOptions)options error:(NSError**)error;
@end

typedef NSUInteger NSISO8601DateFormatOptions;
enum : NSISO8601DateFormatOptions {
  NSISO8601DateFormatWithInternetDateTime = 1907,
  NSISO8601DateFormatWithFractionalSeconds = 2048,
};

@interface NSISO8601DateFormatter : NSFormatter
- (instancetype)init;
@property NSISO8601DateFormatOptions formatOptions;
- (NSDate*)dateFromString:(NSString*)string;
@end

@interface NSFileManager : NSObject
@property(class, readonly, strong) NSFileManager* defaultManager;
@property(readonly, copy) NSURL* homeDirectoryForCurrentUser;
- (NSArray<NSURL*>*)URLsForDirectory:(NSSearchPathDirectory)directory
                           inDomains:(NSSearchPathDomainMask)domainMask;
- (NSURL*)URLForDirectory:(NSSearchPathDirectory)directory
                 inDomain:(NSSearchPathDomainMask)domain
        appropriateForURL:(NSURL*)url
                   create:(BOOL)shouldCreate
                    error:(NSError**)error;
- (BOOL)fileExistsAtPath:(NSString*)path;
- (BOOL)createDirectoryAtURL:(NSURL*)url
    withIntermediateDirectories:(BOOL)createIntermediates
                     attributes:(NSDictionary<NSString*, id>*)attributes
                          error:(NSError**)error;
- (BOOL)removeItemAtURL:(NSURL*)url error:(NSError**)error;
- (BOOL)copyItemAtURL:(NSURL*)from toURL:(NSURL*)to error:(NSError**)error;
- (BOOL)moveItemAtURL:(NSURL*)from toURL:(NSURL*)to error:(NSError**)error;
- (BOOL)setAttributes:(NSDictionary<NSString*, id>*)attributes
         ofItemAtPath:(NSString*)path
                error:(NSError**)error;
@end
