#include "platform/linux/winhttp_exchange.h"

#include <sys/select.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <new>
#include <utility>

#include "platform/linux/openssl_errors.h"
#include "platform/linux/win_constants.h"

namespace winhttp {
namespace {

constexpr size_t kMaxHead = 65536;  // WinHTTP's limit on a response head, and ours on a request's
constexpr int kTotalOverSilence = 3;
// libcurl 7.88 gives up on a silent address without opening the next one's socket or setting a timer.
constexpr std::chrono::milliseconds kConnectTurn(100);

int Total(int silenceMs)
{
    return silenceMs > INT_MAX / kTotalOverSilence ? 0 : silenceMs * kTotalOverSilence;
}

// The size of the request line and of the line ends around the head.
size_t SizeOfRequestLine(std::string_view verb, const Target& target)
{
    return verb.size() + target.path.size() + std::string_view("  HTTP/1.1\r\n\r\n").size();
}

// The number after the first space of a status line, or 0.
DWORD StatusOf(std::string_view line)
{
    const size_t blank = line.find(' ');
    line.remove_prefix(blank == std::string_view::npos ? line.size() : blank + 1);
    DWORD status = 0;
    std::from_chars(line.data(), line.data() + line.size(), status);
    return status;
}

}  // namespace

Exchange::~Exchange()
{
    Stop();
}

LONG Exchange::Send(const Target& target, Message message, const Timeouts& timeouts, DWORD ignored)
{
    Stop();
    message_ = std::move(message);
    timeouts_ = timeouts;
    ignored_ = ignored;
    if (SizeOfRequestLine(message_.verb, target) + message_.head.size() > kMaxHead)
        return ERROR_WINHTTP_HEADER_SIZE_OVERFLOW;
    transfer_ = TakeTransfer();
    Configure(timeouts);
    Aim(target);
    Begin();
    DriveUntil([this] { return headComplete_ || WholeRequestSent(); }, {timeouts_.send, Total(timeouts_.send)});
    // An early response matters more than the broken connection after it.
    return ended_ && !headComplete_ && !WholeRequestSent() ? error_ : 0;
}

LONG Exchange::ReceiveHead()
{
    DriveUntil([this] { return headComplete_; }, {timeouts_.receive, Total(timeouts_.receive)});
    return headComplete_ ? 0 : error_;
}

LONG Exchange::WaitForEntity()
{
    DriveUntil([this] { return !Buffered().empty(); }, {0, timeouts_.receive});
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
    if (error_ == 0 && curl_multi_add_handle(multi(), easy()) != CURLM_OK)
        error_ = ERROR_WINHTTP_INTERNAL_ERROR;
    running_ = error_ == 0;
    ended_ = !running_;
}

// Drops the transfer, its connection and everything received.
void Exchange::Stop()
{
    const QuietOpenssl quiet;
    if (running_)
        curl_multi_remove_handle(multi(), easy());
    if (running_ && ended_ && error_ == 0)
        ReturnTransfer(std::move(transfer_));
    transfer_.reset();
    running_ = connected_ = tlsRefused_ = headComplete_ = ended_ = false;
    peer_.reset();
    error_ = 0;
    status_ = 0;
    headSize_ = 0;
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
        curl_easy_getinfo(easy(), CURLINFO_SIZE_UPLOAD_T, &sent);
        return static_cast<size_t>(sent) >= message_.bodySize;
    }
    // libcurl watches for writability as long as something is left to send. Descriptors beyond the set's size are
    // ignored: the rest is then sent while waiting for the response.
    fd_set reading;
    fd_set writing;
    fd_set failing;
    FD_ZERO(&reading);
    FD_ZERO(&writing);
    FD_ZERO(&failing);
    int last = -1;
    curl_multi_fdset(multi(), &reading, &writing, &failing, &last);
    for (int socket = 0; socket <= last; ++socket) {
        if (FD_ISSET(socket, &writing))
            return false;
    }
    return true;
}

// Drives libcurl until the condition holds or the transfer has ended. The limits start once it is connected;
// until then libcurl's connect time-out applies.
template <class Condition>
void Exchange::DriveUntil(Condition condition, Limits limits)
{
    const QuietOpenssl quiet;
    const auto after = [](int waitMs) {
        return waitMs > 0 ? Clock::now() + std::chrono::milliseconds(waitMs) : Clock::time_point::max();
    };
    Clock::time_point silence = after(limits.silenceMs);
    Clock::time_point total = after(limits.totalMs);
    while (!ended_ && !condition()) {
        const bool connecting = Connecting();
        const bool active = Wait(connecting ? Clock::now() + kConnectTurn : std::min(silence, total));
        Perform();
        if (active || connecting)
            silence = after(limits.silenceMs);
        if (connecting)
            total = after(limits.totalMs);
        if (!ended_ && !condition() && Clock::now() >= std::min(silence, total))
            End(ERROR_WINHTTP_TIMEOUT);
    }
}

bool Exchange::Connecting() const
{
    curl_off_t connectTime = 0;
    curl_easy_getinfo(easy(), CURLINFO_CONNECT_TIME_T, &connectTime);
    return connectTime == 0 && !connected_;
}

// True if a socket was ready, false if libcurl's timer or the limit expired first.
bool Exchange::Wait(Clock::time_point until)
{
    using std::chrono::milliseconds;
    long long waitMs = 3600000;
    if (until != Clock::time_point::max())
        waitMs = std::clamp<long long>(std::chrono::ceil<milliseconds>(until - Clock::now()).count(), 0, waitMs);
    int ready = 0;
    if (curl_multi_poll(multi(), nullptr, 0, static_cast<int>(waitMs), &ready) != CURLM_OK)
        End(ERROR_WINHTTP_INTERNAL_ERROR);
    return ready > 0;
}

void Exchange::Perform()
{
    int stillRunning = 0;
    const CURLMcode result = ended_ ? CURLM_OK : curl_multi_perform(multi(), &stillRunning);
    if (result != CURLM_OK)
        return End(result == CURLM_OUT_OF_MEMORY ? ERROR_NOT_ENOUGH_MEMORY : ERROR_WINHTTP_INTERNAL_ERROR);
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi(), &left)) {
        if (message->msg != CURLMSG_DONE)
            continue;
        // libcurl reports a line of over 100 KB, or a trailer of over 4 KB, as out of memory.
        long sent = 0;
        curl_easy_getinfo(easy(), CURLINFO_REQUEST_SIZE, &sent);
        const bool longLine = message->data.result == CURLE_OUT_OF_MEMORY && sent != 0;
        End(longLine ? ERROR_WINHTTP_HEADER_SIZE_OVERFLOW : ErrorFromCurl(message->data.result, tlsRefused_));
    }
}

// Keeps the first error.
void Exchange::End(LONG error)
{
    ended_ = true;
    if (error_ == 0)
        error_ = error;
    // libcurl accepts a head that is cut off after a complete line.
    if (error_ == 0 && !headComplete_)
        error_ = ERROR_WINHTTP_CONNECTION_ERROR;
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
        exchange.AddHeadLine(std::string_view(line, size));
    } catch (const std::bad_alloc&) {
        exchange.error_ = ERROR_NOT_ENOUGH_MEMORY;
    }
    return exchange.error_ == 0 ? size : 0;
}

// Drops interim heads; lines after the final head are trailers.
void Exchange::AddHeadLine(std::string_view line)
{
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
        line.remove_suffix(1);
    headSize_ += line.size() + 2;
    if (headSize_ > kMaxHead)
        error_ = ERROR_WINHTTP_HEADER_SIZE_OVERFLOW;
    if (error_ != 0 || headComplete_)
        return;
    if (head_.empty())
        status_ = StatusOf(line);
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
