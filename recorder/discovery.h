// Cameras on the local network: the search that every camera answers, and the request that moves one.
//
// Both are datagrams to 255.255.255.255:34569, so they reach cameras whose address belongs to another
// network. Answers are broadcast to the same port, which therefore is bound here; other recorders may bind
// it too. Anybody may send there: an answer counts only if all of it can be meant.
// Thread-bound. Failures are thrown as Failure.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>

#include "common/unique_fd.h"
#include "recorder/connection.h"
#include "recorder/json.h"

struct FoundCamera {
    std::string mac; // as the camera spells it
    std::string address, mask, gateway;
    std::string hostName, serial;
    int tcpPort = 0, httpPort = 0; // 0 when the camera names none
    JsonPtr netCommon;             // the answer's own object
};
using FoundCameras = std::map<std::string, FoundCamera>; // by MAC in upper case

// The camera that a datagram describes; nothing for every other datagram.
std::optional<FoundCamera> ReadSearchAnswer(std::span<const uint8_t> datagram);
// {"address", "mac", ...}, without the protocol's own object.
JsonPtr FoundCameraJson(const FoundCamera& camera);
std::string UpperCase(std::string text);

class SearchSocket {
  public:
    // With no interface named, requests go out on all that can broadcast.
    explicit SearchSocket(const std::string& interface);

    // Sends one datagram and returns its sequence number.
    uint32_t Send(uint16_t messageId, const std::string& body);
    // The next datagram before the deadline. It lies in the socket's buffer until the next call.
    std::optional<std::span<const uint8_t>> Receive(TimePoint deadline);

  private:
    std::string interface_;
    UniqueFd fd_;
    uint32_t seqNum_;
    uint8_t buffer_[2048]; // an answer has at most 1024 bytes
};

// Searches until the deadline, or until `isEnough` says so of a camera that has just answered. Asks once a
// second, for datagrams get lost. A camera that answers twice counts once, as it answered last.
FoundCameras Search(SearchSocket& socket, TimePoint deadline,
                    const std::function<bool(const FoundCamera&)>& isEnough);

// Searches for one camera until what it answers holds all of `wanted`, members of its network object; at
// the deadline as it answered last, or nothing when it has not.
std::optional<FoundCamera> SearchFor(SearchSocket& socket, const std::string& mac, const cJSON* wanted,
                                     TimePoint deadline);

// Sends the request that gives one camera these settings, until some camera has answered it. Every camera
// on the network answers, whether it was meant or not: only a search tells what has become of it.
void SendIpSetting(SearchSocket& socket, const cJSON* settings, TimePoint deadline);
