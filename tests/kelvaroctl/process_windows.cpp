#include <io.h>

#include <stdexcept>

#include "tests/common/test_root.h"
#include "tests/kelvaroctl/process.h"

// An argument as CommandLineToArgvW reads it: a backslash counts as two only in front of a quotation mark.
static std::string Quoted(const std::string& argument)
{
    std::string text = "\"";
    size_t backslashes = 0;
    for (const char ch : argument) {
        if (ch == '"')
            text.append(backslashes + 1, '\\');
        backslashes = ch == '\\' ? backslashes + 1 : 0;
        text += ch;
    }
    return text.append(backslashes, '\\') + "\"";
}

int RunOn(const int (&streams)[3], const std::string& program, const std::vector<std::string>& arguments)
{
    HANDLE handles[3];
    for (size_t index = 0; index < 3; ++index) {
        handles[index] = reinterpret_cast<HANDLE>(_get_osfhandle(streams[index]));
        SetHandleInformation(handles[index], HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
    }
    STARTUPINFOW start = {};
    start.cb = sizeof(start);
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdInput = handles[0];
    start.hStdOutput = handles[1];
    start.hStdError = handles[2];
    std::string line = Quoted(program);
    for (const std::string& argument : arguments)
        line += " " + Quoted(argument);
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(Wide(program).c_str(), Wide(line).data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &start,
                        &process))
        throw std::runtime_error("cannot start " + program + ": error " + std::to_string(GetLastError()));
    WaitForSingleObject(process.hProcess, INFINITE);
    DWORD code = 0;
    GetExitCodeProcess(process.hProcess, &code);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return static_cast<int>(code);
}
