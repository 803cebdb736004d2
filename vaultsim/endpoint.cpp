#include "vaultsim/endpoint.h"

#include <sys/socket.h>

#include <algorithm>
#include <thread>

#include "vaultsim/refusal.h"
#include "vaultsim/text.h"

namespace vaultsim {

namespace {

constexpr char kHttpDate[] = "%a, %d %b %Y %H:%M:%S GMT";
constexpr size_t kMostHead = 64 * 1024;
constexpr size_t kMostBody = 16 * 1024 * 1024;

// Thrown for a request that would never reach a service.
struct BadRequest {
    Call call;
    int status;
    const char* text;
};

std::optional<size_t> LengthOf(const Call& call)
{
    const std::optional<std::string> text = call.Header("Content-Length");
    return text && IsNumber(*text, 9) ? std::optional<size_t>(std::stoul(*text)) : std::nullopt;
}

}  // namespace

Endpoint::Endpoint(std::string name, int port, const Authority* authority, EndpointContext context, Handler handler)
    : name_(std::move(name)), authority_(authority), context_(std::move(context)), handler_(std::move(handler))
{
    listener_ = std::make_unique<Listener>(context_.address, port, [this](int socket) { Accepted(socket); });
}

Endpoint::~Endpoint()
{
    listener_->Down();
    std::unique_lock<std::mutex> lock(mutex_);
    for (int socket : open_)
        shutdown(socket, SHUT_RDWR);
    ending_ = true;
    work_.notify_all();
    gone_.wait(lock, [this] { return threads_ == 0; });
}

// Threads are reused: OpenSSL seeds a random generator for each new thread, which takes as long as a short handshake.
void Endpoint::Accepted(int socket)
{
    context_.counts.connections++;
    const std::lock_guard<std::mutex> lock(mutex_);
    open_.insert(socket);
    waiting_.push(socket);
    if (idle_ >= waiting_.size()) {
        work_.notify_one();
    } else {
        threads_++;
        std::thread(&Endpoint::Work, this).detach();
    }
}

void Endpoint::Work()
{
    std::unique_lock<std::mutex> lock(mutex_);
    while (true) {
        idle_++;
        work_.wait(lock, [this] { return !waiting_.empty() || ending_; });
        idle_--;
        if (waiting_.empty())
            break;
        const int socket = waiting_.front();
        waiting_.pop();
        lock.unlock();
        Serve(socket);
        lock.lock();
    }
    threads_--;
    gone_.notify_all();
}

void Endpoint::Serve(int socket)
{
    Connection connection(socket, authority_ ? authority_->Current() : nullptr);
    Talk(connection);
    const std::lock_guard<std::mutex> lock(mutex_);
    open_.erase(socket);
}

void Endpoint::Talk(Connection& connection)
{
    const bool connected = connection.Handshake();
    if (authority_)
        (connected ? context_.counts.tlsHandshakes : context_.counts.failedHandshakes)++;
    if (!connected)
        return;
    std::string buffer;
    try {
        while (const std::optional<Call> call = ReadCall(connection, buffer)) {
            if (!Exchange(connection, *call))
                return;
        }
    } catch (const BadRequest& bad) {
        context_.counts.requests++;
        context_.journal.Add(bad.call, bad.status, "");
        const Answer answer = TextAnswer(bad.status, bad.text);
        connection.Write(FormatHead(answer, true) + answer.body);
    }
}

// The connection's next request; what follows it stays in `buffer`. Nothing at the end of the connection.
// Throws BadRequest.
std::optional<Call> Endpoint::ReadCall(Connection& connection, std::string& buffer)
{
    size_t end;
    while ((end = buffer.find("\r\n\r\n")) == std::string::npos) {
        if (buffer.size() > kMostHead)
            throw BadRequest{Call(), 400, "Request Too Long"};
        if (!connection.Read(buffer))
            return std::nullopt;
    }
    Call unread;
    unread.listener = name_;
    unread.requestLine = buffer.substr(0, buffer.find("\r\n"));
    std::optional<Call> call = ParseHead(std::string_view(buffer).substr(0, end));
    buffer.erase(0, end + 4);
    if (!call)
        throw BadRequest{unread, 400, "Bad Request"};
    call->listener = name_;

    const std::optional<size_t> length = LengthOf(*call);
    if (!length && (call->Header("Content-Length") || call->Header("Transfer-Encoding")))
        throw BadRequest{*call, 400, "Bad Request - Invalid Length"};
    if (!length && call->method == "POST")
        throw BadRequest{*call, 411, "Length Required"};
    if (length.value_or(0) > kMostBody)
        throw BadRequest{*call, 400, "Request Too Long"};
    if (call->Header("Expect"))
        connection.Write("HTTP/1.1 100 Continue\r\n\r\n");
    while (buffer.size() < length.value_or(0)) {
        if (!connection.Read(buffer))
            return std::nullopt;
    }
    call->body = buffer.substr(0, length.value_or(0));
    buffer.erase(0, length.value_or(0));
    return call;
}

// True if the connection stays open.
bool Endpoint::Exchange(Connection& connection, const Call& call)
{
    context_.counts.requests++;
    const std::optional<Fault> fault = context_.faults.Take(call);
    if (fault && fault->action != FaultAction::Drip)
        context_.pauser.Sleep(fault->delayMs);
    Answer answer;
    if (!fault || fault->perform)
        answer = handler_(call);
    if (fault)
        answer = fault->Replace(answer);
    if (!HeaderValue(answer.headerLines, "Date"))
        SetHeader(answer, "Date: " + UtcText(Now() + context_.settings.Get().clockOffsetSeconds, kHttpDate));

    const bool answered = !fault || (fault->action != FaultAction::ResetBefore && fault->action != FaultAction::Raw);
    context_.journal.Add(call, answered ? answer.status : 0, fault ? fault->actionName : "");
    const bool close =
        (authority_ && context_.closing) || EqualsNoCase(call.Header("Connection").value_or(""), "close");
    return Deliver(connection, answer, fault, close) && !close;
}

bool Endpoint::Deliver(Connection& connection, const Answer& answer, const std::optional<Fault>& fault, bool close)
{
    const FaultAction action = fault ? fault->action : FaultAction::Status;
    if (action == FaultAction::ResetBefore) {
        connection.Reset();
        return false;
    }
    if (action == FaultAction::Raw) {
        bool open = connection.Write(fault->raw);
        while (open && !fault->repeat.empty())
            open = connection.Write(fault->repeat);
        return false;
    }
    const std::string head = FormatHead(answer, close);
    const std::string whole = head + answer.body;
    if (action == FaultAction::ResetInside || action == FaultAction::Truncate) {
        const size_t sent = std::min(fault->afterBytes + (fault->inHead ? 0 : head.size()), whole.size());
        connection.Write(std::string_view(whole).substr(0, sent));
        if (action == FaultAction::ResetInside)
            connection.Reset();
        return false;
    }
    const size_t piece = action == FaultAction::Drip ? std::max<size_t>(fault->afterBytes, 1) : whole.size();
    for (size_t at = 0; at < whole.size(); at += piece) {
        if (at > 0)
            context_.pauser.Sleep(fault->delayMs);
        if (!connection.Write(std::string_view(whole).substr(at, piece)))
            return false;
    }
    return true;
}

}  // namespace vaultsim
