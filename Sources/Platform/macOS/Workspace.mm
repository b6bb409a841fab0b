#include "Platform/Workspace.h"

#import <AppKit/AppKit.h>

#include "Platform/macOS/Text.h"

namespace tervain::Platform {
namespace {

LaunchError launchError(NSError* error) {
  return {utf8(error.description)};
}

}  // namespace

std::optional<pid_t> frontmostApplication() {
  @autoreleasepool {
    NSRunningApplication* const application = NSWorkspace.sharedWorkspace.frontmostApplication;
    return application ? std::optional<pid_t>(application.processIdentifier) : std::nullopt;
  }
}

std::optional<std::string> applicationName(pid_t pid) {
  @autoreleasepool {
    NSString* const name =
        [NSRunningApplication runningApplicationWithProcessIdentifier:pid].localizedName;
    return name ? std::optional(utf8(name)) : std::nullopt;
  }
}

std::optional<LaunchError> openApplicationAt(const std::string& path, Deadline deadline) {
  @autoreleasepool {
    NSString* const bundle = nsString(path);
    if (!bundle) {
      return LaunchError{"its path is not UTF-8"};
    }
    using Outcome = std::optional<LaunchError>;
    const auto box = std::make_shared<ResultBox<Outcome>>();
    [NSWorkspace.sharedWorkspace openApplicationAtURL:[NSURL fileURLWithPath:bundle]
                                        configuration:[NSWorkspaceOpenConfiguration configuration]
                                    completionHandler:^(NSRunningApplication*, NSError* error) {
                                      box->put(error ? Outcome(launchError(error)) : Outcome());
                                    }];
    return box->waitUntil(deadline).value_or(Outcome());
  }
}

std::variant<int, LaunchError> openApplicationNamed(const std::string& name) {
  @autoreleasepool {
    NSString* const application = nsString(name);
    if (!application) {
      return LaunchError{"the name is not UTF-8"};
    }
    NSTask* const task = [[NSTask alloc] init];
    task.executableURL = [NSURL fileURLWithPath:@"/usr/bin/open"];
    task.arguments = @[ @"-a", application ];
    NSError* error = nil;
    if (![task launchAndReturnError:&error]) {
      return launchError(error);
    }
    [task waitUntilExit];
    return task.terminationStatus;
  }
}

}  // namespace tervain::Platform
