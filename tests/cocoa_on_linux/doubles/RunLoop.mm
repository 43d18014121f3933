#include "doubles/RunLoop.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <vector>

#include "doubles/Doubles.h"
#include "runtime/Runtime.h"

using namespace doubles;

@interface NSTimer () {
 @public
  void (^block)(NSTimer*);
  NSTimeInterval interval;
  double fireTime;
  BOOL repeats;
  BOOL isValid;
  NSMutableSet* modes;
}
@end

namespace {

using Clock = std::chrono::steady_clock;

struct ModeBlock {
  NSArray* modes;
  void (^block)(void);
};

struct Loop {
  std::mutex mutex;
  std::condition_variable posted;
  std::deque<dispatch_block_t> mainQueue;
  std::multimap<double, dispatch_block_t> delayed;
  std::deque<ModeBlock> modeBlocks;  // the main thread's only, like the rest
  std::vector<NSTimer*> timers;
  std::vector<NSRunLoopMode> modes;
  double offset = 0;
  Clock::time_point start = Clock::now();
};

Loop& mainLoop() {
  static Loop& only = *new Loop;
  return only;
}

// AppKit adds its two modes to the common ones.
bool isCommon(NSRunLoopMode mode) {
  return [@[ NSDefaultRunLoopMode, NSModalPanelRunLoopMode, NSEventTrackingRunLoopMode ]
      containsObject:mode];
}

bool includes(id modes, NSRunLoopMode mode) {
  return [modes containsObject:mode] ||
         ([modes containsObject:NSRunLoopCommonModes] && isCommon(mode));
}

// What waits now, in this mode; a block that is added meanwhile waits for the next pass.
bool performModeBlocks(NSRunLoopMode mode) {
  std::vector<ModeBlock> due;
  auto& waiting = mainLoop().modeBlocks;
  for (auto block = waiting.begin(); block != waiting.end();) {
    if (includes(block->modes, mode)) {
      due.push_back(*block);
      block = waiting.erase(block);
    } else {
      ++block;
    }
  }
  for (const auto& each : due) each.block();
  return !due.empty();
}

bool fireTimers(NSRunLoopMode mode) {
  bool fired = false;
  const auto timers = mainLoop().timers;
  for (NSTimer* timer : timers) {
    if (!timer->isValid || timer->fireTime > loop::now() || !includes(timer->modes, mode)) continue;
    fired = true;
    __attribute__((objc_precise_lifetime)) void (^block)(NSTimer*) = timer->block;
    block(timer);  // which may end the timer
    if (!timer->isValid) continue;
    if (!timer->repeats) [timer invalidate];
    // A firing that came late is not made up for, and does not shift the next.
    while (timer->fireTime <= loop::now()) timer->fireTime += timer->interval;
  }
  return fired;
}

bool drainMainQueue(NSRunLoopMode mode) {
  if (!isCommon(mode)) return false;
  std::deque<dispatch_block_t> due;
  {
    auto& main = mainLoop();
    const std::lock_guard lock(main.mutex);
    const auto end = main.delayed.upper_bound(loop::now());
    for (auto each = main.delayed.begin(); each != end; ++each)
      main.mainQueue.push_back(each->second);
    main.delayed.erase(main.delayed.begin(), end);
    due.swap(main.mainQueue);
  }
  for (const auto& block : due) block();
  return !due.empty();
}

std::optional<double> nextDue(NSRunLoopMode mode) {
  std::optional<double> next;
  const auto consider = [&next](double time) { next = next ? std::min(*next, time) : time; };
  for (NSTimer* timer : mainLoop().timers)
    if (includes(timer->modes, mode)) consider(timer->fireTime);
  const std::lock_guard lock(mainLoop().mutex);
  if (!mainLoop().delayed.empty()) consider(mainLoop().delayed.begin()->first);
  return next;
}

}  // namespace

namespace doubles::loop {

void reset() {
  auto& main = mainLoop();
  while (!main.timers.empty()) [main.timers.back() invalidate];
  main.modeBlocks.clear();
  main.offset = 0;
  std::deque<dispatch_block_t> blocks;
  std::multimap<double, dispatch_block_t> delayed;
  const std::lock_guard lock(main.mutex);
  blocks.swap(main.mainQueue);
  delayed.swap(main.delayed);
}

double now() {
  const std::chrono::duration<double> real = Clock::now() - mainLoop().start;
  return real.count() + mainLoop().offset;
}

NSRunLoopMode currentMode() {
  return mainLoop().modes.empty() ? NSDefaultRunLoopMode : mainLoop().modes.back();
}

// Without a pool: AppKit drains its own after each event, and none of these is one.
bool pass(NSRunLoopMode mode) {
  const ModeScope scope(mode);
  const bool performed = performModeBlocks(mode);
  const bool fired = fireTimers(mode);
  return drainMainQueue(mode) || performed || fired;
}

bool runInMode(NSRunLoopMode mode, const std::function<bool()>& condition, double seconds) {
  const auto end = Clock::now() + std::chrono::duration<double>(seconds);
  while (!condition()) {
    if (Clock::now() >= end) return false;
    if (pass(mode)) continue;
    const auto next = nextDue(mode);
    const double wait = std::clamp(next ? *next - now() : 0.01, 0.0, 0.01);
    std::unique_lock lock(mainLoop().mutex);
    if (mainLoop().mainQueue.empty())
      mainLoop().posted.wait_for(lock, std::chrono::duration<double>(wait));
  }
  return true;
}

ModeScope::ModeScope(NSRunLoopMode mode) {
  mainLoop().modes.push_back(mode);
}

ModeScope::~ModeScope() {
  mainLoop().modes.pop_back();
}

}  // namespace doubles::loop

namespace doubles {

void runPending() {
  while (loop::pass(loop::currentMode())) {
  }
}

std::size_t waitingBlocks() {
  return mainLoop().modeBlocks.size();
}

void advance(double seconds) {
  const double end = loop::now() + seconds;
  runPending();
  for (auto next = nextDue(loop::currentMode()); next && *next <= end;
       next = nextDue(loop::currentMode())) {
    mainLoop().offset += std::max(0.0, *next - loop::now());
    runPending();
  }
  mainLoop().offset += std::max(0.0, end - loop::now());
  runPending();
}

bool runUntil(const std::function<bool()>& condition, double seconds) {
  return loop::runInMode(loop::currentMode(), condition, seconds);
}

}  // namespace doubles

@implementation NSTimer

+ (NSTimer*)scheduledTimerWithTimeInterval:(NSTimeInterval)interval
                                   repeats:(BOOL)repeats
                                     block:(void (^)(NSTimer*))block {
  if (block == nil) raise(NSInvalidArgumentException, @"A timer needs a block");
  NSTimer* timer = [[NSTimer alloc] init];
  timer->block = block;
  timer->interval = std::max(interval, 0.0001);  // as documented
  timer->fireTime = loop::now() + timer->interval;
  timer->repeats = repeats;
  timer->isValid = YES;
  timer->modes = [NSMutableSet set];
  [NSRunLoop.currentRunLoop addTimer:timer forMode:NSDefaultRunLoopMode];
  return timer;
}

- (void)invalidate {
  if (!runtime::isMainThread())
    runtime::violation("A timer is invalidated off the thread of its run loop");
  NSTimer* kept = self;
  isValid = NO;
  block = nil;
  std::erase(mainLoop().timers, kept);
}

@end

@implementation NSRunLoop

+ (NSRunLoop*)mainRunLoop {
  static NSRunLoop* only = [[NSRunLoop alloc] init];
  return only;
}

+ (NSRunLoop*)currentRunLoop {
  if (!runtime::isMainThread()) runtime::violation("Nobody runs the run loop of this thread");
  return NSRunLoop.mainRunLoop;
}

- (NSRunLoopMode)currentMode {
  return mainLoop().modes.empty() ? nil : mainLoop().modes.back();
}

- (void)addTimer:(NSTimer*)timer forMode:(NSRunLoopMode)mode {
  expect(timer, NSTimer.class);
  expect(mode, NSString.class);
  if (!runtime::isMainThread()) runtime::violation("A run loop is used off its thread");
  auto& timers = mainLoop().timers;
  if (std::ranges::find(timers, timer) == timers.end()) timers.push_back(timer);
  [timer->modes addObject:mode];
}

- (void)performInModes:(NSArray<NSRunLoopMode>*)modes block:(void (^)(void))block {
  expect(modes, NSArray.class);
  for (NSRunLoopMode mode in modes) expect(mode, NSString.class);
  if (block == nil) raise(NSInvalidArgumentException, @"A run loop needs a block");
  if (!runtime::isMainThread()) runtime::violation("A run loop is used off its thread");
  mainLoop().modeBlocks.push_back({[modes copy], block});
}

@end

@implementation OS_dispatch_queue
@end

dispatch_queue_main_t dispatch_get_main_queue() {
  static OS_dispatch_queue* only = [[OS_dispatch_queue alloc] init];
  return only;
}

void dispatch_async(dispatch_queue_t queue, dispatch_block_t block) {
  expect(queue, OS_dispatch_queue.class);
  const std::lock_guard lock(mainLoop().mutex);
  mainLoop().mainQueue.push_back(block);
  mainLoop().posted.notify_one();
}

// Nanoseconds of this loop's clock; 0 is now.
dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta) {
  if (when == DISPATCH_TIME_NOW)
    when = static_cast<dispatch_time_t>(loop::now() * static_cast<double>(NSEC_PER_SEC));
  return when + static_cast<dispatch_time_t>(delta);
}

void dispatch_after(dispatch_time_t when, dispatch_queue_t queue, dispatch_block_t block) {
  expect(queue, OS_dispatch_queue.class);
  const double time = static_cast<double>(when) / static_cast<double>(NSEC_PER_SEC);
  const std::lock_guard lock(mainLoop().mutex);
  mainLoop().delayed.emplace(time, block);
  mainLoop().posted.notify_one();
}
