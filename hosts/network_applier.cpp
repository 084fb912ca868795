#include "hosts/network_applier.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <net/route.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <utility>
#include <vector>

#include "common/log.h"
#include "common/unique_fd.h"
#include "hosts/parameter_fields_table.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kDelay{1};

std::string AddressText(uint32_t ulAddress)
{
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &ulAddress, text, sizeof text);
    return text;
}

sockaddr SocketAddress(uint32_t ulAddress)
{
    sockaddr_in internet{};
    internet.sin_family = AF_INET;
    internet.sin_addr.s_addr = ulAddress;
    sockaddr address{};
    memcpy(&address, &internet, sizeof address);
    return address;
}

// The IPv4 side of one interface, by the system's calls for it.
class Interface {
  public:
    explicit Interface(const std::string& name)
        : name_(name), socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
    }

    // 0 when the interface has none.
    [[nodiscard]] uint32_t Get(unsigned long what) const
    {
        ifreq request = Request();
        if (ioctl(socket_.get(), what, &request) != 0)
            return 0;
        sockaddr_in internet{};
        memcpy(&internet, &request.ifr_addr, sizeof internet);
        return internet.sin_addr.s_addr;
    }

    bool Set(unsigned long what, uint32_t ulAddress) const
    {
        ifreq request = Request();
        request.ifr_addr = SocketAddress(ulAddress);
        if (ioctl(socket_.get(), what, &request) == 0)
            return true;
        LogError("network: %s cannot be given %s: %s\n", name_.c_str(), AddressText(ulAddress).c_str(),
                 strerror(errno));
        return false;
    }

    // The default routes over the interface, as the system lists them.
    [[nodiscard]] std::vector<uint32_t> Gateways() const
    {
        std::vector<uint32_t> gateways;
        std::ifstream routes("/proc/net/route");
        for (std::string line; std::getline(routes, line);) {
            std::istringstream words(line);
            std::string interface;
            uint32_t ulDestination = 0;
            uint32_t ulGateway = 0;
            if (words >> interface >> std::hex >> ulDestination >> ulGateway && interface == name_ &&
                ulDestination == 0 && ulGateway != 0)
                gateways.push_back(ulGateway);
        }
        return gateways;
    }

    // Adds (SIOCADDRT) or removes (SIOCDELRT) a default route.
    bool ChangeRoute(unsigned long what, uint32_t ulGateway) const
    {
        std::string device = name_;
        rtentry route{};
        route.rt_dst = SocketAddress(INADDR_ANY);
        route.rt_genmask = SocketAddress(INADDR_ANY);
        route.rt_gateway = SocketAddress(ulGateway);
        route.rt_flags = RTF_UP | RTF_GATEWAY;
        route.rt_dev = device.data();
        if (ioctl(socket_.get(), what, &route) == 0)
            return true;
        LogError("network: the route by %s over %s: %s\n", AddressText(ulGateway).c_str(), name_.c_str(),
                 strerror(errno));
        return false;
    }

  private:
    [[nodiscard]] ifreq Request() const
    {
        ifreq request{};
        name_.copy(request.ifr_name, sizeof request.ifr_name - 1);
        return request;
    }

    const std::string name_;
    const UniqueFd socket_;
};

// The mask goes with the address in any case: the system makes one up for a new address. The broadcast
// address follows the mask by itself.
bool ChangeAddress(const Interface& interface, uint32_t ulAddress, uint32_t ulMask)
{
    return interface.Set(SIOCSIFADDR, ulAddress) && interface.Set(SIOCSIFNETMASK, ulMask);
}

// INADDR_ANY stands for no gateway.
void ChangeGateway(const Interface& interface, uint32_t ulGateway)
{
    bool stands = ulGateway == INADDR_ANY;
    for (const uint32_t ulOld : interface.Gateways()) {
        if (ulOld != ulGateway)
            interface.ChangeRoute(SIOCDELRT, ulOld);
        stands = stands || ulOld == ulGateway;
    }
    if (!stands)
        interface.ChangeRoute(SIOCADDRT, ulGateway);
}

void Apply(const std::string& name, const NetworkSettings& settings)
{
    const Interface interface(name);
    const uint32_t ulOldAddress = interface.Get(SIOCGIFADDR);
    const uint32_t ulOldMask = interface.Get(SIOCGIFNETMASK);
    const std::vector<uint32_t> oldGateways = interface.Gateways();
    const uint32_t ulAddress = settings.ulAddress.value_or(ulOldAddress);
    const uint32_t ulMask = settings.ulMask.value_or(ulOldMask);
    uint32_t ulGateway =
        settings.ulGateway.value_or(oldGateways.empty() ? uint32_t{INADDR_ANY} : oldGateways.front());
    if (const char* const problem = AddressProblem(ulAddress, ulMask)) {
        LogError("network: %s keeps its settings: %s with mask %s is %s\n", name.c_str(),
                 AddressText(ulAddress).c_str(), AddressText(ulMask).c_str(), problem);
        return;
    }
    const bool moves = ulAddress != ulOldAddress || ulMask != ulOldMask;
    if (moves && !ChangeAddress(interface, ulAddress, ulMask))
        return;
    if (ulGateway != INADDR_ANY && !IsReachableGateway(ulGateway, ulAddress, ulMask)) {
        LogWarn("network: no default route: %s cannot be reached\n", AddressText(ulGateway).c_str());
        ulGateway = INADDR_ANY;
    }
    ChangeGateway(interface, ulGateway);
    LogInfo("network: %s has %s, mask %s, gateway %s\n", name.c_str(), AddressText(ulAddress).c_str(),
            AddressText(ulMask).c_str(), AddressText(ulGateway).c_str());
}

} // namespace

const char* AddressProblem(uint32_t ulAddress, uint32_t ulMask)
{
    const uint32_t host = ntohl(ulAddress);
    const uint32_t holes = ~ntohl(ulMask); // the host part of addresses, when it is of one piece
    if ((holes & (holes + 1)) != 0 || holes == UINT32_MAX)
        return "no mask";
    if (host >> 24 == 0 || host >> 24 == IN_LOOPBACKNET || host >> 28 >= 0xE)
        return "no address of a host";
    // Of two addresses or one, both are hosts.
    if (holes > 1 && ((host & holes) == 0 || (host & holes) == holes))
        return "the address of a whole network";
    return nullptr;
}

bool IsReachableGateway(uint32_t ulGateway, uint32_t ulAddress, uint32_t ulMask)
{
    return ulGateway != ulAddress && AddressProblem(ulGateway, ulMask) == nullptr &&
           ((ulGateway ^ ulAddress) & ulMask) == 0;
}

void NetworkApplier::Set(uint32_t field, uint32_t ulAddress)
{
    {
        const std::lock_guard lock(mutex_);
        if (field == kFieldAddress)
            waiting_.ulAddress = ulAddress;
        else if (field == kFieldNetmask)
            waiting_.ulMask = ulAddress;
        else if (field == kFieldGateway)
            waiting_.ulGateway = ulAddress;
        due_ = Clock::now() + kDelay;
    }
    changed_.notify_all();
}

void NetworkApplier::Start()
{
    if (due_ != Clock::time_point::max())
        Apply(interface_, std::exchange(waiting_, {}));
    due_ = Clock::time_point::max();
    thread_ = std::thread([this] { Run(); });
}

void NetworkApplier::Stop()
{
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable())
        thread_.join();
}

void NetworkApplier::Run()
{
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        if (due_ == Clock::time_point::max()) {
            changed_.wait(lock);
        } else if (Clock::now() < due_) {
            changed_.wait_until(lock, due_);
        } else {
            due_ = Clock::time_point::max();
            const NetworkSettings settings = std::exchange(waiting_, {});
            lock.unlock();
            Apply(interface_, settings);
            lock.lock();
        }
    }
}
