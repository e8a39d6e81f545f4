#include "entry/Dispatch.hpp"

int main(int argc, char** argv) { return AgentHook::dispatch(argc, argv); }
