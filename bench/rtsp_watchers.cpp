#include "bench/rtsp_watchers.h"

#include <cstdlib>
#include <stdexcept>

#include "bench/client_socket.h"

namespace {

constexpr int64_t kKeepaliveNs = 20000000000LL;
constexpr size_t kReplyLimit = 8192;

struct RtspDialogue {
    int fd;
    int sequence = 0;
    std::string session = {};
};

// What a header line holds behind its name, without parameters; empty when there is none.
std::string HeaderOf(const std::string& reply, const std::string& name)
{
    const size_t at = reply.find("\r\n" + name + ": ");
    if (at == std::string::npos)
        return {};
    const size_t begin = at + name.size() + 4;
    return reply.substr(begin, reply.find_first_of(";\r", begin) - begin);
}

void SendRequest(RtspDialogue& dialogue, const std::string& method, const std::string& url,
                 const std::string& headers)
{
    const std::string session = dialogue.session.empty() ? "" : "Session: " + dialogue.session + "\r\n";
    const std::string text = method + ' ' + url +
                             " RTSP/1.0\r\nCSeq: " + std::to_string(++dialogue.sequence) + "\r\n" + session +
                             headers + "\r\n";
    SendAll(dialogue.fd, text.data(), text.size());
}

// Sends a request and returns the body of its answer, which must be a success.
std::string Ask(RtspDialogue& dialogue, const std::string& method, const std::string& url,
                const std::string& headers = "")
{
    SendRequest(dialogue, method, url, headers);
    const std::string reply = ReadUpTo(dialogue.fd, "\r\n\r\n", kReplyLimit);
    if (!reply.starts_with("RTSP/1.0 200"))
        throw std::runtime_error(method + " is answered with " + reply.substr(0, reply.find('\r')));
    if (const std::string session = HeaderOf(reply, "Session"); !session.empty())
        dialogue.session = session;
    std::string body(strtoull(HeaderOf(reply, "Content-Length").c_str(), nullptr, 10), '\0');
    ReadExactly(dialogue.fd, reinterpret_cast<uint8_t*>(body.data()), body.size());
    return body;
}

// The URL of the one stream that the description lists.
std::string StreamUrl(const std::string& url, const std::string& description)
{
    const size_t media = description.find("\r\nm=video");
    const std::string control = "\r\na=control:";
    const size_t at = media == std::string::npos ? media : description.find(control, media);
    if (at == std::string::npos)
        throw std::runtime_error("the RTSP server describes no video");
    const size_t begin = at + control.size();
    const std::string name = description.substr(begin, description.find('\r', begin) - begin);
    return name.starts_with("rtsp://") ? name : url + '/' + name;
}

// Goes through the set-up and returns the session; what follows on the connection is the stream.
std::string Play(int fd, const std::string& url)
{
    RtspDialogue dialogue{.fd = fd};
    (void)Ask(dialogue, "OPTIONS", url);
    const std::string description = Ask(dialogue, "DESCRIBE", url, "Accept: application/sdp\r\n");
    (void)Ask(dialogue, "SETUP", StreamUrl(url, description),
              "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n");
    SendRequest(dialogue, "PLAY", url, "Range: npt=now-\r\n");
    return dialogue.session;
}

std::string UrlOf(uint16_t port)
{
    return "rtsp://127.0.0.1:" + std::to_string(port) + "/live";
}

} // namespace

RtspWatchers::RtspWatchers(const FramePattern& stream, uint16_t port, size_t count)
{
    std::vector<int> fds;
    for (size_t watcher = 0; watcher < count; ++watcher) {
        sockets_.push_back(ConnectTo(port));
        fds.push_back(sockets_.back().get());
        sessions_.push_back(Play(fds.back(), UrlOf(port)));
        parsers_.push_back({.pattern = &stream});
    }
    nextKeepaliveNs_ = MonotonicNs() + kKeepaliveNs;
    const auto take = [this](size_t watcher, const uint8_t* data, size_t bytes,
                             int64_t nowNs) -> const std::vector<ReceivedFrame>& {
        ParseRtp(parsers_[watcher], data, bytes, nowNs);
        return parsers_[watcher].frames;
    };
    receiver_.emplace(std::move(fds), count, FrameReceiver::Calls{take, [this] { KeepAlive(); }});
}

void RtspWatchers::KeepAlive()
{
    if (MonotonicNs() < nextKeepaliveNs_)
        return;
    nextKeepaliveNs_ += kKeepaliveNs;
    for (size_t watcher = 0; watcher < sockets_.size(); ++watcher) {
        RtspDialogue dialogue{.fd = sockets_[watcher].get(), .session = sessions_[watcher]};
        SendRequest(dialogue, "OPTIONS", "*", "");
    }
}
