// Windows' sockets, for sockets.cpp.
#pragma once

// Before windows.h.
#include <winsock2.h>
#include <ws2tcpip.h>

#include <string>

#include "kelvaroctl/places.h"

namespace kelvaroctl {

struct SocketSystem {
    using Handle = SOCKET;
    static constexpr int kConnecting = WSAEWOULDBLOCK;
    static constexpr int kTimedOut = WSAETIMEDOUT;
    static constexpr int kSendFlags = 0;

    static int Start()
    {
        WSADATA data;
        return WSAStartup(MAKEWORD(2, 2), &data);
    }
    static Handle Open(int family)
    {
        const Handle handle = socket(family, SOCK_STREAM, 0);
        u_long on = 1;
        ioctlsocket(handle, FIONBIO, &on);
        return handle;
    }
    static void Close(Handle handle) { closesocket(handle); }
    static int LastError() { return WSAGetLastError(); }
    static std::string Text(int error) { return LoaderMessage(static_cast<DWORD>(error)); }
    static std::string NameText(int error) { return Text(error); }
    static void Redirect(std::string*, INTERNET_PORT*) {}
};

}  // namespace kelvaroctl
