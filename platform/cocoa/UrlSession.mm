#include "platform/UrlSession.h"

#include "platform/cocoa/Conversions.h"

namespace platform {

struct UrlSession::Implementation {
  NSURLSession* session;
};

UrlSession::UrlSession(double timeoutIntervalForRequest) {
  NSURLSessionConfiguration* configuration =
      NSURLSessionConfiguration.ephemeralSessionConfiguration;
  configuration.timeoutIntervalForRequest = timeoutIntervalForRequest;
  implementation = std::make_unique<Implementation>(
      Implementation{[NSURLSession sessionWithConfiguration:configuration]});
}

UrlSession::~UrlSession() {
  // Cancels the tasks, whose handlers the session still calls; then it lets go of them.
  [implementation->session invalidateAndCancel];
}

void UrlSession::dataTaskWithUrl(const Url& url, CompletionHandler completionHandler) {
  NSURLSessionDataTask* task = [implementation->session
        dataTaskWithURL:nsUrl(url)
      completionHandler:^(NSData* data, NSURLResponse*, NSError*) {
        completionHandler(data == nil ? std::nullopt : std::optional(fromNSData(data)));
      }];
  [task resume];
}

}  // namespace platform
