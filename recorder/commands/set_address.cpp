#include <CLI/Option.hpp>

#include <algorithm>
#include <cstdio>
#include <memory>

#include "recorder/address_text.h"
#include "recorder/commands/commands.h"
#include "recorder/config_read.h"
#include "recorder/discovery.h"
#include "recorder/failure.h"
#include "recorder/settings.h"

namespace {

constexpr milliseconds kListenForDuplicates{1500};
constexpr char kNetCommon[] = "NetWork.NetCommon";

struct AddressOptions {
    std::string address, mask, gateway, name, interface;
    int httpPort = 0, tcpPort = 0; // 0: as it is
};

void AddAddress(cJSON* object, const char* key, const std::string& dotted)
{
    if (dotted.empty())
        return;
    const auto hex = DottedToHex(dotted);
    if (!hex)
        throw Failure(kExitUsage, "'" + dotted + "' is no IPv4 address");
    cJSON_AddStringToObject(object, key, hex->c_str());
}

// What the user wants, in the words of the protocol.
JsonPtr Wanted(const AddressOptions& options)
{
    JsonPtr object(cJSON_CreateObject());
    AddAddress(object.get(), "HostIP", options.address);
    AddAddress(object.get(), "Submask", options.mask);
    AddAddress(object.get(), "GateWay", options.gateway);
    if (!options.name.empty())
        cJSON_AddStringToObject(object.get(), "HostName", options.name.c_str());
    if (options.httpPort != 0) {
        if (!IsSettableHttpPort(options.httpPort))
            throw Failure(kExitUsage, "cameras take HTTP port 80 or 1025 to 65534");
        cJSON_AddNumberToObject(object.get(), "HttpPort", options.httpPort);
    }
    if (options.tcpPort != 0)
        cJSON_AddNumberToObject(object.get(), "TCPPort", options.tcpPort);
    return object;
}

// Of cameras that share one address, such as that of the factory, none can be meant by it.
JsonPtr FindByAddress(SearchSocket& socket, const std::string& address, TimePoint deadline)
{
    const FoundCameras found = Search(socket, deadline, [](const auto&) { return false; });
    const FoundCamera* match = nullptr;
    for (const auto& [mac, camera] : found) {
        if (camera.address != address)
            continue;
        if (match != nullptr)
            throw Failure(kExitUsage, address + " is the address of " + match->mac + " and " + camera.mac +
                                          ": name the MAC instead");
        match = &camera;
    }
    return match != nullptr ? CopyJson(match->netCommon.get()) : nullptr;
}

// The camera's present settings: by a search, and where that does not reach, by asking the camera itself.
JsonPtr FindSettings(SearchSocket& socket, const CommonOptions& common)
{
    const TimePoint deadline = Clock::now() + common.timeout();
    if (IsMac(common.host)) {
        const auto camera = SearchFor(socket, common.host, nullptr, deadline);
        if (!camera)
            throw Failure(kExitTimedOut, "no camera with the MAC " + common.host + " answers the search");
        return CopyJson(camera->netCommon.get());
    }
    if (JsonPtr settings = FindByAddress(socket, common.address().host,
                                         std::min(deadline, Clock::now() + kListenForDuplicates)))
        return settings;
    Session session(common.address(), common.timeout());
    session.Login();
    return ReadConfig(session, kNetCommon);
}

// The whole request: a missing port would be written as 65535. Nothing but what belongs into it is taken
// over from an answer.
JsonPtr MakeSettings(const cJSON* present, const cJSON* wanted)
{
    JsonPtr settings = CopyJson(wanted);
    for (const char* key :
         {"MAC", "GateWay", "HostIP", "HostName", "HttpPort", "MaxBps", "MonMode", "SSLPort", "Submask",
          "TCPMaxConn", "TCPPort", "TransferPlan", "UDPPort", "UseHSDownLoad"})
        AddMissing(settings.get(), key, cJSON_GetObjectItem(present, key));
    const int tcpPort = GetJsonNumber(settings.get(), "TCPPort");
    if (GetJsonString(settings.get(), "MAC") == nullptr || tcpPort < 1 || tcpPort > 65535)
        throw Failure(kExitNotProtocol,
                      "the camera names no MAC or no TCP port; with --tcp-port it needs none");
    return settings;
}

int Report(const FoundCamera& camera, const cJSON* wanted, bool json)
{
    if (json)
        puts(PrintJson(FoundCameraJson(camera).get(), false).c_str());
    else
        printf("%s is at %s\n", camera.mac.c_str(), camera.address.c_str());
    const auto notTaken = CompareWanted(wanted, camera.netCommon.get());
    for (const JsonDifference& difference : notTaken)
        fprintf(stderr, "velmora: not taken by the camera: %s\n", DifferenceLine(difference).c_str());
    return notTaken.empty() ? kExitOk : kExitDiffers;
}

int RunSetAddress(const AddressOptions& options, const CommonOptions& common)
{
    const JsonPtr wanted = Wanted(options);
    SearchSocket socket(options.interface);
    const JsonPtr settings = MakeSettings(FindSettings(socket, common).get(), wanted.get());
    const TimePoint deadline = Clock::now() + common.timeout();
    SendIpSetting(socket, settings.get(), deadline);
    const std::string mac = GetJsonString(settings.get(), "MAC");
    const auto camera = SearchFor(socket, mac, wanted.get(), deadline);
    if (!camera)
        throw Failure(kExitTimedOut, "no search finds " + Printable(mac) + " any more");
    return Report(*camera, wanted.get(), common.json);
}

} // namespace

CommandRun AddSetAddress(CLI::App& app, const CommonOptions& common)
{
    const auto options = std::make_shared<AddressOptions>();
    app.add_option("--address", options->address, "IPv4 address to give the camera")->required();
    app.add_option("--mask", options->mask, "Network mask, such as 255.255.255.0");
    app.add_option("--gateway", options->gateway, "Address of the gateway");
    app.add_option("--name", options->name, "Host name");
    app.add_option("--http-port", options->httpPort, "HTTP port: 80, or 1025 to 65534")
        ->check(CLI::Range(1, 65535));
    app.add_option("--tcp-port", options->tcpPort, "Port of this protocol, which counts from the next start")
        ->check(CLI::Range(1, 65535));
    AddInterfaceOption(app, options->interface);
    return [options, &common] { return RunSetAddress(*options, common); };
}
