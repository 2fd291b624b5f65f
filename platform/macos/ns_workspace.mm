// The desktop seam on AppKit and Foundation: the main bundle, NSWorkspace,
// the distributed notification centre, and /usr/bin/open run as a task.
#import <AppKit/AppKit.h>
#import <Foundation/Foundation.h>

#include "platform/macos/backends.h"
#include "platform/macos/cf_convert.h"
#include "platform/macos/open_command.h"

namespace ac::platform::macos {
namespace {

class NSWorkspaceSeam final : public Workspace {
 public:
  std::optional<std::string> bundleIdentifier() override {
    NSString* identifier = NSBundle.mainBundle.bundleIdentifier;
    if (!identifier) return std::nullopt;
    return toStdString(identifier);
  }

  std::string bundlePath() override { return toStdString(NSBundle.mainBundle.bundlePath); }

  int64_t bundleModificationTime() override {
    NSDictionary<NSFileAttributeKey, id>* attributes =
        [NSFileManager.defaultManager attributesOfItemAtPath:NSBundle.mainBundle.bundlePath error:nil];
    NSDate* modified = attributes[NSFileModificationDate];
    return modified ? static_cast<int64_t>(modified.timeIntervalSince1970) : 0;
  }

  bool openURL(const std::string& url) override {
    NSURL* target = [NSURL URLWithString:toNSString(url)];
    return target && [NSWorkspace.sharedWorkspace openURL:target];
  }

  std::optional<std::string> applicationPath(const std::string& bundleIdentifier) override {
    NSURL* app = [NSWorkspace.sharedWorkspace URLForApplicationWithBundleIdentifier:toNSString(bundleIdentifier)];
    if (!app) return std::nullopt;
    return toStdString(app.path);
  }

  std::optional<Error> openApplication(const std::string& appPath, const std::vector<std::string>& args) override {
    NSTask* task = [[NSTask alloc] init];
    task.executableURL = [NSURL fileURLWithPath:@(kOpenTool)];
    NSMutableArray<NSString*>* arguments = [NSMutableArray array];
    for (const std::string& argument : openArguments(appPath, args)) [arguments addObject:toNSString(argument)];
    task.arguments = arguments;
    NSError* failure = nil;
    if (![task launchAndReturnError:&failure]) return toError(failure);
    return std::nullopt;
  }

  void postDistributedNotification(const std::string& name, const std::string& object) override {
    [NSDistributedNotificationCenter.defaultCenter postNotificationName:toNSString(name)
                                                                 object:toNSString(object)
                                                               userInfo:nil
                                                     deliverImmediately:YES];
  }
};

}  // namespace

std::unique_ptr<Workspace> makeNSWorkspace() { return std::make_unique<NSWorkspaceSeam>(); }

}  // namespace ac::platform::macos
