// Plays data/operations.tsv, a row a call: what is stored before it, its arguments, its status, the exact
// messages that it sends, what it fills and what it logs. Runs in the sandbox, whose eth0 some rows read.
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <tuple>

#include "camera/camera_access.h"
#include "camera/camera_commands.h"
#include "camera/device_commands.h"
#include "camera/further_commands.h"
#include "camera/video_operations.h"
#include "tests/camera/camera_setup.h"
#include "tests/table.h"

namespace {

std::string g_clockSetTo; // "clock:SECONDS "

} // namespace

// The clock of the machine is never touched: this one notes what it would be set to.
extern "C" int __wrap_clock_settime(clockid_t clock, const timespec* time);
int __wrap_clock_settime(clockid_t clock, const timespec* time)
{
    EXPECT_EQ(clock, CLOCK_REALTIME);
    g_clockSetTo = "clock:" + std::to_string(time->tv_sec) + " ";
    errno = EPERM;
    return getenv("CLOCK_REFUSES") != nullptr ? -1 : 0;
}

namespace {

using Arguments = std::vector<std::string>;
using Operation = std::function<int(Arguments&)>;

// A value by its bytes, or a pointer to them: null for "-", else to as many as its record has.
template <typename T> T As(std::string& bytes)
{
    T value{};
    if constexpr (!std::is_pointer_v<T>) {
        memcpy(&value, bytes.data(), std::min(bytes.size(), sizeof value));
    } else if (bytes != "-") {
        if constexpr (!std::is_void_v<std::remove_pointer_t<T>>)
            bytes.resize(std::max(bytes.size(), sizeof(*value)));
        value = reinterpret_cast<T>(bytes.data());
    }
    return value;
}

template <typename... P> Operation Taking(int (*call)(P...))
{
    return [call](Arguments& arguments) {
        arguments.resize(sizeof...(P));
        [[maybe_unused]] auto next = arguments.begin();
        return std::apply(call, std::tuple<P...>{As<P>(*next++)...});
    };
}

// By their names, which stand before them between commas.
template <typename... Call> std::map<std::string, Operation> Named(const char* names, Call*... calls)
{
    std::map<std::string, Operation> operations;
    std::istringstream text(names);
    std::string name;
    ((text >> name, operations[name.substr(0, name.find(','))] = Taking(calls)), ...);
    return operations;
}
#define NAMED(...) Named(#__VA_ARGS__, __VA_ARGS__)
const std::map<std::string, Operation> kOperations =
    NAMED(GetMaxFrameRate, RunCameraCommand, CameraCheckUpGradeFile, CameraCmd28, CameraCmd63,
          CameraCreateUser, CameraDelUser, CameraFactoryDefault, CameraGetArgeementProperty,
          CameraGetAudioConfig, CameraGetAudioProperty, CameraGetChannelEnable, CameraGetDNS,
          CameraGetDateTimeProperty, CameraGetDeviceInformation, CameraGetEncodingScope, CameraGetGateway,
          CameraGetHostname, CameraGetHttpPort, CameraGetIPAddr, CameraGetImageConfig, CameraGetMacAddr,
          CameraGetMotionDetectionExProperty, CameraGetNetmask, CameraGetPTZSerialProperty,
          CameraGetPlayBackQueryFiles, CameraGetPtzPresets, CameraGetResolutionsAvailable, CameraGetTimeZone,
          CameraGetUpGradeFileSaveName, CameraGetUsers, CameraGetVideoEncoderConfig, CameraReserved138,
          CameraReserved19, CameraReserved31, CameraReserved32, CameraReserved51, CameraReserved55,
          CameraSetArgeementProperty, CameraSetAudioConfig, CameraSetAudioProperty, CameraSetBitRate,
          CameraSetBitRateCtl, CameraSetDNS, CameraSetDateTime, CameraSetDateTimeProperty,
          CameraSetDhcpStatue, CameraSetEncodingType, CameraSetFrameRate, CameraSetGateway, CameraSetHostname,
          CameraSetHttpPort, CameraSetIFrameInterval, CameraSetIPAddr, CameraSetImageConfig,
          CameraSetMobilePort, CameraSetMotionDetectionExProperty, CameraSetNetmask, CameraSetPTZ3DZoom,
          CameraSetPTZSerialProperty, CameraSetPreviewModeConfig, CameraSetResolution, CameraSetResolution2,
          CameraSetTimeZone, CameraSetUser, CameraSetVideoQuality, CameraUpgrade);

// Bytes as the rows write them: "text" or numbers of one byte, two (2h) or four (2w), each perhaps *times.
std::string Bytes(std::string notation)
{
    std::string bytes;
    char* at = notation.data();
    while (*at != '\0') {
        std::string item;
        if (*at == '"') {
            item = std::string(at + 1, strchr(at + 1, '"'));
            at += item.size() + 2;
        } else {
            const char* const number = at;
            const long long value = strtoll(at, &at, 10);
            if (at == number)
                throw std::runtime_error("no bytes: " + notation);
            item.assign(reinterpret_cast<const char*>(&value), *at == 'w' ? 4 : *at == 'h' ? 2 : 1);
            at += *at == 'w' || *at == 'h';
        }
        for (long times = *at == '*' ? strtol(at + 1, &at, 10) : 1; times > 0; times--)
            bytes += item;
        at += strspn(at, " ");
    }
    return bytes;
}

// The parts of a cell, divided by " | ".
std::vector<std::string> Parts(std::string cell)
{
    std::vector<std::string> parts;
    for (size_t end; (end = cell.find(" | ")) != std::string::npos; cell.erase(0, end + 3))
        parts.push_back(cell.substr(0, end));
    if (!cell.empty())
        parts.push_back(cell);
    return parts;
}

// Those that are NAME: BYTES.
std::vector<std::pair<std::string, std::string>> NamedParts(const std::string& cell)
{
    std::vector<std::pair<std::string, std::string>> named;
    for (const std::string& part : Parts(cell))
        named.emplace_back(part.substr(0, part.find(": ")), Bytes(part.substr(part.find(": ") + 2)));
    return named;
}

// What lies there before a row's call: a byte of the block, a file, or a variable of the environment.
void Store(const std::string& place, const std::string& bytes)
{
    if (place[0] == '/')
        std::ofstream(place) << bytes;
    else if (isdigit(place[0]))
        memcpy(Host().block + std::stoul(place), bytes.data(), bytes.size());
    else
        setenv(place.c_str(), bytes.c_str(), 1);
}

void Forget(const std::string& place)
{
    place[0] == '/' ? std::remove(place.c_str()) : unsetenv(place.c_str());
}

TEST(CameraOperations, SendAndFillWhatTheirRowSays)
{
    for (const char* folder : {"/etc", "/proc/self/net"}) // its files are the rows' own
        ASSERT_EQ(mount("tmpfs", folder, "tmpfs", 0, nullptr), 0);
    Host().answersFirstByte = true; // setters ignore the result
    for (const TableRow& row : ReadTable(VELMORA_CAMERA_DATA "/operations.tsv", 7)) {
        SCOPED_TRACE(row[0] + " " + row[1] + " " + row[2]);
        memset(Host().block, 0, kBlockBytes);
        for (const auto& [place, bytes] : NamedParts(row[1]))
            Store(place, bytes);
        Arguments arguments;
        for (const std::string& part : Parts(row[2]))
            arguments.push_back(part == "-" ? part : Bytes(part));
        const std::string log =
            ErrorOutputOf([&] { EXPECT_EQ(kOperations.at(row[0])(arguments), std::stoi(row[3])); });
        EXPECT_EQ(std::exchange(g_clockSetTo, "") + Host().TakeText(), row[4]);
        for (const auto& [place, bytes] : NamedParts(row[5]))
            EXPECT_EQ(arguments.back().substr(std::stoul(place), bytes.size()), bytes) << place;
        EXPECT_NE(log.find(row[6]), std::string::npos) << log;
        for (const auto& [place, bytes] : NamedParts(row[1]))
            Forget(place);
    }
    for (const char* folder : {"/etc", "/proc/self/net"})
        ASSERT_EQ(umount(folder), 0);
}

} // namespace
