#include "kelvaroctl/doctor/child.h"

#include "kelvaroctl/failure.h"
#include "kelvaroctl/owner.h"
#include "kelvaroctl/text.h"

namespace kelvaroctl {

namespace {

using Handle = Owner<void, CloseHandle>;

// A job whose processes are killed when its last handle is closed, and so when this process ends.
Handle MakeJob()
{
    Handle job(CreateJobObjectW(nullptr, nullptr));
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits, sizeof(limits));
    return job;
}

Handle Start(WideText line, HANDLE output, HANDLE job)
{
    WCHAR self[MAX_PATH];
    GetModuleFileNameW(nullptr, self, MAX_PATH);
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = output;
    PROCESS_INFORMATION made = {};
    if (!CreateProcessW(self, line.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr, nullptr, &startup, &made))
        throw InternalFailure("cannot start a process: error " + std::to_string(GetLastError()));
    AssignProcessToJobObject(job, made.hProcess);
    ResumeThread(made.hThread);
    CloseHandle(made.hThread);
    return Handle(made.hProcess);
}

// Reads what has arrived.
void ReadSome(HANDLE input, std::string* out)
{
    DWORD available = 0;
    PeekNamedPipe(input, nullptr, 0, nullptr, &available, nullptr);
    std::string bytes(available, 0);
    DWORD read = 0;
    if (available && ReadFile(input, bytes.data(), available, &read, nullptr))
        out->append(bytes, 0, read);
}

}  // namespace

std::string QuotedArgument(const std::string& argument)
{
    std::string text = "\"";
    size_t backslashes = 0;
    for (const char ch : argument) {
        // Backslashes count double before a quotation mark.
        if (ch == '"')
            text.append(backslashes + 1, '\\');
        backslashes = ch == '\\' ? backslashes + 1 : 0;
        text += ch;
    }
    return text.append(backslashes, '\\') + "\"";
}

ChildResult RunChild(const std::vector<std::string>& arguments, DWORD limitMs)
{
    constexpr DWORD kTurnMs = 20;
    HANDLE ends[2] = {};
    if (!CreatePipe(&ends[0], &ends[1], nullptr, 0))
        throw InternalFailure("cannot create a pipe");
    const Handle input(ends[0]);
    Handle output(ends[1]);
    SetHandleInformation(output.get(), HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
    const Handle job = MakeJob();
    std::string line = "kelvaroctl";
    for (const std::string& argument : arguments)
        line += " " + QuotedArgument(argument);
    const Handle process = Start(ToWide(line), output.get(), job.get());
    output.reset();
    ChildResult result;
    const ULONGLONG end = GetTickCount64() + limitMs;
    while (!result.ended && GetTickCount64() < end) {
        result.ended = WaitForSingleObject(process.get(), kTurnMs) == WAIT_OBJECT_0;
        ReadSome(input.get(), &result.out);
    }
    DWORD exit = 0;
    if (result.ended && GetExitCodeProcess(process.get(), &exit))
        result.exit = static_cast<int>(exit);
    return result;
}

}  // namespace kelvaroctl
