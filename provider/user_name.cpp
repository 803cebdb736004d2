#include "provider/user_name.h"

void FetchUserName(WCHAR (&name)[kUserNameChars])
{
    DWORD size = kUserNameChars;
    if (!GetUserNameW(name, &size))
        name[0] = 0;
}
