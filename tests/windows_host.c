// A host in C that loads the module: exceptions must still reach its handlers. It also reads the module's message table as
// the event viewer does. It doesn't use the C++ runtime, whose thread library hooks into exceptions itself.
// Usage: windows_host.exe MODULE.dll   Prints what is wrong; exit code 0 when nothing is.
#include <stdio.h>
#include <string.h>
#include <windows.h>

static DWORD expected;
static int met;
static int failures;

static void Wrong(const char* what, const char* when, DWORD code)
{
    printf("%s, %s: 0x%08lx\n", what, when, (unsigned long)code);
    ++failures;
}

static LONG CALLBACK Handle(EXCEPTION_POINTERS* exception)
{
    if (exception->ExceptionRecord->ExceptionCode != expected)
        return EXCEPTION_CONTINUE_SEARCH;
    ++met;
    return EXCEPTION_CONTINUE_EXECUTION;
}

static LONG WINAPI LastResort(EXCEPTION_POINTERS* exception)
{
    (void)exception;
    return EXCEPTION_CONTINUE_SEARCH;
}

// Thread names for debuggers, C++ exceptions of two compilers, .NET's exceptions, and the host's own.
static void RaiseAll(const char* when)
{
    static const DWORD codes[] = {0x406D1388, 0xE06D7363, 0x20474343, 0xE0434352, 0xE0000001};
    for (size_t at = 0; at < sizeof(codes) / sizeof(codes[0]); ++at) {
        const ULONG_PTR arguments[4] = {0x1000, (ULONG_PTR) "host", GetCurrentThreadId(), 0};
        expected = codes[at];
        met = 0;
        RaiseException(codes[at], 0, 4, arguments);
        if (met != 1)
            Wrong("an exception does not reach the host's handler", when, codes[at]);
    }
    if (SetUnhandledExceptionFilter(LastResort) != LastResort)
        Wrong("the host's filter for unhandled exceptions was replaced", when, 0);
}

static void ReadMessage(const char* path)
{
    char text[64] = "";
    DWORD_PTR arguments[1] = {(DWORD_PTR) "a line with 100 %1"};
    HMODULE const file = LoadLibraryExA(path, NULL, LOAD_LIBRARY_AS_DATAFILE);
    if (!FormatMessageA(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY, file, 0, 0, text, sizeof(text),
                        (va_list*)arguments))
        Wrong("the module has no message for events", path, GetLastError());
    text[strcspn(text, "\r\n")] = 0;
    if (strcmp(text, "a line with 100 %1") != 0)
        Wrong("an event's text is changed", text, 0);
    FreeLibrary(file);
}

int main(int argc, char** argv)
{
    if (argc != 2)
        return 2;
    // After every handler that a module may add.
    void* const handler = AddVectoredExceptionHandler(0, Handle);
    SetUnhandledExceptionFilter(LastResort);
    RaiseAll("before the module is loaded");
    HMODULE const module = LoadLibraryA(argv[1]);
    if (!module)
        Wrong("the module is not loaded", argv[1], GetLastError());
    RaiseAll("with the module loaded");
    FreeLibrary(module);
    if (GetModuleHandleA(argv[1]))
        Wrong("the module is still loaded", "after the unload", 0);
    RaiseAll("after the unload");
    RemoveVectoredExceptionHandler(handler);
    ReadMessage(argv[1]);
    return failures != 0;
}
