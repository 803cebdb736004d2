// What the Windows loader does: DllMain runs when the module is loaded and when it is unloaded or the process ends.
// Linked into the module alone.
#include "platform/platform.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved);

namespace {

// Stands for the module's handle, which nobody looks behind.
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
