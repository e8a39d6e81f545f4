// macOS: the bundle identifiers of NSWorkspace's running applications, and
// /usr/bin/open for the wake-up URL.
//
// The Objective-C runtime and AppKit are loaded with dlopen only here, on the
// path that asks about the app: every other event starts without them, and
// the program needs no framework headers to build. Messages are sent through
// objc_msgSend cast to each call's exact type, as arm64 requires.
#include "platform/AppDetection.hpp"

#include <dlfcn.h>

#include "platform/Process.hpp"

namespace AgentHook::platform {
namespace {

using Id = void*;
using Selector = void*;
using Unsigned = unsigned long;  // NSUInteger on both 64-bit architectures

struct Runtime {
    Id (*getClass)(const char*) = nullptr;
    Selector (*selector)(const char*) = nullptr;
    void* (*poolPush)() = nullptr;
    void (*poolPop)(void*) = nullptr;
    void* send = nullptr;  // objc_msgSend
};

// Both libraries stay loaded for the rest of the (short) process.
bool loadRuntime(Runtime& runtime) {
    void* objc = ::dlopen("/usr/lib/libobjc.A.dylib", RTLD_LAZY | RTLD_LOCAL);
    // AppKit registers NSWorkspace with the runtime when it loads.
    void* appKit = ::dlopen("/System/Library/Frameworks/AppKit.framework/AppKit", RTLD_LAZY | RTLD_LOCAL);
    if (objc == nullptr || appKit == nullptr) return false;
    runtime.getClass = reinterpret_cast<Id (*)(const char*)>(::dlsym(objc, "objc_getClass"));
    runtime.selector = reinterpret_cast<Selector (*)(const char*)>(::dlsym(objc, "sel_registerName"));
    runtime.poolPush = reinterpret_cast<void* (*)()>(::dlsym(objc, "objc_autoreleasePoolPush"));
    runtime.poolPop = reinterpret_cast<void (*)(void*)>(::dlsym(objc, "objc_autoreleasePoolPop"));
    runtime.send = ::dlsym(objc, "objc_msgSend");
    return runtime.getClass && runtime.selector && runtime.poolPush && runtime.poolPop && runtime.send;
}

template <class Result, class... Arguments>
Result send(const Runtime& runtime, Id receiver, const char* selector, Arguments... arguments) {
    using Message = Result (*)(Id, Selector, Arguments...);
    return reinterpret_cast<Message>(runtime.send)(receiver, runtime.selector(selector), arguments...);
}

bool anyRunning(const Runtime& runtime, const std::vector<std::string>& identifiers) {
    const Id workspaceClass = runtime.getClass("NSWorkspace");
    if (workspaceClass == nullptr) return false;
    const Id workspace = send<Id>(runtime, workspaceClass, "sharedWorkspace");
    const Id applications = workspace ? send<Id>(runtime, workspace, "runningApplications") : nullptr;
    if (applications == nullptr) return false;
    const Unsigned count = send<Unsigned>(runtime, applications, "count");
    for (Unsigned i = 0; i < count; ++i) {
        const Id application = send<Id>(runtime, applications, "objectAtIndex:", i);
        const Id bundle = application ? send<Id>(runtime, application, "bundleIdentifier") : nullptr;
        const char* utf8 = bundle ? send<const char*>(runtime, bundle, "UTF8String") : nullptr;
        if (utf8 == nullptr) continue;
        for (const std::string& identifier : identifiers) {
            if (identifier == utf8) return true;
        }
    }
    return false;
}

}  // namespace

bool isApplicationRunning(const std::vector<std::string>& identifiers) {
    Runtime runtime;
    if (!loadRuntime(runtime)) return false;
    // The workspace's objects are autoreleased: a pool of our own takes them.
    void* pool = runtime.poolPush();
    const bool running = anyRunning(runtime, identifiers);
    runtime.poolPop(pool);
    return running;
}

// An app that cannot be opened (not installed) leaves the request in its inbox.
void openUrl(const std::string& url) { static_cast<void>(runAndWait("/usr/bin/open", {url})); }

}  // namespace AgentHook::platform
