// The terminal behind the standard handles.
#include <termios.h>
#include <unistd.h>

#include "platform/linux/outcome.h"
#include "platform/platform.h"

namespace {

// A standard handle is its descriptor plus one, so that none is NULL.
int Descriptor(HANDLE console)
{
    return static_cast<int>(reinterpret_cast<LONG_PTR>(console)) - 1;
}

HANDLE StandardHandle(int descriptor)
{
    return reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(descriptor) + 1);
}

}  // namespace

HANDLE WINAPI GetStdHandle(DWORD which)
{
    switch (which) {
        case STD_INPUT_HANDLE:
            return StandardHandle(STDIN_FILENO);
        case STD_ERROR_HANDLE:
            return StandardHandle(STDERR_FILENO);
        default:
            Fail(ERROR_INVALID_HANDLE);
            return INVALID_HANDLE_VALUE;
    }
}

BOOL WINAPI GetConsoleMode(HANDLE console, LPDWORD mode)
{
    termios terminal;
    if (!mode || tcgetattr(Descriptor(console), &terminal) != 0)
        return Fail(ERROR_INVALID_HANDLE);
    *mode = (terminal.c_lflag & ECHO) ? ENABLE_ECHO_INPUT : 0;
    return TRUE;
}

BOOL WINAPI SetConsoleMode(HANDLE console, DWORD mode)
{
    termios terminal;
    if (tcgetattr(Descriptor(console), &terminal) != 0)
        return Fail(ERROR_INVALID_HANDLE);
    if (mode & ENABLE_ECHO_INPUT)
        terminal.c_lflag |= static_cast<tcflag_t>(ECHO);
    else
        terminal.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    return tcsetattr(Descriptor(console), TCSAFLUSH, &terminal) == 0 ? TRUE : Fail(ERROR_INVALID_HANDLE);
}
