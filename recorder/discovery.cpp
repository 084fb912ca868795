#include "recorder/discovery.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <memory>
#include <random>
#include <set>

#include "recorder/address_text.h"
#include "recorder/failure.h"

namespace {

constexpr uint16_t kAnswerPort = 34569;
constexpr size_t kMaxCameras = 4096;       // what else comes is no network of cameras
constexpr size_t kMostRequestBytes = 1024; // a camera reads no more
constexpr milliseconds kAskAgain{1000};

struct InterfaceListDelete {
    void operator()(ifaddrs* list) const { freeifaddrs(list); }
};

// Indices of the interfaces that are up, have an IPv4 address and can broadcast.
std::set<unsigned> BroadcastInterfaces()
{
    ifaddrs* first = nullptr;
    (void)getifaddrs(&first); // null on failure: the routing table then decides alone
    const std::unique_ptr<ifaddrs, InterfaceListDelete> list(first);
    std::set<unsigned> indices;
    for (const ifaddrs* i = list.get(); i != nullptr; i = i->ifa_next)
        if (i->ifa_addr != nullptr && i->ifa_addr->sa_family == AF_INET && (i->ifa_flags & IFF_UP) != 0 &&
            (i->ifa_flags & IFF_BROADCAST) != 0)
            indices.insert(if_nametoindex(i->ifa_name));
    return indices;
}

sockaddr_in SearchAddress(uint32_t host)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(kAnswerPort);
    address.sin_addr.s_addr = htonl(host);
    return address;
}

// Sends through the interface with this index, whatever the routing table says; 0: as that says.
int Broadcast(int fd, std::string datagram, unsigned interfaceIndex)
{
    sockaddr_in to = SearchAddress(INADDR_BROADCAST);
    iovec bytes{datagram.data(), datagram.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(in_pktinfo))] = {};
    msghdr message{};
    message.msg_name = &to;
    message.msg_namelen = sizeof to;
    message.msg_iov = &bytes;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    in_pktinfo info{};
    info.ipi_ifindex = static_cast<int>(interfaceIndex);
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = IPPROTO_IP;
    header->cmsg_type = IP_PKTINFO;
    header->cmsg_len = CMSG_LEN(sizeof info);
    memcpy(CMSG_DATA(header), &info, sizeof info);
    return sendmsg(fd, &message, MSG_DONTWAIT) < 0 ? errno : 0;
}

std::string Text(const cJSON* object, const char* key)
{
    const char* text = GetJsonString(object, key);
    return text != nullptr ? text : "";
}

int Port(const cJSON* object, const char* key)
{
    const int port = GetJsonNumber(object, key);
    return port >= 1 && port <= 65535 ? port : 0;
}

// Header and body length of a message with this id; the body, or nothing.
std::optional<std::string_view> BodyOf(std::span<const uint8_t> datagram, uint16_t messageId)
{
    const MessageHeader header = ReadHeader(datagram.data(), datagram.size());
    if (datagram.size() < kHeaderBytes || header.ucHeadFlag != kHeadFlag || header.ucVersion != kVersion ||
        header.usMessageId != messageId || header.ulBodyLength != datagram.size() - kHeaderBytes)
        return std::nullopt;
    return std::string_view(reinterpret_cast<const char*>(datagram.data()) + kHeaderBytes,
                            header.ulBodyLength);
}

} // namespace

std::string UpperCase(std::string text)
{
    for (char& letter : text)
        letter = static_cast<char>(toupper(static_cast<unsigned char>(letter)));
    return text;
}

std::optional<FoundCamera> ReadSearchAnswer(std::span<const uint8_t> datagram)
{
    const auto body = BodyOf(datagram, kDevSearchReply);
    const JsonPtr answer(body ? cJSON_ParseWithLength(body->data(), body->size()) : nullptr);
    const cJSON* object = GetJsonMember(answer.get(), "NetWork.NetCommon");
    const auto address = HexToDotted(GetJsonString(object, "HostIP"));
    FoundCamera camera;
    camera.mac = Text(object, "MAC");
    if (!address || !IsMac(camera.mac))
        return std::nullopt;
    camera.address = *address;
    camera.mask = HexToDotted(GetJsonString(object, "Submask")).value_or("");
    camera.gateway = HexToDotted(GetJsonString(object, "GateWay")).value_or("");
    camera.hostName = Text(object, "HostName");
    camera.serial = Text(object, "SN");
    camera.tcpPort = Port(object, "TCPPort");
    camera.httpPort = Port(object, "HttpPort");
    camera.netCommon = CopyJson(object);
    return camera;
}

JsonPtr FoundCameraJson(const FoundCamera& camera)
{
    JsonPtr object(cJSON_CreateObject());
    const std::pair<const char*, const std::string*> kTexts[] = {
        {"address", &camera.address}, {"mask", &camera.mask},         {"gateway", &camera.gateway},
        {"mac", &camera.mac},         {"hostName", &camera.hostName}, {"serial", &camera.serial}};
    for (const auto& [key, text] : kTexts)
        cJSON_AddStringToObject(object.get(), key, text->c_str());
    cJSON_AddNumberToObject(object.get(), "tcpPort", camera.tcpPort);
    cJSON_AddNumberToObject(object.get(), "httpPort", camera.httpPort);
    return object;
}

SearchSocket::SearchSocket(const std::string& interface)
    : interface_(interface), fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)),
      seqNum_(std::random_device{}()) // answers to other recorders are told apart
{
    const int on = 1;
    const sockaddr_in own = SearchAddress(INADDR_ANY);
    if (!interface.empty() && setsockopt(fd_.get(), SOL_SOCKET, SO_BINDTODEVICE, interface.data(),
                                         static_cast<socklen_t>(interface.size())) != 0)
        throw Failure(kExitUsage, "interface '" + interface + "': " + strerror(errno));
    if (setsockopt(fd_.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0 ||
        setsockopt(fd_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        bind(fd_.get(), reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0)
        throw Failure(kExitLocal, "cannot listen on port " + std::to_string(kAnswerPort) +
                                      ", where cameras answer: " + strerror(errno));
}

uint32_t SearchSocket::Send(uint16_t messageId, const std::string& body)
{
    MessageHeader header{};
    header.ucHeadFlag = kHeadFlag;
    header.ucVersion = kVersion;
    header.ulSeqNum = seqNum_++;
    header.usMessageId = messageId;
    header.ulBodyLength = static_cast<uint32_t>(body.size());
    std::string datagram(kHeaderBytes, '\0');
    memcpy(datagram.data(), &header, kHeaderBytes);
    datagram += body;
    std::set<unsigned> interfaces = interface_.empty() ? BroadcastInterfaces() : std::set<unsigned>{};
    if (interfaces.empty())
        interfaces.insert(0);
    int error = 0;
    size_t sent = 0;
    for (const unsigned index : interfaces) {
        const int result = Broadcast(fd_.get(), datagram, index);
        sent += result == 0;
        error = result != 0 ? result : error;
    }
    if (sent == 0 && error != EAGAIN) // a full queue: as lost as any datagram
        throw Failure(kExitUnreachable, std::string("cannot broadcast: ") + strerror(error));
    return header.ulSeqNum;
}

std::optional<std::span<const uint8_t>> SearchSocket::Receive(TimePoint deadline)
{
    for (;;) {
        pollfd entry{fd_.get(), POLLIN, 0};
        const int ready = poll(&entry, 1, PollTimeout(deadline));
        const ssize_t got = ready > 0 ? recv(fd_.get(), buffer_, sizeof buffer_, MSG_TRUNC) : -1;
        if (got >= 0 && static_cast<size_t>(got) <= sizeof buffer_)
            return std::span<const uint8_t>(buffer_, static_cast<size_t>(got));
        if (Clock::now() >= deadline)
            return std::nullopt;
    }
}

FoundCameras Search(SearchSocket& socket, TimePoint deadline,
                    const std::function<bool(const FoundCamera&)>& isEnough)
{
    FoundCameras found;
    TimePoint nextAsk = Clock::now();
    while (Clock::now() < deadline) {
        if (Clock::now() >= nextAsk) {
            socket.Send(kDevSearchReq, "");
            nextAsk = Clock::now() + kAskAgain;
        }
        const auto datagram = socket.Receive(std::min(nextAsk, deadline));
        auto camera = datagram ? ReadSearchAnswer(*datagram) : std::nullopt;
        if (!camera)
            continue;
        const std::string key = UpperCase(camera->mac);
        if (found.size() >= kMaxCameras && found.count(key) == 0)
            continue;
        const FoundCamera& kept = found[key] = std::move(*camera);
        if (isEnough(kept))
            break;
    }
    return found;
}

std::optional<FoundCamera> SearchFor(SearchSocket& socket, const std::string& mac, const cJSON* wanted,
                                     TimePoint deadline)
{
    const std::string key = UpperCase(mac);
    FoundCameras found = Search(socket, deadline, [&](const FoundCamera& camera) {
        return UpperCase(camera.mac) == key &&
               (wanted == nullptr || CompareWanted(wanted, camera.netCommon.get()).empty());
    });
    const auto camera = found.find(key);
    return camera != found.end() ? std::optional(std::move(camera->second)) : std::nullopt;
}

void SendIpSetting(SearchSocket& socket, const cJSON* settings, TimePoint deadline)
{
    const std::string body = PrintJson(settings, false);
    if (body.size() > kMostRequestBytes - kHeaderBytes)
        throw Failure(kExitUsage, "the settings are longer than a camera reads");
    while (Clock::now() < deadline) {
        const uint32_t seqNum = socket.Send(kDevIpSettingReq, body);
        const TimePoint nextAsk = std::min(Clock::now() + kAskAgain, deadline);
        while (const auto datagram = socket.Receive(nextAsk))
            if (BodyOf(*datagram, kDevIpSettingReply) &&
                ReadHeader(datagram->data(), datagram->size()).ulSeqNum == seqNum)
                return;
    }
}
