// What the Windows loader does: DllMain runs when the module is loaded and when it is unloaded or the process ends.
// Linked only into the module.
#include "platform/platform.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved);

namespace {

// Its address is the module's handle, which is opaque.
char moduleMark;

__attribute__((constructor)) void AttachModule()
{
    DllMain(&moduleMark, DLL_PROCESS_ATTACH, nullptr);
}

__attribute__((destructor)) void DetachModule()
{
    DllMain(&moduleMark, DLL_PROCESS_DETACH, nullptr);
}

}  // namespace
