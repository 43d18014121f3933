// What the core itself costs, on a platform in memory: nanoseconds and allocations of each step.

#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "app/StatusMenu.h"
#include "client/StatusDecoding.h"
#include "install/LaunchAgents.h"
#include "tests/fakes/FakePlatform.h"

namespace {

std::atomic<std::int64_t> allocations = 0;

}  // namespace

// Operator new and Qt's own containers all end here.
extern "C" {
void* __libc_malloc(std::size_t size);                // NOLINT: the C library's name
void* __libc_realloc(void* block, std::size_t size);  // NOLINT
void* malloc(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_malloc(size);
}
void* realloc(void* block, std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_realloc(block, size);
}
}

namespace {

using namespace pellix;

/// Reports how many allocations one iteration makes.
class AllocationCounter {
 public:
  explicit AllocationCounter(benchmark::State& running)
      : state(running), before(allocations.load()) {}
  ~AllocationCounter() {
    state.counters["allocations"] = benchmark::Counter(
        static_cast<double>(allocations.load() - before), benchmark::Counter::kAvgIterations);
  }
  AllocationCounter(const AllocationCounter&) = delete;
  AllocationCounter& operator=(const AllocationCounter&) = delete;

 private:
  benchmark::State& state;
  std::int64_t before;
};

/// An answer of about `size` bytes, most of them in a member that the client does not know.
std::string answer(std::size_t size) {
  std::string text = R"({"state": "authorized", "device_id": "HW-UUID-7D3A94C1-52E8-4B0F-9A6D",)"
                     R"( "site": "https://intranet.velmor.example", "email": "ann@velmor.example",)"
                     R"( "last_heartbeat": "2024-05-01T12:34:56.789Z", "notes": ")";
  constexpr std::string_view end = "\"}";
  if (size > text.size() + end.size()) text.append(size - text.size() - end.size(), 'x');
  return text.append(end);
}

void decodeAnswer(benchmark::State& state) {
  const std::optional<std::string> body = answer(static_cast<std::size_t>(state.range(0)));
  const AllocationCounter counter(state);
  for (auto _ : state) benchmark::DoNotOptimize(decodeStatus(body));
  state.SetComplexityN(state.range(0));
}
BENCHMARK(decodeAnswer)->RangeMultiplier(32)->Range(256, 8 << 20)->Complexity(benchmark::oN);

void buildMenu(benchmark::State& state) {
  const Status status = decodeStatus(answer(0));
  const std::string installedDeviceId = "GEN-1";
  const AllocationCounter counter(state);
  for (auto _ : state) {
    benchmark::DoNotOptimize(statusBarButton(status.state));
    benchmark::DoNotOptimize(statusMenu(status, installedDeviceId, {}));
  }
}
BENCHMARK(buildMenu);

void writePropertyLists(benchmark::State& state) {
  fakes::platform() = {};
  const AllocationCounter counter(state);
  for (auto _ : state) {
    Installer::writeServiceLaunchAgent();
    Installer::writeMenubarLaunchAgent();
    fakes::platform().log.clear();
  }
}
BENCHMARK(writePropertyLists);

void formatRelativeTime(benchmark::State& state) {
  Status status;
  status.lastHeartbeat = std::chrono::system_clock::now() - std::chrono::minutes(5);
  const AllocationCounter counter(state);
  for (auto _ : state) benchmark::DoNotOptimize(status.lastCheckDescription());
}
BENCHMARK(formatRelativeTime);

/// From the body to the comparison after which a platform sees that it has nothing to draw.
void pollThatChangesNothing(benchmark::State& state) {
  const std::optional<std::string> body = answer(0);
  const std::string installedDeviceId = "GEN-1";
  const Status before = decodeStatus(body);
  const auto shownButton = statusBarButton(before.state);
  const auto shownMenu = statusMenu(before, installedDeviceId, {});
  const AllocationCounter counter(state);
  for (auto _ : state) {
    const Status status = decodeStatus(body);
    if (statusBarButton(status.state) != shownButton ||
        statusMenu(status, installedDeviceId, {}) != shownMenu)
      state.SkipWithError("something changed");
  }
}
BENCHMARK(pollThatChangesNothing);

}  // namespace

BENCHMARK_MAIN();
