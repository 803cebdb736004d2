#include "tests/kelvaroctl/process.h"

#include <stdexcept>

#include "tests/common/test_root.h"

namespace {
// A file that goes with its last handle. Programs inherit it.
class Scratch {
  public:
    explicit Scratch(const std::string& content = "")
    {
        WCHAR folder[MAX_PATH];
        WCHAR name[MAX_PATH];
        SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
        if (GetTempPathW(MAX_PATH, folder) && GetTempFileNameW(folder, TEXT("run"), 0, name))
            file_ = CreateFileW(name, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited,
                                CREATE_ALWAYS, FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
        DWORD written = 0;
        if (file_ == INVALID_HANDLE_VALUE ||
            !WriteFile(file_, content.data(), static_cast<DWORD>(content.size()), &written, nullptr))
            throw std::runtime_error("no scratch file");
        Rewind();
    }
    ~Scratch() { CloseHandle(file_); }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    HANDLE handle() const { return file_; }
    std::string Content()
    {
        Rewind();
        std::string content;
        char piece[4096];
        for (DWORD size = 0; ReadFile(file_, piece, sizeof(piece), &size, nullptr) && size > 0;)
            content.append(piece, size);
        for (size_t at = 0; (at = content.find("\r\n", at)) != std::string::npos;)
            content.erase(at, 1);
        return content;
    }

  private:
    void Rewind() { SetFilePointer(file_, 0, nullptr, FILE_BEGIN); }

    HANDLE file_ = INVALID_HANDLE_VALUE;
};

// An argument as CommandLineToArgvW reads it: a backslash counts as two only in front of a quotation mark.
std::string Quoted(const std::string& argument)
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
}  // namespace

Ran RunProgram(const std::string& program, const std::vector<std::string>& arguments, const std::string& input)
{
    const Scratch in(input);
    Scratch out;
    Scratch err;
    STARTUPINFOW start = {};
    start.cb = sizeof(start);
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdInput = in.handle();
    start.hStdOutput = out.handle();
    start.hStdError = err.handle();
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
    Ran ran;
    ran.exit = static_cast<int>(code);
    ran.out = out.Content();
    ran.err = err.Content();
    return ran;
}
