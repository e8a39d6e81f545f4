#include "platform/Signals.hpp"

namespace AgentHook::platform {
namespace {

volatile std::sig_atomic_t* interruptFlag = nullptr;

extern "C" void onInterrupt(int) {
    if (interruptFlag != nullptr) *interruptFlag = 1;
}

}  // namespace

void catchInterrupts(volatile std::sig_atomic_t* flag) {
    interruptFlag = flag;
    struct sigaction action{};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;  // no SA_RESTART: the sleep must end at once
    ::sigaction(SIGINT, &action, nullptr);
}

void restoreDefaultInterrupts() { std::signal(SIGINT, SIG_DFL); }

}  // namespace AgentHook::platform
