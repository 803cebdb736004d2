#include "kelvaroctl/app.h"
#include "kelvaroctl/text.h"

// Arguments come in UTF-16 here, so that key names of any script survive; what is printed is UTF-8.
int wmain(int argc, wchar_t** argv)
{
    // Such DLLs as the system loads by their bare names are looked for in System32 alone.
    SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
    SetConsoleOutputCP(CP_UTF8);
    SetConsoleCP(CP_UTF8);
    std::vector<std::string> arguments;
    for (int index = 1; index < argc; ++index)
        arguments.push_back(kelvaroctl::ToNarrow(argv[index]));
    return kelvaroctl::RunTool(arguments);
}
