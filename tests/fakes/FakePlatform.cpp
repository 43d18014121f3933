#include "tests/fakes/FakePlatform.h"

#include <algorithm>
#include <stdexcept>

#include "platform/Bundle.h"
#include "platform/FileManager.h"
#include "platform/Hardware.h"
#include "platform/Launchd.h"
#include "platform/MainQueue.h"
#include "platform/Pasteboard.h"
#include "platform/Timer.h"
#include "platform/UserDefaults.h"
#include "platform/Workspace.h"

namespace fakes {

Platform& platform() {
  static Platform instance;
  return instance;
}

PlatformTest::PlatformTest() {
  fakes::platform() = Platform();
}

std::ptrdiff_t Platform::count(const std::string& call) const {
  return std::count(log.begin(), log.end(), call);
}

void Platform::runMainQueue() {
  while (!mainQueue.empty())
    for (const auto& block : std::exchange(mainQueue, {})) block();
}

void Platform::answer(std::size_t request, std::optional<std::string> body) {
  requests.at(request).completionHandler(std::move(body));
  runMainQueue();
}

const platform::MenuItem* Platform::find(const std::string& title) const {
  for (const auto& item : statusItems.at(0)->menu.value().items)
    if (item.title == title && item.isEnabled) return &item;
  return nullptr;
}

void Platform::pick(const std::string& title) {
  const auto* item = find(title);
  if (!item) throw std::runtime_error("no enabled menu entry " + title);
  item->action.value().perform();
}

std::vector<std::string> Platform::informationalTitles() const {
  std::vector<std::string> titles;
  for (const auto& item : statusItems.at(0)->menu.value().items)
    if (!item.isEnabled) titles.push_back(item.title);
  return titles;
}

namespace {

// Folders are kept without the slash at their end.
std::string plain(const std::filesystem::path& path) {
  std::string text = path;
  if (text.size() > 1 && text.ends_with('/')) text.pop_back();
  return text;
}

void perform(const std::string& call) {
  platform().log.push_back(call);
  if (const auto failure = platform().failures.find(call); failure != platform().failures.end())
    throw failure->second;
}

}  // namespace
}  // namespace fakes

namespace platform {

using fakes::perform;
using fakes::plain;

namespace FileManager {

std::filesystem::path homeDirectoryForCurrentUser() {
  return fakes::platform().home;
}

std::vector<std::filesystem::path> applicationSupportDirectories() {
  return fakes::platform().applicationSupport;
}

bool fileExists(const std::filesystem::path& path) {
  return fakes::platform().files.contains(plain(path)) ||
         fakes::platform().folders.contains(plain(path));
}

void createDirectoryWithIntermediateDirectories(const std::filesystem::path& path) {
  perform("create " + plain(path));
  fakes::platform().folders.insert(plain(path));
}

void removeItem(const std::filesystem::path& path) {
  perform("remove " + plain(path));
  fakes::platform().files.erase(plain(path));
}

void copyItem(const std::filesystem::path& from, const std::filesystem::path& to) {
  perform("copy " + plain(from) + " to " + plain(to));
  if (fileExists(to)) throw Error("fake", 516, "The item “" + plain(to) + "” already exists.");
  fakes::platform().files[plain(to)] = fakes::platform().files.at(plain(from));
}

void setPosixPermissions(const std::filesystem::path& path, unsigned permissions) {
  perform("permissions " + plain(path));
  fakes::platform().files.at(plain(path)).permissions = permissions;
}

void writeAtomically(std::string_view text, const std::filesystem::path& path) {
  perform("write " + plain(path));
  const std::string folder = path.parent_path();
  if (!fakes::platform().folders.contains(folder))
    throw Error("fake", 4, "The folder “" + folder + "” doesn’t exist.");
  fakes::platform().files[plain(path)] = {.content = std::string(text)};
}

}  // namespace FileManager

namespace Bundle {

std::optional<std::filesystem::path> executableUrl() {
  return fakes::platform().executable;
}

std::optional<std::filesystem::path> urlForResource(const std::string& name) {
  const auto found = fakes::platform().resources.find(name);
  if (found == fakes::platform().resources.end()) return std::nullopt;
  return found->second;
}

}  // namespace Bundle

namespace Launchd {

std::filesystem::path launchctl() {
  return "/bin/launchctl";
}
unsigned userId() {
  return 501;
}

}  // namespace Launchd

std::optional<std::string> platformUuid() {
  return fakes::platform().uuid;
}

struct Task::Implementation {
  std::string commandLine;
  fakes::Process process;
  Output output;
  bool wasLaunched = false;
};

Task::Task(const std::filesystem::path& executableUrl, const std::vector<std::string>& arguments,
           Output output) {
  std::string commandLine = executableUrl;
  for (const auto& argument : arguments) commandLine += " [" + argument + "]";
  implementation = std::make_unique<Implementation>(
      Implementation{commandLine, fakes::platform().processes[executableUrl], output});
}

Task::~Task() = default;

void Task::launch() {
  perform("launch " + implementation->commandLine);
  if (!implementation->process.canBeLaunched) throw Error("fake", 13, "Permission denied");
  implementation->wasLaunched = true;
}

void Task::waitUntilExit() {
  perform(implementation->wasLaunched ? "wait" : "wait without a process");
}

std::string Task::readStandardOutputToEnd() {
  perform("read output");
  return implementation->output == Output::captured ? implementation->process.output : "";
}

namespace UserDefaults {

long long integerForKey(const std::string& key) {
  const auto found = fakes::platform().integers.find(key);
  return found == fakes::platform().integers.end() ? 0 : found->second;
}

bool boolForKey(const std::string& key) {
  const auto found = fakes::platform().booleans.find(key);
  return found != fakes::platform().booleans.end() && found->second;
}

void setBool(bool value, const std::string& key) {
  perform("set " + key);
  fakes::platform().booleans[key] = value;
}

}  // namespace UserDefaults

namespace MainQueue {

void async(std::function<void()> block) {
  fakes::platform().mainQueue.push_back(std::move(block));
}

void asyncAfter(double seconds, std::function<void()> block) {
  fakes::platform().delayed.emplace_back(seconds, std::move(block));
}

}  // namespace MainQueue

struct Timer::Implementation {
  std::shared_ptr<fakes::TimerRecord> record;
};

std::unique_ptr<Timer> Timer::scheduledTimer(double interval, bool repeats,
                                             std::function<void()> block) {
  perform("timer");
  auto record =
      std::make_shared<fakes::TimerRecord>(fakes::TimerRecord{interval, repeats, std::move(block)});
  fakes::platform().timers.push_back(record);
  return std::unique_ptr<Timer>(
      new Timer(std::make_unique<Implementation>(Implementation{record})));
}

Timer::Timer(std::unique_ptr<Implementation> record) : implementation(std::move(record)) {}
Timer::~Timer() {
  std::erase(fakes::platform().timers, implementation->record);
}

std::optional<Url> Url::withString(const std::string& text) {
  if (fakes::platform().unparsableUrls.contains(text)) return std::nullopt;
  return Url(text);
}

struct UrlSession::Implementation {};

UrlSession::UrlSession(double timeoutIntervalForRequest) {
  fakes::platform().requestTimeout = timeoutIntervalForRequest;
}

UrlSession::~UrlSession() = default;

void UrlSession::dataTaskWithUrl(const Url& url, CompletionHandler completionHandler) {
  perform("GET " + url.absoluteString());
  fakes::platform().requests.push_back({url.absoluteString(), std::move(completionHandler)});
}

struct Application::Implementation {};

Application::Application() = default;
Application::~Application() = default;
void Application::setDelegate(std::weak_ptr<ApplicationDelegate>) {}
void Application::setActivationPolicy(ActivationPolicy) {}
void Application::run() {}
void Application::activateIgnoringOtherApps() {
  perform("activate");
}
void Application::terminate() {
  perform("terminate");
}
std::vector<std::string> Application::arguments() {
  return fakes::platform().arguments;
}

int runModal(const Alert& alert) {
  perform("alert");
  fakes::platform().alerts.push_back(alert);
  return fakes::platform().answerAlert();
}

std::optional<Image> Image::withSystemSymbolName(const std::string& name,
                                                 const std::string& accessibilityDescription) {
  if (fakes::platform().unknownSymbols.contains(name)) return std::nullopt;
  return Image{name, accessibilityDescription};
}

struct StatusItem::Implementation {
  std::shared_ptr<fakes::StatusItemRecord> record;
};

StatusItem::StatusItem(double length) {
  perform("status item");
  implementation = std::make_unique<Implementation>(Implementation{
      std::make_shared<fakes::StatusItemRecord>(fakes::StatusItemRecord{.length = length})});
  fakes::platform().statusItems.push_back(implementation->record);
}

StatusItem::~StatusItem() {
  std::erase(fakes::platform().statusItems, implementation->record);
}

bool StatusItem::hasButton() const {
  return fakes::platform().givesButton;
}

void StatusItem::setButton(const StatusBarButton& button) {
  if (!hasButton()) throw std::logic_error("the status item has no button");
  implementation->record->button = button;
}

void StatusItem::setMenu(const Menu& menu) {
  perform("menu");
  implementation->record->menu = menu;
}

struct Window::Implementation {
  std::shared_ptr<fakes::WindowRecord> record;
};

Window::Window(const WindowContent& content) {
  perform("window");
  implementation = std::make_unique<Implementation>(Implementation{
      std::make_shared<fakes::WindowRecord>(fakes::WindowRecord{.content = content})});
  fakes::platform().windows.push_back(implementation->record);
}

Window::~Window() {
  std::erase(fakes::platform().windows, implementation->record);
}

void Window::center() {
  implementation->record->isCentered = true;
}

void Window::makeKeyAndOrderFront() {
  perform("show window");
  implementation->record->isVisible = true;
}

void Window::close() {
  implementation->record->isVisible = false;
}

void Window::setButtonTitle(const std::string& identifier, const std::string& title) {
  implementation->record->buttonTitles[identifier] = title;
}

namespace GeneralPasteboard {

void clearContents() {
  perform("clear pasteboard");
  fakes::platform().pasteboard.reset();
}

void setString(const std::string& text) {
  perform("fill pasteboard");
  fakes::platform().pasteboard = text;
}

}  // namespace GeneralPasteboard

void Workspace::openUrl(const Url& url) {
  fakes::platform().openedUrls.push_back(url.absoluteString());
}

}  // namespace platform
