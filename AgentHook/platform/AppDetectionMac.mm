// macOS: the running applications as NSWorkspace lists them, and /usr/bin/open.
#include "platform/AppDetection.hpp"

#import <AppKit/AppKit.h>

#include "platform/Process.hpp"

namespace AgentHook::platform {

bool isApplicationRunning(const std::vector<std::string>& identifiers) {
    @autoreleasepool {
        for (NSRunningApplication* application in [[NSWorkspace sharedWorkspace] runningApplications]) {
            NSString* bundle = application.bundleIdentifier;
            if (bundle == nil) continue;
            const char* utf8 = bundle.UTF8String;
            if (utf8 == nullptr) continue;
            for (const std::string& identifier : identifiers) {
                if (identifier == utf8) return true;
            }
        }
    }
    return false;
}

void openUrl(const std::string& url) { runAndWait("/usr/bin/open", {url}); }

}  // namespace AgentHook::platform
