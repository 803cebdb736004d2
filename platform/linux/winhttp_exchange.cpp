#include "platform/linux/winhttp_exchange.h"

#include <algorithm>
#include <cerrno>
#include <new>

#include "platform/linux/win_errors.h"

namespace winhttp {
namespace {

constexpr size_t kMaxHead = 65536;  // WinHTTP's own limit on a response head

// In libcurl's terms. A broken socket counts as ready for whatever was waited for: libcurl finds the reason itself.
int ReadyEvents(const pollfd& socket)
{
    const bool broken = (socket.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0;
    const int ready = broken ? socket.events : socket.events & socket.revents;
    return ((ready & POLLIN) != 0 ? CURL_CSELECT_IN : 0) | ((ready & POLLOUT) != 0 ? CURL_CSELECT_OUT : 0);
}

}  // namespace

Exchange::~Exchange()
{
    Stop();
    curl_easy_cleanup(easy_);
    curl_multi_cleanup(multi_);
    curl_slist_free_all(connectTo_);
}

LONG Exchange::Send(const Target& target, Message message, const Timeouts& timeouts)
{
    Stop();
    message_ = std::move(message);
    timeouts_ = timeouts;
    // A transfer without TLS leaves a session cache in the handle, which libcurl would lose for the shared one.
    if (target.secure && tls_ == nullptr) {
        curl_easy_cleanup(easy_);
        easy_ = nullptr;
    }
    Create();
    Configure(timeouts);
    Aim(target);
    Begin();
    DriveUntil([this] { return headComplete_ || WholeRequestSent(); }, timeouts_.send);
    // An answer that came ahead of the request's end counts for more than the break behind it.
    return ended_ && !headComplete_ && !WholeRequestSent() ? error_ : 0;
}

LONG Exchange::ReceiveHead()
{
    DriveUntil([this] { return headComplete_; }, timeouts_.receive);
    return headComplete_ ? 0 : error_;
}

LONG Exchange::WaitForEntity()
{
    DriveUntil([this] { return !Buffered().empty(); }, timeouts_.receive);
    return Buffered().empty() ? error_ : 0;
}

void Exchange::Consume(size_t count)
{
    consumed_ += count;
    if (consumed_ < entity_.size())
        return;
    entity_.clear();
    consumed_ = 0;
}

void Exchange::Begin()
{
    if (error_ == 0 && curl_multi_add_handle(multi_, easy_) != CURLM_OK)
        error_ = ERROR_WINHTTP_INTERNAL_ERROR;
    running_ = error_ == 0;
    ended_ = !running_;
}

// Drops the transfer with its connection and forgets what it has brought.
void Exchange::Stop()
{
    if (running_)
        curl_multi_remove_handle(multi_, easy_);
    running_ = timerSet_ = connected_ = tlsRefused_ = headComplete_ = ended_ = false;
    socketCount_ = 0;
    error_ = 0;
    status_ = 0;
    head_.clear();
    entity_.clear();
    consumed_ = 0;
}

bool Exchange::WholeRequestSent() const
{
    if (!connected_)
        return false;
    if (ended_) {
        curl_off_t sent = 0;
        curl_easy_getinfo(easy_, CURLINFO_SIZE_UPLOAD_T, &sent);
        return static_cast<size_t>(sent) >= message_.bodySize;
    }
    for (size_t i = 0; i < socketCount_; ++i) {
        if ((sockets_[i].events & POLLOUT) != 0)
            return false;
    }
    return true;
}

// Drives libcurl until the condition holds or the transfer has ended. waitMs limits each wait for the
// network once the connection stands; until then libcurl's own limit on connecting is at work.
template <class Condition>
void Exchange::DriveUntil(Condition condition, int waitMs)
{
    const auto nextLimit = [&] {
        return waitMs > 0 ? Clock::now() + std::chrono::milliseconds(waitMs) : Clock::time_point::max();
    };
    Clock::time_point limit = nextLimit();
    while (!ended_ && !condition()) {
        curl_off_t connectTime = 0;
        curl_easy_getinfo(easy_, CURLINFO_CONNECT_TIME_T, &connectTime);
        const bool connecting = connectTime == 0 && !connected_;
        if (WaitForEvent(connecting ? Clock::time_point::max() : limit)) {
            limit = nextLimit();
        } else if (!ended_ && !connecting && Clock::now() >= limit) {
            error_ = ERROR_WINHTTP_TIMEOUT;
            ended_ = true;
        }
    }
}

// True when a socket was ready, false when libcurl's timer or the limit came first.
bool Exchange::WaitForEvent(Clock::time_point limit)
{
    using std::chrono::milliseconds;
    const Clock::time_point until = timerSet_ && timer_ < limit ? timer_ : limit;
    int waitMs = -1;
    if (until != Clock::time_point::max()) {
        const auto left = std::chrono::ceil<milliseconds>(until - Clock::now()).count();
        waitMs = left <= 0 ? 0 : static_cast<int>(std::min<long long>(left, 3600000));
    }
    // libcurl changes sockets_ from inside Act.
    std::array<pollfd, 8> waiting = sockets_;
    const size_t count = socketCount_;
    const bool nothingToWaitFor = count == 0 && waitMs < 0;
    const int ready = nothingToWaitFor ? -1 : poll(waiting.data(), static_cast<nfds_t>(count), waitMs);
    if (nothingToWaitFor || (ready < 0 && errno != EINTR)) {
        error_ = ERROR_WINHTTP_INTERNAL_ERROR;
        ended_ = true;
        return false;
    }
    for (size_t i = 0; ready > 0 && i < count && !ended_; ++i) {
        if (const int events = ReadyEvents(waiting[i]))
            Act(waiting[i].fd, events);
    }
    if (!ended_ && timerSet_ && Clock::now() >= timer_) {
        timerSet_ = false;
        Act(CURL_SOCKET_TIMEOUT, 0);
    }
    return ready > 0;
}

void Exchange::Act(curl_socket_t socket, int events)
{
    int stillRunning = 0;
    const CURLMcode result = curl_multi_socket_action(multi_, socket, events, &stillRunning);
    if (result != CURLM_OK) {
        error_ = result == CURLM_OUT_OF_MEMORY ? ERROR_NOT_ENOUGH_MEMORY : ERROR_WINHTTP_INTERNAL_ERROR;
        ended_ = true;
        return;
    }
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
        if (message->msg != CURLMSG_DONE)
            continue;
        ended_ = true;
        if (error_ == 0)
            error_ = ErrorFromCurl(message->data.result, tlsRefused_);
        // libcurl takes a head that breaks off after a line for a whole one.
        if (error_ == 0 && !headComplete_)
            error_ = ERROR_WINHTTP_CONNECTION_ERROR;
    }
}

int Exchange::OnSocket(CURL*, curl_socket_t socket, int what, void* self, void*)
{
    auto& exchange = *static_cast<Exchange*>(self);
    auto& sockets = exchange.sockets_;
    size_t at = 0;
    while (at < exchange.socketCount_ && sockets[at].fd != socket)
        ++at;
    if (what == CURL_POLL_REMOVE) {
        if (at < exchange.socketCount_)
            sockets[at] = sockets[--exchange.socketCount_];
        return 0;
    }
    if (at == sockets.size())
        return -1;
    if (at == exchange.socketCount_)
        ++exchange.socketCount_;
    const int events = ((what & CURL_POLL_IN) != 0 ? POLLIN : 0) | ((what & CURL_POLL_OUT) != 0 ? POLLOUT : 0);
    sockets[at] = {socket, static_cast<short>(events), 0};
    return 0;
}

int Exchange::OnTimer(CURLM*, long waitMs, void* self)
{
    auto& exchange = *static_cast<Exchange*>(self);
    exchange.timerSet_ = waitMs >= 0;
    if (exchange.timerSet_)
        exchange.timer_ = Clock::now() + std::chrono::milliseconds(waitMs);
    return 0;
}

int Exchange::OnConnected(void* self, char*, char*, int, int)
{
    static_cast<Exchange*>(self)->connected_ = true;
    return CURL_PREREQFUNC_OK;
}

size_t Exchange::OnHeadLine(char* line, size_t, size_t size, void* self)
{
    auto& exchange = *static_cast<Exchange*>(self);
    try {
        if (!exchange.headComplete_)
            exchange.AddHeadLine(std::string_view(line, size));
    } catch (const std::bad_alloc&) {
        exchange.error_ = ERROR_NOT_ENOUGH_MEMORY;
    }
    return exchange.error_ == 0 ? size : 0;
}

// An interim head gives way to the next one; what comes behind the final head are trailers.
void Exchange::AddHeadLine(std::string_view line)
{
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
        line.remove_suffix(1);
    if (head_.empty()) {
        const size_t blank = line.find(' ');
        status_ = 0;
        for (size_t i = blank + 1;
             blank != std::string_view::npos && i < line.size() && line[i] >= '0' && line[i] <= '9'; ++i)
            status_ = status_ * 10 + static_cast<DWORD>(line[i] - '0');
    }
    if (head_.size() + line.size() + 2 > kMaxHead) {
        error_ = ERROR_WINHTTP_HEADER_SIZE_OVERFLOW;
        return;
    }
    head_.append(line).append("\r\n");
    if (!line.empty())
        return;
    headComplete_ = status_ >= 200 || status_ == 101;
    if (!headComplete_)
        head_.clear();
}

size_t Exchange::OnEntity(char* data, size_t, size_t size, void* self)
{
    auto& exchange = *static_cast<Exchange*>(self);
    try {
        exchange.entity_.append(data, size);
        return size;
    } catch (const std::bad_alloc&) {
        exchange.error_ = ERROR_NOT_ENOUGH_MEMORY;
        return 0;
    }
}

}  // namespace winhttp
