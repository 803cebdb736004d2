#include <io.h>

#include <stdexcept>

#include "kelvaroctl/doctor/child.h"
#include "tests/common/test_root.h"
#include "tests/kelvaroctl/process.h"

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
    std::string line = kelvaroctl::QuotedArgument(program);
    for (const std::string& argument : arguments)
        line += " " + kelvaroctl::QuotedArgument(argument);
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
